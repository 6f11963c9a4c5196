// Search rules, each on a position where the rule alone decides the result: the draw rules, mate
// and stalemate scores, the null move's material condition, no table cut-off at PV nodes, and
// the root's stop rules and aspiration window.
#include "search/search.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include "board/movegen.h"
#include "board/movetext.h"
#include "search/pool.h"
#include "search/timecontrol.h"
#include "search/tt.h"
#include "support.h"

namespace quarn::test {

namespace {

constexpr int kWide = 30000;
// White a queen up: no search of it comes near a draw score.
constexpr const char* kQueenUp = "rnb1kbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1";

// Depth and score of every new best root move, then of the finished search.
struct Recorder : SearchReporter {
    void reportCurrentMove(uint32_t, uint32_t, Move) override {}
    void reportPv(uint32_t d, int s, Move) override { reports.push_back({int(d), s}); }
    void reportFinished(uint32_t d, int s, Move) override { reports.push_back({int(d), s}); }
    std::vector<std::pair<int, int>> reports;
};

// An idle engine with an empty table and no limit but `depth`.
void prepareEngine(int depth) {
    tt.resize(16384);
    initThreads();
    setQuiet(true);
    tt.clear();
    timeControl.infinite = 0;
    timeControl.depthLimit = depth;
    timeControl.setNodeLimit(0);
    timeControl.setMoveTime(0xFFFFFFFFu);
    timeControl.reset();
}

void searchRootTo(const char* fen, int depth, Recorder* recorder) {
    prepareEngine(depth);
    startSearch(positionFrom(fen), recorder);
    waitIdle();
}

// Thread 0, idle, holding `pos` and ready for a direct call of search.
SearchThread& nodeSearcher(const Position& pos) {
    prepareEngine(0);
    SearchThread& t = *pool.threads[0];
    copyPosition(t.pos, pos);
    computeAttackInfo(t.pos);
    t.stats = SearchStats{};
    std::memset(t.killers, 0, sizeof t.killers);
    t.maxPly = 0;
    t.stopFlag.store(0);
    return t;
}

Position played(const char* fen, const std::vector<const char*>& moves) {
    Position pos = positionFrom(fen);
    for (const char* text : moves) {
        const Move m = parseMove(pos, text);
        EXPECT_NE(m, 0u) << text;
        if (m) makeMove(pos, m);
    }
    return pos;
}

}  // namespace

TEST(SearchDraws, FiftyMoveRuleComesBeforeTheTable) {
    // Qxa2 resets the count and wins the rook; with 100 plies gone nothing is searched.
    Position pos = positionFrom("4k3/8/8/8/8/8/r7/Q3K3 w - - 0 1");
    for (const uint32_t plies : {99u, 100u}) {
        pos.ply = plies;
        SearchThread& t = nodeSearcher(pos);
        const int score = search(t, 1, 2, -kWide, kWide, NODE_PV);
        EXPECT_EQ(t.stats.ttProbes == 0, plies == 100);
        EXPECT_TRUE(plies == 100 ? score == 0 : score > 400) << score;
    }
}

TEST(SearchDraws, InsufficientMaterialBeforeTheTable) {
    const struct { const char* fen; bool drawn; } cases[] = {
        {"8/8/3k4/8/8/2b5/8/3NK3 w - - 0 1", true},   // bishop against knight
        {"8/8/3k4/8/8/2b5/8/3BK3 w - - 0 1", true},   // bishop against bishop
        {"7k/5K2/5N2/4N3/8/8/8/8 w - - 0 1", false},  // two knights (and Ng6 mates)
        {"8/8/3k4/8/8/8/8/2BNK3 w - - 0 1", false},   // bishop and knight
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fen);
        SearchThread& t = nodeSearcher(positionFrom(c.fen));
        const int score = search(t, 1, 1, -kWide, kWide, NODE_PV);
        EXPECT_EQ(t.stats.ttProbes == 0, c.drawn);
        EXPECT_EQ(score == 0, c.drawn) << score;
    }
}

