// Search rules, each on a position where the rule alone decides the result; forced mates;
// searches started and stopped many times; the bench node count.
// GCC 12 with the sanitizers reports a false "maybe uninitialized" inside <regex>.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include "search/search.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <thread>

#include "eval/loneking.h"
#include "search/ordering.h"
#include "search/pool.h"
#include "search/timecontrol.h"
#include "search/tt.h"
#include "shell/bench.h"
#include "support.h"

namespace quarn::test {

namespace {

constexpr int kWide = 30000;
// White a queen up: no search of it comes near a draw score.
constexpr const char* kQueenUp = "rnb1kbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1";

// Depth and score of every new best root move, then of the finished search, and its move.
struct Recorder : SearchReporter {
    void reportCurrentMove(uint32_t, uint32_t, Move) override {}
    void reportPv(const PvReport& report) override { reports.push_back({report.depth, report.score}); }
    void reportFinished(const PvReport& report, Move m, Move) override {
        best = m;
        reportPv(report);
        ++finished;
    }
    std::vector<std::pair<int, int>> reports;
    int finished = 0;
    Move best = 0;
};

void searchRootTo(const Position& pos, int depth, Recorder* recorder) {
    prepareSearch(depth);
    startSearch(pos, recorder);
    waitIdle();
}

// Thread 0, idle, holding `fen` with the space-separated `moves` played, ready for search().
SearchThread& nodeSearcher(const char* fen, const char* moves = "") {
    prepareSearch(0);
    SearchThread& t = *pool.threads[0];
    copyPosition(t.pos, positionFrom(fen));
    for (const std::string& text : words(moves)) {
        if (const Move m = parseMove(t.pos, text.c_str())) makeMove(t.pos, m);
        else ADD_FAILURE() << text;
    }
    computeAttackInfo(t.pos);
    t.stats = SearchStats{};
    t.stopFlag.store(0);
    return t;
}

}  // namespace

// Every draw rule answers 0 before the table is probed. Back and forth (beta <= 0, from ply 3)
// also leaves as the PV the move undoing the opponent's move in between.
TEST(SearchDraws, RulesComeBeforeTheTable) {
    constexpr const char* kFifty = "4k3/8/8/8/8/8/r7/Q3K3 w - - 0 1";  // Qxa2 wins a rook
    constexpr const char* kRooks = "r5k1/5ppp/8/8/R7/8/5PPP/6K1 w - - 0 1";
    constexpr const char* kCycle = "Nf3 Nf6 Ng1 Ng8";
    const struct { const char* fen; const char* moves; uint32_t plies; int ply, beta; bool drawn;
                   Move undo; } cases[] = {
        {kFifty, "", 99, 1, 1, false, 0},
        {kFifty, "", 100, 1, 1, true, 0},
        {"8/8/3k4/8/8/2b5/8/3NK3 w - - 0 1", "", 0, 1, 1, true, 0},   // bishop against knight
        {"7k/5K2/5N2/4N3/8/8/8/8 w - - 0 1", "", 0, 1, 1, false, 0},  // two knights (Ng6 mates)
        {kQueenUp, kCycle, 0, 3, 1, false, 0},  // one repetition is enough from ply 4 only
        {kQueenUp, kCycle, 0, 4, 1, true, 0},
        {kQueenUp, "Nf3 Nf6 Ng1 Ng8 Nf3 Nf6 Ng1 Ng8", 0, 3, 1, true, 0},
        {kQueenUp, "Nf3 Nf6 Ng1", 0, 3, 0, true, makeMoveWord(45, 62, 0)},
        {kQueenUp, "Nf3 Nf6 Ng1", 0, 3, 1, false, 0},
        {kQueenUp, "Nf3 Nf6 Ng1", 0, 2, 0, false, 0},
        {kRooks, "Rb4 Ra7 Ra4", 0, 3, 0, true, makeMoveWord(48, 56, 0)},
        {kRooks, "Rb4 Ra2 Ra4", 0, 3, 0, false, 0},  // the rook passed the vacated a4
        {"r3k2r/pppppppp/8/8/8/8/PPPPPPPP/RN2K2R w KQkq - 0 1", "Nc3 O-O Nb1", 0, 3, 0, false, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "row " << &c - cases);
        SearchThread& t = nodeSearcher(c.fen, c.moves);
        if (c.plies) t.pos.ply = c.plies;
        const int score = search(t, c.ply, 2, c.beta - 1, c.beta, NODE_CUT | NULL_ALLOWED);
        EXPECT_EQ(t.stats.ttProbes == 0, c.drawn);
        EXPECT_TRUE(!c.drawn || score == 0) << score;
        EXPECT_TRUE(!c.undo || t.pv[c.ply][0] == c.undo);
    }
}

// Depth 0 asks the quiescence search, which must score them the same.
TEST(SearchScores, MateAndStalemateByPly) {
    constexpr const char* kMated = "rnb1kbnr/pppp1ppp/8/4p3/6Pq/5P2/PPPPP2P/RNBQKBNR w KQkq - 1 3";
    constexpr const char* kStalemate = "7k/5Q2/6K1/8/8/8/8/8 b - - 0 1";
    const struct { const char* fen; int ply, depth, score; } cases[] = {
        {kMated, 7, 1, 7 - 30000}, {kMated, 5, 0, 5 - 30000}, {kStalemate, 4, 1, 0},
        {kStalemate, 3, 0, 0},
    };
    for (const auto& c : cases) {
        SearchThread& t = nodeSearcher(c.fen);
        EXPECT_EQ(search(t, c.ply, c.depth, -kWide, kWide, NODE_PV), c.score)
            << c.fen << " ply " << c.ply << " depth " << c.depth;
    }
}

// Mate comes before the draw rules that would otherwise claim the node: the fifty-move count run
// out, bishop against bishop. And a king boxed in beside a pinned pawn is no stalemate when the
// pawn can take its pinner (bxc3 is White's one move).
TEST(SearchScores, MateAndMovesBeforeDrawShortcuts) {
    constexpr const char* kMated = "rnb1kbnr/pppp1ppp/8/4p3/6Pq/5P2/PPPPP2P/RNBQKBNR w KQkq - 1 3";
    constexpr const char* kBishopMate = "6bk/8/6K1/4B3/8/8/8/8 b - - 0 1";
    constexpr const char* kPinnedPawn = "4r2k/8/8/8/8/2b5/1P1n4/K1n5 w - - 0 1";
    const struct { const char* fen; uint32_t plies; int depth, low, high; } cases[] = {
        {kMated, 100, 1, 3 - 30000, 3 - 30000}, {kMated, 100, 0, 3 - 30000, 3 - 30000},
        {kBishopMate, 0, 1, 3 - 30000, 3 - 30000}, {kBishopMate, 0, 0, 3 - 30000, 3 - 30000},
        {kPinnedPawn, 0, 0, -2500, -500}, {kPinnedPawn, 0, 1, -2500, -500},
    };
    for (const auto& c : cases) {
        SearchThread& t = nodeSearcher(c.fen);
        if (c.plies) t.pos.ply = c.plies;
        const int score = search(t, 3, c.depth, -kWide, kWide, NODE_PV);
        EXPECT_TRUE(score >= c.low && score <= c.high) << c.fen << " depth " << c.depth << ": " << score;
    }
}

// Positions from played games that the search once scored far from what they are worth: every
// new best move of every iteration must keep its score in range.
TEST(SearchScores, GamePositionsScoredSoundly) {
    const struct { const char* fen; int low, high; } cases[] = {
        // Rook against rook: a rook check on the first rank was taken for mate.
        {"8/8/8/8/2K5/4r3/7R/3k4 w - - 17 85", -100, 100},
        // Equal material: Ra8+ was taken for mate, the rook having covered the seventh rank.
        {"4k3/R7/2r5/2PpBpp1/3Pn3/7P/8/6K1 w - - 0 45", -100, 100},
        // Bishop and rook pawn of the wrong colour: the white king holds the corner. Cutting a
        // bare king's moves short near the horizon once left it only ways out of the corner,
        // and Black looked ten pawns up from depth 9.
        {"8/8/7p/b7/P7/6k1/8/7K b - - 3 56", -100, 100},
    };
    for (const auto& c : cases) {
        Recorder recorder;
        searchRootTo(positionFrom(c.fen), kSlowBuild ? 9 : 14, &recorder);
        ASSERT_EQ(recorder.finished, 1);
        for (const auto& [depth, score] : recorder.reports)
            EXPECT_TRUE(score >= c.low && score <= c.high) << c.fen << " depth " << depth << ": " << score;
    }
}

// A won position takes its gain now: the pawn is pushed or promoted at every depth, where a
// king step that puts the same gain off looked a few points better.
TEST(SearchRoot, WonPositionsPushAndPromoteAtEveryDepth) {
    const std::pair<const char*, const char*> cases[] = {
        {"8/4P3/8/8/8/8/k7/4K3 w - -", "e7e8Q"},
        {"8/8/4P3/8/8/8/k7/4K3 w - -", "e6e7"},
        {"8/8/8/4P3/8/8/k7/4K3 w - -", "e5e6"},
    };
    for (const auto& [fen, move] : cases) {
        Position pos = positionFrom(fen);
        const Move expected = parseMove(pos, move);
        for (int depth = 1; depth <= (kSlowBuild ? 8 : 12); ++depth) {
            searchRootTo(pos, depth, nullptr);
            EXPECT_EQ(masterRoot().rootMoves[0].move, expected) << fen << " depth " << depth;
        }
    }
}

// Black wins with Qxc3 and a queen soon after; queening at once lets the white queen check
// for ever from f5, c8 and c5 (a game lost to a perpetual this way).
TEST(SearchRoot, WonGameNotQueenedIntoAPerpetual) {
    Position pos = positionFrom("8/5Qpk/8/2p5/5PP1/2P2K1P/p7/4q3 b - - 2 52");
    const Move queening = parseMove(pos, "a2a1q");
    ASSERT_NE(queening, 0u);
    Recorder recorder;
    searchRootTo(pos, 10, &recorder);
    EXPECT_FALSE(sameMove(recorder.best, queening));
    EXPECT_GT(recorder.reports.back().second, 500);
}

// Won queen endings that games drew by perpetual check, the move that let it happen, and the
// depth by which the search must see it:
// - a8b7 walks the king into Qb4+, Qa4+, Qd4+ (Qb1+ first keeps the win);
// - c6c7 leaves the king on f1 to the checks from d1 and c2 around the f2 pawn (Kxf2 keeps
//   the win);
// - g7g5 clears the seventh rank for the queen, which then checks from f7, e6, d6 and c6 for
//   ever (Kh4 keeps the win);
// - b3b2 lets the queen check from c8, c3 and f5 (the pawn queens later, with the king safe).
// The long checking lines run past these depths: seen only once a queen still checking after
// four checks in a row is scored as the perpetual it most likely is.
TEST(SearchRoot, KingNotLeftToAPerpetual) {
    const struct { const char* fen; const char* drawn; int depth; } cases[] = {
        {"KQ6/P5pk/7p/2p5/3q3P/8/8/8 w - - 0 60", "a8b7", 8},
        {"1b6/7p/P1P2k2/7q/3P1p2/2B5/5pQ1/5K2 w - - 3 126", "c6c7", 12},
        {"8/6p1/8/Q6k/P5q1/1P5p/2P5/4K3 b - - 0 46", "g7g5", 10},
        {"7k/6p1/7p/2Q2p2/5P2/1p6/3K2PP/1q6 b - - 6 91", "b3b2", 8},
    };
    for (const auto& c : cases) {
        Position pos = positionFrom(c.fen);
        Recorder recorder;
        searchRootTo(pos, c.depth, &recorder);
        EXPECT_FALSE(sameMove(recorder.best, parseMove(pos, c.drawn)))
            << c.fen << ": " << moveText(pos, recorder.best);
    }
}

// After g7g5 above, seven pawns down, White checks from c7, h7 and on around the board; the
// black king finds no shelter within the horizon, and the score says so.
TEST(SearchRoot, EndlessChecksScoreAsADraw) {
    Position pos = positionFrom("8/8/8/Q5pk/P5q1/1P5p/2P5/4K3 w - - 0 47");
    Recorder recorder;
    searchRootTo(pos, 10, &recorder);
    EXPECT_GT(recorder.reports.back().second, -150);
}

// Bishops of opposite colours, a game drawn: Kxb5 leaves two pawns against a pawnless side,
// whose king and bishop then blockade them; Bg3 keeps the black pawn on the board and wins.
// Scored as the two-passer ending it is, Kxb5 no longer looks best.
TEST(SearchRoot, OppositeBishopsPawnNotTakenIntoABlockade) {
    Position pos = positionFrom("1B6/8/PK6/1p1b1k2/1P6/8/8/8 w - - 1 85");
    Recorder recorder;
    searchRootTo(pos, 18, &recorder);
    EXPECT_FALSE(sameMove(recorder.best, parseMove(pos, "b6b5"))) << moveText(pos, recorder.best);
    EXPECT_GT(recorder.reports.back().second, 300);
}

TEST(SearchPruning, NoNullMoveWithOnlyKnightsAndPawns) {
    searchRootTo(positionFrom("4k3/pppn1ppp/4pn2/8/3P4/2N1PN2/PPP2PPP/4K3 w - - 0 1"), 6, nullptr);
    EXPECT_EQ(pool.threads[0]->stats.nullTries, 0u);
    searchRootTo(positionFrom("4k3/pppb1ppp/4pb2/8/3P4/2B1PB2/PPP2PPP/4K3 w - - 0 1"), 6, nullptr);
    EXPECT_GT(pool.threads[0]->stats.nullTries, 0u);  // the same with bishops
}

// Sacrifices that set up a threat the static score cannot see (a mate, a rook landing on the
// seventh) are found at depth 10: the static margin cut below them waits for the threat to be
// answered instead of taking the material count at its word.
TEST(SearchPruning, StaticCutLeavesSacrificesWithThreats) {
    const std::pair<const char*, const char*> cases[] = {
        {"4r1k1/p1qr1p2/2pb1Bp1/1p5p/3P1n1R/1B3P2/PP3PK1/2Q4R w - - 0 1", "c1f4"},
        {"r2r2k1/2p2ppp/p7/1p2P1n1/P6q/5P2/1PB1QP1P/R5RK b - - 0 1", "d8d2"},
        {"1nbq1r1k/3rbp1p/p1p1pp1Q/1p6/P1pPN3/5NP1/1P2PPBP/R4RK1 w - - 0 1", "f3g5"},
    };
    for (const auto& [fen, move] : cases) {
        Position pos = positionFrom(fen);
        Recorder recorder;
        searchRootTo(pos, 10, &recorder);
        EXPECT_TRUE(sameMove(recorder.best, parseMove(pos, move))) << fen << ": " << moveText(pos, recorder.best);
    }
}

// Captures of like victims are sorted by what cut off before: capture history puts a capture
// ahead of its twin, not ahead of a rook taken. A capture that cuts off gains it; one
// searched in vain before the move that cuts off (here the back-rank mate) loses it.
TEST(SearchOrdering, CaptureHistorySortsLikeVictimsAndLearnsFromCutoffs) {
    SearchThread& t = nodeSearcher("4k3/8/7r/3p4/5N2/1B6/8/4K2R w - - 0 1");
    const Move rook = parseMove(t.pos, "Rxh6"), knight = parseMove(t.pos, "Nxd5"), bishop = parseMove(t.pos, "Bxd5");
    auto order = [&] {
        Move moves[kMaxMoves];
        Move* end = generateAll(t.pos, moves);
        orderMoves(t, 1, moves, end, 0);
        return std::vector<Move>(moves, end);
    };
    auto rank = [](const std::vector<Move>& list, Move m) {
        return std::find(list.begin(), list.end(), m) - list.begin();
    };
    const Move first = rank(order(), knight) < rank(order(), bishop) ? knight : bishop;
    const Move second = first == knight ? bishop : knight;
    captureHistory(*t.history, t.pos, second) = kHistoryMax;
    const std::vector<Move> learned = order();
    EXPECT_EQ(rank(learned, rook), 0);
    EXPECT_EQ(rank(learned, second), 1);
    EXPECT_EQ(rank(learned, first), 2);

    SearchThread& u = nodeSearcher("6k1/5ppp/8/8/1n6/2B5/5PPP/R5K1 w - - 0 1");
    const Move take = parseMove(u.pos, "Bxb4"), mate = parseMove(u.pos, "Ra8");
    search(u, 1, 1, 0, 1, NODE_PV);
    EXPECT_GT(captureHistory(*u.history, u.pos, take), 0);
    clearSearchHistory();
    tt.clear();  // Bxb4 would come back as the hash move, searched before the loop
    EXPECT_GT(search(u, 1, 1, kMateThreshold, kMateThreshold + 1, NODE_PV), kMateThreshold);
    EXPECT_LT(captureHistory(*u.history, u.pos, take), 0);
    EXPECT_GT(u.history->butterfly[WHITE][fromSquare(mate)][toSquare(mate)], 0);
}

// With no history to go by, the quiet checks from squares the enemy does not attack come
// first (a queen's from a4 and h5, not e2 behind the knight; a knight's from d6 and f6);
// checks next to the king, where it takes the checker, get nothing for checking.
TEST(SearchOrdering, SafeQuietChecksComeFirst) {
    clearSearchHistory();
    SearchThread& t = nodeSearcher("4k3/8/8/8/4N3/8/8/3QK3 w - - 0 1");
    Move moves[kMaxMoves];
    Move* end = generateAll(t.pos, moves);
    orderMoves(t, 1, moves, end, 0);
    std::vector<std::string> first(4);
    for (int i = 0; i < 4; ++i) first[i] = moveText(t.pos, moves[i]);
    std::sort(first.begin(), first.end());
    EXPECT_EQ(first, (std::vector<std::string>{"Ne4d6", "Ne4f6", "Qd1a4", "Qd1h5"}));
    const auto rank = [&](const char* text) {
        return std::find(moves, end, parseMove(t.pos, text)) - moves;
    };
    EXPECT_GT(rank("d1d7"), rank("d1d3"));  // a check the king answers by taking
    EXPECT_GT(rank("d1d8"), rank("d1d3"));
}

// A deep exact entry with a wrong score: a cut node takes it, a PV node searches.
TEST(SearchTable, PvNodeTakesNoCutoffFromAnExactEntry) {
    for (const uint32_t flags : {uint32_t{NODE_PV}, uint32_t{NODE_CUT}}) {
        SearchThread& t = nodeSearcher(kQueenUp);
        tt.store(t.pos, TtEntry{0, 0, -777, 30, int16_t(evaluate(*t.eval)), 0, BOUND_EXACT, 0});
        const int score = search(t, 1, 2, -kWide, kWide, flags);
        EXPECT_TRUE(flags == NODE_PV ? score > 400 : score == -777) << score;
    }
}

// A single reply is extended on every visit: the table keeps the extension beside the move, also
// once the move comes back as the hash move (Rb1 is White's only way out of check). The
// quiescence search extends nothing: an entry it stores for a position in check carries no
// extension, or the full-width search would extend its hash move there by accident (Ka2 is
// White's only way out of the rook's check).
TEST(SearchTable, OnlyTheFullWidthSearchStoresExtensions) {
    SearchThread& t = nodeSearcher("1R6/k7/8/8/8/8/6PP/r6K w - - 0 1");
    for (int visit = 1; visit <= 3; ++visit) {
        search(t, 1, 3, -kWide, kWide, NODE_PV);
        TtEntry e;
        ASSERT_TRUE(tt.probe(t.pos, e));
        EXPECT_EQ(e.move, parseMove(t.pos, "Rb1")) << "visit " << visit;
        EXPECT_EQ(e.extension, 1) << "visit " << visit;
        EXPECT_EQ(t.pv[1][0], e.move) << "visit " << visit;
    }
    SearchThread& q = nodeSearcher("1r5k/8/8/8/8/8/8/K6r w - - 0 1");
    quiesce(q, 1, 2, -kWide, kWide, NODE_PV | FROM_SEARCH);
    TtEntry e;
    ASSERT_TRUE(tt.probe(q.pos, e));
    EXPECT_EQ(e.move, parseMove(q.pos, "Ka2"));
    EXPECT_EQ(e.extension, 0);
}

// Mates found beyond depth 3, where windows open around the last score (the second position
// follows Rxh7+ of the first), and a pawn race whose score swings between iterations.
TEST(SearchRoot, AspirationStaysWithinMateBoundsAndMatesEndTheSearch) {
    const struct { const char* fen; int depth, score; } cases[] = {
        {"r3r2k/2R3pp/pp1q1p2/8/3P3R/7P/PP3PP1/3Q2K1 w - - 0 1", 9, 30000 - 7},
        {"r3r2k/2R3pR/pp1q1p2/8/3P4/7P/PP3PP1/3Q2K1 b - - 0 1", 9, 6 - 30000},
        {"8/7p/5k2/5p2/p1p2P2/Pr1pPK2/1P1R3P/8 b - - 0 1", 8, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fen);
        Recorder r;
        searchRootTo(positionFrom(c.fen), c.depth, &r);
        ASSERT_FALSE(r.reports.empty());
        for (const auto& [depth, score] : r.reports) EXPECT_LE(std::abs(score), kWide) << depth;
        if (!c.score) continue;
        // The search ends with the first iteration whose mate lies within its depth + 1 plies.
        const auto [depth, score] = r.reports.back();
        EXPECT_TRUE(score == c.score && kWide - std::abs(score) <= depth + 1) << depth;
        for (size_t i = 0; i + 1 < r.reports.size(); ++i)
            EXPECT_TRUE(r.reports[i + 1].first == r.reports[i].first ||
                        kWide - std::abs(r.reports[i].second) > r.reports[i].first + 1) << i;
    }
}

// Console search lines: "  [5/7]     0.011    2481       37  text" (depth, seldepth, time,
// nodes, score, text); the last one gives the reason to stop. "g" clears the table, so a second
// search of the same position takes exactly the nodes of the first at every depth: nothing else
// a search leaves behind may change the next one.
TEST(SearchConsole, StopReasonsAndRepeatedSearch) {
    const struct { const char* input; int minDepth, maxDepth; const char* reason; } cases[] = {
        {"md 6\ng\ng\n", 6, 6, "ok/"},
        {"fen 7k/8/8/8/8/1r6/8/K7 w - - 0 1\nmd 10\ng\n", 2, 2, "single move"},
        // Mate in two: seen by depth 3, and final once its 3 plies <= depth + 1.
        {"fen 2rr3k/pp3pp1/1nnqbN1p/3pN3/2pP4/2P3Q1/PPB4P/R4RK1 w - - 0 1\nmd 20\ng\n", 2, 3,
         "(optimal)"},
    };
    const std::regex line(R"(\[(\d+)/\d+\]\s+\S+\s+(\S+)\s+\S+ +(.*)\n)");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.input);
        const std::string out = runEngine(std::string("mt 1000\n") + c.input).out;
        std::smatch last;
        std::string all;  // depth and nodes of every line
        for (std::sregex_iterator it(out.begin(), out.end(), line), end; it != end; ++it) {
            last = *it;
            all += last[1].str() + ":" + last[2].str() + " ";
        }
        ASSERT_FALSE(last.empty());
        EXPECT_GE(std::stoi(last[1]), c.minDepth);
        EXPECT_LE(std::stoi(last[1]), c.maxDepth);
        EXPECT_EQ(last[3].str().rfind(c.reason, 0), 0u) << last[3];
        const std::string half = all.substr(0, all.size() / 2);
        EXPECT_TRUE(countOf(c.input, "g\n") == 1 || half + half == all) << all;
    }
}

