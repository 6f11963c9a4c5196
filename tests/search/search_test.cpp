// Search rules, each on a position where the rule alone decides the result.
#include "search/search.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
#include <sstream>
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

// Thread 0, idle, holding `fen` with the space-separated `moves` played, ready for search().
SearchThread& nodeSearcher(const char* fen, const char* moves = "") {
    prepareEngine(0);
    SearchThread& t = *pool.threads[0];
    copyPosition(t.pos, positionFrom(fen));
    std::istringstream in(moves);
    for (std::string text; in >> text;) {
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

TEST(SearchPruning, NoNullMoveWithOnlyKnightsAndPawns) {
    searchRootTo("4k3/pppn1ppp/4pn2/8/3P4/2N1PN2/PPP2PPP/4K3 w - - 0 1", 6, nullptr);
    EXPECT_EQ(pool.threads[0]->stats.nullTries, 0u);
    searchRootTo("4k3/pppb1ppp/4pb2/8/3P4/2B1PB2/PPP2PPP/4K3 w - - 0 1", 6, nullptr);
    EXPECT_GT(pool.threads[0]->stats.nullTries, 0u);  // the same with bishops
}

// A deep exact entry with a wrong score: a cut node takes it, a PV node searches.
TEST(SearchTable, PvNodeTakesNoCutoffFromAnExactEntry) {
    for (const uint32_t flags : {uint32_t{NODE_PV}, uint32_t{NODE_CUT}}) {
        SearchThread& t = nodeSearcher(kQueenUp);
        tt.store(t.pos, TtEntry{0, 0, -777, 30, int16_t(evaluate(*t.eval)), 0, BOUND_EXACT});
        const int score = search(t, 1, 2, -kWide, kWide, flags);
        EXPECT_TRUE(flags == NODE_PV ? score > 400 : score == -777) << score;
    }
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
        searchRootTo(c.fen, c.depth, &r);
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

// The last console line: "  [5/7]     0.011    2481       37  text" (depth, seldepth, time,
// nodes, score, reason).
TEST(SearchConsole, StopReasons) {
    const struct { const char* input; int minDepth, maxDepth; const char* reason; } cases[] = {
        {"md 5\ng\n", 5, 5, "ok/"},
        {"fen 7k/8/8/8/8/1r6/8/K7 w - - 0 1\nmd 10\ng\n", 2, 2, "single move"},
        // Mate in two: seen by depth 3, and final once its 3 plies <= depth + 1.
        {"fen 2rr3k/pp3pp1/1nnqbN1p/3pN3/2pP4/2P3Q1/PPB4P/R4RK1 w - - 0 1\nmd 20\ng\n", 2, 3,
         "(optimal)"},
    };
    const std::regex line(R"(\[(\d+)/\d+\]\s+\S+\s+\S+\s+\S+ +(.*)\n)");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.input);
        const std::string out = runEngine(std::string("mt 1000\n") + c.input).out;
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