TEST(SearchDraws, RepetitionNearTheRootNeedsASecondOne) {
    const struct { int cycles, ply; bool drawn; } cases[] = {
        {1, 2, false}, {1, 3, false}, {1, 4, true}, {1, 9, true}, {2, 2, true}, {2, 3, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.cycles << " knight cycles, ply " << c.ply);
        std::vector<const char*> moves;
        for (int i = 0; i < c.cycles; ++i) moves.insert(moves.end(), {"Nf3", "Nf6", "Ng1", "Ng8"});
        SearchThread& t = nodeSearcher(played(kQueenUp, moves));
        const int score = search(t, c.ply, 1, -kWide, kWide, NODE_PV);
        EXPECT_EQ(t.stats.ttProbes == 0, c.drawn);
        EXPECT_EQ(score == 0, c.drawn) << score;
    }
}

TEST(SearchDraws, BackAndForth) {
    constexpr const char* kRooks = "r5k1/5ppp/8/8/R7/8/5PPP/6K1 w - - 0 1";
    constexpr const char* kCastle = "r3k2r/pppppppp/8/8/8/8/PPPPPPPP/RN2K2R w KQkq - 0 1";
    // undo: the move taking back the opponent's move in between, or 0 when the rule stays out.
    const struct {
        const char* fen;
        std::vector<const char*> moves;
        int ply, beta;
        Move undo;
    } cases[] = {
        {kQueenUp, {"Nf3", "Nf6", "Ng1"}, 3, 0, makeMoveWord(45, 62, 0)},
        {kQueenUp, {"Nf3", "Nf6", "Ng1"}, 3, 1, 0},  // only for beta <= 0
        {kQueenUp, {"Nf3", "Nf6", "Ng1"}, 2, 0, 0},  // only from ply 3
        {kRooks, {"Rb4", "Ra7", "Ra4"}, 3, 0, makeMoveWord(48, 56, 0)},
        {kRooks, {"Rb4", "Ra2", "Ra4"}, 3, 0, 0},    // the rook passed the vacated a4
        {kCastle, {"Nc3", "O-O", "Nb1"}, 3, 0, 0},   // castling
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.fen << " ply " << c.ply << " beta " << c.beta);
        SearchThread& t = nodeSearcher(played(c.fen, c.moves));
        const int score = search(t, c.ply, 1, c.beta - 1, c.beta, NODE_CUT | NULL_ALLOWED);
        EXPECT_EQ(t.stats.ttProbes == 0, c.undo != 0);
        EXPECT_TRUE(!c.undo || (score == 0 && t.pv[c.ply][0] == c.undo)) << score;
    }
}

TEST(SearchScores, MateAndStalemateByPly) {
    constexpr const char* kMated = "rnb1kbnr/pppp1ppp/8/4p3/6Pq/5P2/PPPPP2P/RNBQKBNR w KQkq - 1 3";
    constexpr const char* kStalemate = "7k/5Q2/6K1/8/8/8/8/8 b - - 0 1";
    // Depth 0 asks the quiescence search, which must score them the same.
    const struct { const char* fen; int ply, depth, score; } cases[] = {
        {kMated, 1, 1, 1 - 30000}, {kMated, 7, 3, 7 - 30000}, {kMated, 5, 0, 5 - 30000},
        {kStalemate, 4, 1, 0},     {kStalemate, 3, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.fen << " ply " << c.ply << " depth " << c.depth);
        SearchThread& t = nodeSearcher(positionFrom(c.fen));
        EXPECT_EQ(search(t, c.ply, c.depth, -kWide, kWide, NODE_PV), c.score);
    }
}

TEST(SearchPruning, NoNullMoveWithOnlyKnightsAndPawns) {
    searchRootTo("4k3/pppn1ppp/4pn2/8/3P4/2N1PN2/PPP2PPP/4K3 w - - 0 1", 6, nullptr);
    EXPECT_EQ(pool.threads[0]->stats.nullTries, 0u);
    searchRootTo("4k3/pppb1ppp/4pb2/8/3P4/2B1PB2/PPP2PPP/4K3 w - - 0 1", 6, nullptr);
    EXPECT_GT(pool.threads[0]->stats.nullTries, 0u);  // the same with bishops
}