namespace {

// Whether `test` holds after the move m; the position is restored.
template <class Test>
bool after(Position& pos, Move m, Test test) {
    const UndoState saved = pos.state;
    makeMove(pos, m);
    computeAttackInfo(pos);
    const bool result = test();
    unmakeMove(pos, m, saved);
    return result;
}

bool matesWithin(Position& pos, int n);

// The side to move is mated now, or (n > 0) within n more attacking moves whatever it plays.
bool lost(Position& pos, int n) {
    const std::vector<Move> moves = legalMoves(pos);
    if (moves.empty()) return inCheck(pos);
    for (size_t i = 0; i < moves.size() && n > 0; ++i)
        if (!after(pos, moves[i], [&] { return matesWithin(pos, n); })) return false;
    return n > 0;
}

// The side to move mates within n moves. Checks go first: they mate more often, and only a
// check can mate at once.
bool matesWithin(Position& pos, int n) {
    const std::vector<Move> moves = legalMoves(pos);
    for (int pass = 0; pass < (n > 1 ? 2 : 1); ++pass)
        for (const Move m : moves)
            if (after(pos, m, [&] { return inCheck(pos) == !pass && lost(pos, n - 1); }))
                return true;
    return false;
}

}  // namespace

// Lines "<fen> bm <move>; dm <n>; id "<name>";", check signs dropped from the move: five
// positions for each length from one to four moves. Each is first proved by the brute-force
// search above (the data file is not taken on trust); the engine must then find a mating move
// with the exact score.
TEST(Mates, FoundWithTheExactScore) {
    static const std::regex epd(R"re(^(.*) bm ([^;+#]+)[+#]*; dm (\d+); id "([^"]+)";)re");
    std::ifstream in(dataPath("mates.epd"));
    int count[5] = {};
    std::smatch f;
    for (std::string line; std::getline(in, line);) {
        if (!std::regex_search(line, f, epd)) continue;
        SCOPED_TRACE(f[4].str());
        const int n = std::stoi(f[3]);
        ++count[n > 4 ? 0 : n];
        Position pos = positionFrom(f[1]);
        // The move mates in n, and the position has no shorter mate.
        const auto forcesMate = [&](Move m) {
            return m && !(n > 1 && matesWithin(pos, n - 1)) &&
                   after(pos, m, [&] { return lost(pos, n - 1); });
        };
        ASSERT_TRUE(forcesMate(parseMove(pos, f[2].str().c_str()))) << "wrong data: " << f[2];
        searchRootTo(pos, 2 * n + 2, nullptr);  // a ply of room for the reductions
        const RootMove& best = masterRoot().rootMoves[0];
        EXPECT_EQ(best.score, 30000 - (2 * n - 1));
        EXPECT_TRUE(forcesMate(best.move)) << best.move;  // any mate in n is right
    }
    for (int n = 0; n <= 4; ++n) EXPECT_EQ(count[n], n ? 5 : 0) << n;
}

// Positions of a won game where a pawn push mates in three and the queens mate in two: the
// won position's preference for pawn moves must not put a proven mate off, move after move.
TEST(Mates, ShortestPlayedWhenAPawnMoveMatesLater) {
    for (const char* fen : {"3q4/6k1/8/p2p3p/P2P4/4P1K1/8/5q2 b - - 1 89",
                            "3q4/6k1/8/p2p4/P2P2Kp/4P3/8/5q2 b - - 1 90",
                            "3q4/6k1/8/p2P4/P7/4p1Kp/8/5q2 b - - 0 93"}) {
        Position pos = positionFrom(fen);
        searchRootTo(pos, 10, nullptr);
        const RootMove& best = masterRoot().rootMoves[0];
        EXPECT_EQ(best.score, 30000 - 3) << fen;
        EXPECT_TRUE(after(pos, best.move, [&] { return lost(pos, 1); })) << fen << " " << best.move;
    }
}

// Below the root the search reads the lone-king mate tables, so even a one-ply search playing
// both sides reports the table's distance and mates in exactly that many plies. With the
// fifty-move count nearly run out the tables are left alone and no mate is claimed.
// Both were drawn by the fifty-move rule in games: the rook, and the bishop and knight with
// the lone king holding the corner the bishop does not cover.
TEST(Mates, LoneKingEndingsMateAtTheTableDistance) {
    for (const char* fen : {"8/8/8/4k3/8/2K5/8/4r3 b - - 0 60", "8/8/8/8/2b5/5k2/6n1/4K3 w - - 0 86"}) {
        Position pos = positionFrom(fen);
        int plies = 0;
        ASSERT_NE(loneKingOutcome(pos, plies), 0);
        ASSERT_GT(plies, 15);
        int played = 0;
        for (; played < 80 && !legalMoves(pos).empty(); ++played) {
            int left = 0;
            const int outcome = loneKingOutcome(pos, left);
            searchRootTo(pos, 1, nullptr);
            const RootMove& best = masterRoot().rootMoves[0];
            ASSERT_EQ(best.score, outcome > 0 ? mateIn(left) : matedIn(left)) << fenOf(pos);
            makeMove(pos, best.move);
            computeAttackInfo(pos);
        }
        EXPECT_TRUE(inCheck(pos)) << fen;
        EXPECT_EQ(played, plies) << fen;
    }

    Position late = positionFrom("8/8/8/4k3/8/2K5/8/4r3 b - - 0 60");
    late.ply = 90;  // 90 plies since the last capture, and the mate needs more than 10
    searchRootTo(late, 4, nullptr);
    EXPECT_LT(masterRoot().rootMoves[0].score, kMateThreshold);
    EXPECT_GT(masterRoot().rootMoves[0].score, 500);  // still a rook up
}

// "go mate N": with no other limit the search runs until it proves a mate in N moves or fewer,
// and plays its first move; asked for a mate in 2 where the shortest is 3, it never claims
// one (depth-limited here, since otherwise only "stop" would end it).
TEST(Mates, MateLimitStopsOnAMateThatShortAndClaimsNoShorterOne) {
    static const std::regex epd(R"re(^(.*) bm ([^;+#]+)[+#]*; dm 3; id "([^"]+)";)re");
    std::ifstream in(dataPath("mates.epd"));
    int found = 0;
    std::smatch f;
    for (std::string line; std::getline(in, line);) {
        if (!std::regex_search(line, f, epd)) continue;
        SCOPED_TRACE(f[3].str());
        Position pos = positionFrom(f[1]);
        for (const int asked : {3, 2}) {
            prepareSearch(0);
            SearchLimits limits;
            limits.mateMoves = asked;
            limits.depth = asked == 2 ? 7 : 0;
            timeControl.apply(limits);
            Recorder reporter;
            startSearch(pos, &reporter);
            waitIdle();
            const RootMove& best = masterRoot().rootMoves[0];
            if (asked == 3) {
                EXPECT_EQ(best.score, 30000 - 5);
                EXPECT_TRUE(after(pos, best.move, [&] { return lost(pos, 2); })) << best.move;
            }
            for (const auto& [depth, score] : reporter.reports) EXPECT_LE(score, 30000 - 5) << depth;
        }
        ++found;
    }
    EXPECT_EQ(found, 5);
}

// MultiPV: the best three moves each get a line of their own, distinct and in order of score,
// each score within 30 points of a search of that move alone ("searchmoves") to the same depth
// right after. A proven mate does not end a MultiPV search early: the last position is a
// mate in two whose other lines still go to the full depth.
TEST(SearchLines, MultiPvLinesAgreeWithSearchesOfEachMove) {
    constexpr int kDepth = 7;
    const char* fens[] = {
        "r1bqkbnr/pp1ppppp/2n5/2p5/4P3/5N2/PPPP1PPP/RNBQKB1R w KQkq - 2 3",
        "r4rk1/1pp1qppp/p1np1n2/2b1p1B1/2B1P1b1/P1NP1N2/1PP1QPPP/R4RK1 w - - 0 10",
        "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1",
        "2rr3k/pp3pp1/1nnqbN1p/3pN3/2pP4/2P3Q1/PPB4P/R4RK1 w - - 0 1",
    };
    for (const char* fen : fens) {
        SCOPED_TRACE(fen);
        const Position pos = positionFrom(fen);
        prepareSearch(kDepth);
        pool.multiPv = 3;
        startSearch(pos, nullptr);
        waitIdle();
        pool.multiPv = 1;
        RootMove lines[3];
        for (int i = 0; i < 3; ++i) lines[i] = masterRoot().rootMoves[i];
        EXPECT_TRUE(lines[0].move != lines[1].move && lines[1].move != lines[2].move &&
                    lines[0].move != lines[2].move);
        EXPECT_GE(lines[0].score, lines[1].score);
        EXPECT_GE(lines[1].score, lines[2].score);
        EXPECT_EQ(masterRoot().bestMove, lines[0].move);
        for (const RootMove& l : lines) {
            EXPECT_EQ(masterRoot().linePv[&l - lines][0], l.move);
            // The same table: the search of the move alone finds what the lines left.
            SearchLimits limits;
            limits.depth = kDepth;
            timeControl.apply(limits);
            startSearch(pos, nullptr, &l.move, 1);
            waitIdle();
            EXPECT_EQ(masterRoot().rootMoveCount, 1);
            const int alone = masterRoot().rootMoves[0].score;
            if (std::abs(l.score) < 3000) {
                EXPECT_NEAR(alone, l.score, 30) << moveText(pos, l.move);
            }
        }
    }
}

// Stop at once, after a moment, or let a short move time end the search by itself; a stop
// with no search running returns at once. With one, two and four threads; also run under
// ThreadSanitizer, which must stay silent.
class SearchThreads : public ::testing::TestWithParam<int> {};

TEST_P(SearchThreads, StartAndStopManyTimes) {
    const Position pos =
        positionFrom("r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1");
    Recorder reporter;
    for (int i = 0; i < 40; ++i) {
        prepareSearch(0, i % 3 == 2 ? 30 : 1000);
        setThreads(GetParam());
        startSearch(pos, &reporter);
        if (i % 3 == 1) std::this_thread::sleep_for(std::chrono::milliseconds(i % 7));
        if (i % 3 != 2) stopSearch();
        waitIdle();
    }
    EXPECT_EQ(reporter.finished, 40);
    EXPECT_NE(reporter.best, 0u);
    for (int i = 0; i < 100; ++i) stopSearch();
    waitIdle();
    setThreads(1);
}
INSTANTIATE_TEST_SUITE_P(Threads, SearchThreads, ::testing::Values(1, 2, 4));

// A stop that lands while the helpers are being woken is not lost: a search without any limit
// started and stopped at once, again and again, always ends (a lost stop hangs it for good).
TEST(SearchThreadsShared, StopRightAfterStartEndsEverySearch) {
    const Position pos = positionFrom(kQueenUp);
    prepareSearch(0);
    setThreads(4);
    for (int i = 0; i < 300; ++i) {
        startSearch(pos, nullptr);
        stopSearch();
    }
    setThreads(1);
}

// Helper threads search along and share the table: a fixed-depth search with four threads
// still finds the mates of the suite with their exact scores, and node budgets count every
// thread's nodes (100000 nodes over four threads stop well before each has 100000).
TEST(SearchThreadsShared, HelpersKeepResultsSoundAndBudgetsShared) {
    const char* mateInTwo = "2rr3k/pp3pp1/1nnqbN1p/3pN3/2pP4/2P3Q1/PPB4P/R4RK1 w - - 0 1";
    prepareSearch(5);
    setThreads(4);
    Recorder reporter;
    startSearch(positionFrom(mateInTwo), &reporter);
    waitIdle();
    EXPECT_EQ(masterRoot().rootMoves[0].score, 30000 - 3);
    prepareSearch(0, 0xFFFFFFFFu, 100000);
    setThreads(4);
    startSearch(positionFrom(kQueenUp), &reporter);
    waitIdle();
    uint64_t total = 0;
    for (int i = 0; i < 4; ++i) total += pool.threads[i]->stats.total();
    EXPECT_LT(total, 160000u);
    EXPECT_GT(pool.threads[1]->stats.total() + pool.threads[2]->stats.total(), 0u);
    setThreads(1);
}

// The search's signature: the node total of `quarn bench 5`, the same on every run and in
// every build. Any change of search behaviour changes it; update it on purpose and say
// "Bench: <count>" in the commit message.
TEST(Bench, CountIsRepeatableAndMatchesTheRecord) {
    constexpr unsigned long long kBenchSignature = 142994;
    prepareSearch(0);  // the table size `quarn bench` searches with
    EXPECT_EQ(benchNodes(5, nullptr), kBenchSignature);
    EXPECT_EQ(benchNodes(5, nullptr), kBenchSignature);
    const std::string out = runEngine("", {"bench", "5"}).out;
    EXPECT_NE(out.find("Nodes searched: " + std::to_string(kBenchSignature) + "\n"), out.npos);
}

}  // namespace quarn::test
