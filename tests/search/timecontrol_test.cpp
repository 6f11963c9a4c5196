#include "search/timecontrol.h"

#include "shell/clock.h"
#include "support.h"

namespace quarn::test {

namespace {

// Factors of 1 (a budget computation must put the real ones back), and the book and ponder
// settings of a row.
TimeControl withoutFactors(int outOfBook, bool ponder) {
    TimeControl tc;
    for (float& f : tc.factor) f = 1.0f;
    tc.outOfBookMoves = outOfBook;
    tc.canPonder = ponder;
    return tc;
}

TEST(TimeControl, ClockBudgets) {
    const struct { int movesToGo, timeLeft, increment, reserve, outOfBook; bool ponder;
                   uint32_t budgets[kPhases]; const char* log; } cases[] = {
        {0, 60000, 0, 0, 0, false, {136, 817, 2726, 4089, 10904}, ""},
        {1, 1000, 0, 0, 0, false, {20, 120, 400, 600, 1000}, ""},
        {0, -500, 50, 0, 0, false, {5, 31, 50, 50, 50}, ""},
        // A low clock: a fail-low may take a quarter of it and half the increment, not all of it.
        {0, 900, 100, 0, 0, false, {12, 72, 240, 275, 275}, ""},
        {40, 900, 100, 0, 0, false, {12, 72, 240, 360, 900}, ""},
        // A negative increment: nothing to spend, not a ceiling below zero (read as huge).
        {0, 1000, -5000, 0, 0, false, {0, 0, 0, 0, 0}, ""},
        {0, 60000, 0, 16000, 0, false, {100, 600, 2000, 3000, 8000}, ""},
        {0, 60000, 0, 0, 0, true, {177, 1062, 3542, 5313, 14168}, ""},
        {0, 60000, 0, 0, 1, false, {272, 1635, 5452, 8178, 15000},
         "extra time for out of book: 1.000xbase=1363ms, total=2726ms\n"},
        {0, 60000, 0, 0, -1, false, {545, 3271, 10904, 15000, 15000},
         "extra time for out of book: 3.000xbase=4089ms, total=5452ms\n"},
        {0, 60000, 0, 0, 2, false, {136, 817, 2726, 4089, 10904}, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "row " << &c - cases);
        TimeControl tc = withoutFactors(c.outOfBook, c.ponder);
        tc.reserveMs = c.reserve;
        EXPECT_EQ(logged([&] { tc.setClock(c.movesToGo, c.timeLeft, c.increment); }), c.log);
        for (int i = 0; i < kPhases; ++i) EXPECT_EQ(tc.timeLimitMs[i], c.budgets[i]) << i;
        tc.reset();
        EXPECT_EQ(tc.limitMs, static_cast<int32_t>(c.budgets[2]));
    }
}

TEST(TimeControl, NodeBudgets) {
    const struct { int64_t nodes; int movesToGo, outOfBook; bool ponder; int64_t limits[kPhases];
                   const char* out; } cases[] = {
        {100000, 16, 0, false, {500, 3000, 10000, 15000, 40000}, ""},
        {100, 46, 0, false, {1, 1, 4, 6, 16}, "nodes=2\n"},
        {-5, 1, 0, false, {2, 12, 40, 60, 100}, ""},
        {10000000, 1, 0, false, {200000, 1200000, 4000000, 6000000, 10000000}, "nodes=2000000\n"},
        {27260, 16, 0, true, {177, 1062, 3542, 5313, 14168}, ""},
        {1200000, 16, 1, false, {12000, 72000, 240000, 360000, 960000}, "nodes=120000\n"},
        {5000, 0, 0, false, {5000, 5000, 5000, 5000, 5000}, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "row " << &c - cases);
        TimeControl tc = withoutFactors(c.outOfBook, c.ponder);
        tc.movesToGo = c.movesToGo;
        tc.setNodeLimit(c.nodes);
        tc.phase = 4;
        testing::internal::CaptureStdout();
        EXPECT_EQ(logged([&] { tc.setNodeBudget(); }), "");
        std::fflush(stdout);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out);
        for (int i = 0; i < kPhases; ++i) EXPECT_EQ(tc.nodeLimit[i], c.limits[i]) << i;
        EXPECT_EQ(tc.nodeLimitNow, c.limits[2]);
        EXPECT_EQ(tc.phase, c.movesToGo > 0 ? 2 : 4);
    }
}

using Op = void (*)(TimeControl&, int score);
const Op kFailLow = [](TimeControl& tc, int) { tc.firstMoveFailedLow(); };
const Op kNewBest = [](TimeControl& tc, int) { tc.newBestMoveSearch(); };
const Op kNewBestDone = [](TimeControl& tc, int) { tc.newBestMoveDone(); };
const Op kResolved = [](TimeControl& tc, int) { tc.failLowResolved(); };
const Op kDrop = [](TimeControl& tc, int score) { tc.checkScoreDrop(score); };
const Op kIterationDone = [](TimeControl& tc, int score) { tc.noteIterationScore(score); };

// The clock of 60 s sudden death and node budgets 10..50; lastScore is the score of the last
// completed iteration, score the argument of the drop test and of the iteration end. While
// infinite, no phase gives a time limit and the node budget stays as it was.
TEST(TimeControl, PhaseTransitions) {
    const struct { int phase, depthDone; Op op; int lastScore, score, expected; } cases[] = {
        {2, 1, kFailLow, 0, 0, 4},     {2, 0, kFailLow, 0, 0, 2},     {3, 5, kFailLow, 0, 0, 3},
        {2, 1, kNewBest, 0, 0, 3},     {2, 0, kNewBest, 0, 0, 2},     {4, 5, kNewBest, 0, 0, 4},
        {3, 1, kNewBestDone, 0, 0, 2}, {4, 1, kNewBestDone, 0, 0, 4}, {3, 0, kNewBestDone, 0, 0, 3},
        {4, 1, kResolved, 0, 0, 2},    {3, 1, kResolved, 0, 0, 3},    {4, 0, kResolved, 0, 0, 4},
        {2, 3, kDrop, 200, 149, 4},    {2, 3, kDrop, 200, 150, 2},    {2, 3, kDrop, 200, 189, 2},
        {2, 3, kDrop, 50, 39, 4},      {2, 3, kDrop, 50, 40, 2},      {2, 3, kDrop, 105, 94, 4},
        {2, 3, kDrop, -95, -106, 4},   {2, 3, kDrop, -100, -111, 2},  {2, 2, kDrop, 200, 0, 2},
        {3, 3, kDrop, 200, 0, 4},      {4, 5, kIterationDone, 70, 30, 2},
        {3, 5, kIterationDone, 70, 30, 2},
    };
    TimeControl base;
    base.setClock(0, 60000, 0);
    for (int i = 0; i < kPhases; ++i) base.nodeLimit[i] = int64_t{10} * (i + 1);
    for (const auto& c : cases) {
        for (const uint8_t infinite : {0, 1}) {
            SCOPED_TRACE(testing::Message() << "row " << &c - cases << " infinite " << +infinite);
            TimeControl tc = base;
            tc.infinite = infinite;
            tc.selectPhase(c.phase);
            tc.setDepthDone(c.depthDone);
            tc.lastScore = c.lastScore;
            c.op(tc, c.score);
            EXPECT_EQ(tc.phase, c.expected);
            EXPECT_EQ(tc.limitMs, infinite ? -1 : int32_t(base.timeLimitMs[c.expected]));
            EXPECT_EQ(tc.nodeLimitNow, infinite ? base.nodeLimitNow : base.nodeLimit[c.expected]);
            EXPECT_TRUE(c.op != kIterationDone || (tc.prevScore == 70 && tc.lastScore == 30));
        }
    }
}

// Under a clock the last iteration starts later for a best move that has just changed and
// earlier for one that has held, never past the normal phase's budget; a fixed move time, or a
// search with no limits, keeps phase 1's share whatever the move did.
TEST(TimeControl, IterationCutoffFollowsTheBestMovesHold) {
    SearchLimits clock;
    clock.clockMs = 60000;
    TimeControl tc;
    tc.apply(clock);
    const uint32_t share = tc.timeLimitMs[1];
    const uint32_t changed = tc.iterationCutoffMs(0), fresh = tc.iterationCutoffMs(1),
                   steady = tc.iterationCutoffMs(kSteadyIterations),
                   settled = tc.iterationCutoffMs(kSettledIterations + 5);
    EXPECT_GT(changed, fresh);
    EXPECT_LE(changed, tc.timeLimitMs[kPhaseNormal]);
    EXPECT_GT(fresh, steady);
    EXPECT_GT(steady, settled);
    EXPECT_GT(settled, share);
    // A share near the normal budget: the cutoff stops at that budget.
    tc.timeLimitMs[1] = static_cast<uint32_t>(0.95 * tc.timeLimitMs[kPhaseNormal]);
    EXPECT_EQ(tc.iterationCutoffMs(0), tc.timeLimitMs[kPhaseNormal]);

    SearchLimits fixed = clock;
    fixed.moveTimeMs = 700;
    for (const SearchLimits& limits : {fixed, SearchLimits{}}) {
        TimeControl other;
        other.apply(limits);
        for (const int held : {0, 1, kSteadyIterations, kSettledIterations})
            EXPECT_EQ(other.iterationCutoffMs(held), other.timeLimitMs[1]);
    }
}

// A score that fell since the last search stretches the cutoff (by half at a fall of a pawn or
// more), one that rose shrinks it (by a fifth at most); a last search that stopped in the
// shallow iterations leaves no score to compare with.
TEST(TimeControl, IterationCutoffFollowsTheScoresTrend) {
    SearchLimits clock;
    clock.clockMs = 60000;
    TimeControl tc;
    tc.apply(clock);
    const uint32_t level = tc.iterationCutoffMs(kSettledIterations);
    const auto after = [&tc](int depth, int lastSearch, int now) {
        tc.depthDone = depth;
        tc.lastScore = lastSearch;
        tc.reset();
        tc.lastScore = now;
        return tc.iterationCutoffMs(kSettledIterations);
    };
    EXPECT_EQ(after(12, 30, 30), level);
    EXPECT_NEAR(after(12, 30, -70), level * 1.5, 1);
    EXPECT_NEAR(after(12, 30, -20000), level * 1.5, 1);
    EXPECT_NEAR(after(12, 30, 50), level * 0.9, 1);
    EXPECT_NEAR(after(12, 30, 20000), level * 0.8, 1);
    EXPECT_EQ(after(2, 30, -70), level);
    // A fall never takes the cutoff past the normal phase's budget.
    tc.timeLimitMs[1] = tc.timeLimitMs[kPhaseNormal] * 7 / 10;
    EXPECT_EQ(after(12, 30, -70), tc.timeLimitMs[kPhaseNormal]);
}

// Ponderhit ends the unlimited time, so that phases bring their budgets again; but with a
// single root move and depth 3 running the search must stop instead.
TEST(TimeControl, InfiniteUntilPonderHit) {
    const struct { int moves, depth; bool stops; } hits[] = {{1, 3, true}, {1, 2, false},
                                                             {2, 9, false}};
    for (const auto& h : hits) {
        SCOPED_TRACE(testing::Message() << h.moves << " moves, depth " << h.depth);
        TimeControl tc;
        tc.setClock(0, 60000, 0);
        tc.infinite = 1;
        tc.reset();
        EXPECT_EQ(tc.limitMs, -1);
        bool stops = false;
        EXPECT_EQ(logged([&] { stops = tc.ponderHit(h.moves, h.depth); }),
                  h.stops ? "ponderhit & single move!\n" : "");
        EXPECT_EQ(stops, h.stops);
        EXPECT_EQ(tc.infinite, h.stops ? 1 : 0);
        EXPECT_EQ(tc.limitMs, h.stops ? -1 : 2726);
        tc.setDepthDone(5);
        tc.firstMoveFailedLow();
        EXPECT_EQ(tc.limitMs, h.stops ? -1 : 10904);
    }
}

TEST(TimeControl, OutOfBudget) {
    const struct { int64_t nodeLimit; uint64_t nodes; int limitMs, elapsed; bool out; } cases[] = {
        {1000, 999, -1, 0, false},  {1000, 1000, -1, 0, true}, {0, 1ull << 40, -1, 0, false},
        {0, 0, -1, 3000000, false}, {0, 0, 100, 500, true},    {0, 0, 10000, 500, false},
    };
    for (const auto& c : cases) {
        TimeControl tc;
        tc.nodeLimitNow = c.nodeLimit;
        tc.limitMs = c.limitMs;
        tc.startMs = clockMs() - c.elapsed;
        EXPECT_EQ(tc.outOfBudget(c.nodes), c.out) << "row " << &c - cases;
    }
}

}  // namespace

}  // namespace quarn::test