TEST(SearchTable, PvNodeTakesNoCutoffFromAnExactEntry) {
    constexpr int kWrong = -777;
    for (const uint32_t flags : {uint32_t{NODE_PV}, uint32_t{NODE_CUT}}) {
        SearchThread& t = nodeSearcher(positionFrom(kQueenUp));
        TtEntry e{};
        e.score = kWrong;
        e.depth = 30;
        e.staticEval = static_cast<int16_t>(evaluate(*t.eval));
        e.bound = BOUND_EXACT;
        tt.store(t.pos, e);
        const int score = search(t, 1, 2, -kWide, kWide, flags);
        // The entry is there: a non-PV node takes its score.
        EXPECT_TRUE(flags == NODE_PV ? score > 400 : score == kWrong) << score;
    }
}

TEST(SearchRoot, AspirationStaysWithinMateBoundsAndMatesEndTheSearch) {
    // Mates for and against the side to move are found beyond depth 3, where the windows open
    // around the last score. The second position is the first after its key move Rxh7+ (a mate
    // in four): mated in three at best, whichever of its two replies is played. The third, a
    // pawn race, swings widely between iterations.
    const struct { const char* fen; int depth; bool mate; int score; } cases[] = {
        {"r3r2k/2R3pp/pp1q1p2/8/3P3R/7P/PP3PP1/3Q2K1 w - - 0 1", 9, true, 30000 - 7},
        {"r3r2k/2R3pR/pp1q1p2/8/3P4/7P/PP3PP1/3Q2K1 b - - 0 1", 9, true, 6 - 30000},
        {"8/7p/5k2/5p2/p1p2P2/Pr1pPK2/1P1R3P/8 b - - 0 1", 8, false, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fen);
        Recorder r;
        searchRootTo(c.fen, c.depth, &r);
        for (const auto& [depth, score] : r.reports) EXPECT_LE(std::abs(score), kWide) << depth;
        if (!c.mate || r.reports.empty()) continue;
        EXPECT_EQ(r.reports.back().second, c.score);
        // The first iteration whose mate lies within its depth + 1 plies is the last one.
        int optimal = 0;
        for (size_t i = 0; i < r.reports.size() && !optimal; ++i) {
            const auto [depth, score] = r.reports[i];
            const bool last = i + 1 == r.reports.size() || r.reports[i + 1].first != depth;
            if (last && kWide - std::abs(score) <= depth + 1) optimal = depth;
        }
        EXPECT_EQ(r.reports.back().first, optimal);
    }
}

TEST(SearchConsole, StopReasons) {
    const struct { std::string input; int minDepth, maxDepth; const char* reason; } cases[] = {
        {"md 5\ng\n", 5, 5, "ok/"},
        {"fen 7k/8/8/8/8/1r6/8/K7 w - - 0 1\nmd 10\ng\n", 2, 2, "single move"},
        // Mate in two: seen by depth 3, and final once its 3 plies <= depth + 1.
        {"fen 2rr3k/pp3pp1/1nnqbN1p/3pN3/2pP4/2P3Q1/PPB4P/R4RK1 w - - 0 1\nmd 20\ng\n", 2, 3,
         "(optimal)"},
    };
    // "  [5/7]     0.011    2481       37  text": depth, seldepth, time, nodes, score, text.
    const std::regex line(R"(\[(\d+)/\d+\]\s+\S+\s+\S+\s+\S+ +(.*)\n)");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.input);
        const std::string out = runEngine("mt 1000\n" + c.input).out;
        std::smatch last;
        for (std::sregex_iterator it(out.begin(), out.end(), line), end; it != end; ++it)
            last = *it;
        ASSERT_FALSE(last.empty());
        EXPECT_GE(std::stoi(last[1]), c.minDepth);
        EXPECT_LE(std::stoi(last[1]), c.maxDepth);
        EXPECT_EQ(last[2].str().rfind(c.reason, 0), 0u) << last[2];
    }
}

}  // namespace quarn::test
