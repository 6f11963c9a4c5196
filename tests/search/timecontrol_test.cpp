#include "search/timecontrol.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "shell/clock.h"
#include "shell/log.h"

namespace quarn::test {

namespace {

// Sends the log to a scratch file for the life of the object and gives back what was written;
// the previous stream and level come back at the end.
class LogCapture {
public:
    LogCapture() : saved_(logStream()), level_(logLevel()), file_(std::tmpfile()) {
        setLogStream(file_);
        setLogLevel(kLogNormal);
    }
    ~LogCapture() {
        setLogStream(saved_);
        setLogLevel(level_);
        std::fclose(file_);
    }
    std::string text() {
        std::string s;
        std::rewind(file_);
        for (int c; (c = std::fgetc(file_)) != EOF;) s += static_cast<char>(c);
        return s;
    }

private:
    FILE* saved_;
    int level_;
    FILE* file_;
};

void scrambleFactors(TimeControl& tc) {
    for (float& f : tc.factor) f = 1.0f;
}

TEST(TimeControl, ClockBudgets) {
    const struct {
        int movesToGo, timeLeft, increment, reserve, outOfBook;
        bool ponder;
        uint32_t budgets[kPhases];
        const char* log;
    } cases[] = {
        {0, 60000, 0, 0, 0, false, {136, 817, 2726, 4089, 10904}, ""},
        {1, 1000, 0, 0, 0, false, {20, 120, 400, 600, 1000}, ""},
        {0, -500, 50, 0, 0, false, {5, 31, 100, 100, 100}, ""},
        {0, 1000, 0, 2000, 0, false, {0, 1, 4, 6, 16}, ""},
        {0, 60000, 0, 16000, 0, false, {100, 600, 2000, 3000, 8000}, ""},
        {38, 40000, 500, 0, 0, false, {145, 871, 2904, 4356, 11616}, ""},
        {0, 60000, 0, 0, 0, true, {177, 1062, 3542, 5313, 14168}, ""},
        {0, 60000, 0, 0, 1, false, {272, 1635, 5452, 8178, 21808},
         "extra time for out of book: 1.000xbase=1363ms, total=2726ms\n"},
        {1, 1000, 0, 0, 1, false, {40, 240, 800, 1000, 1000},
         "extra time for out of book: 1.000xbase=200ms, total=400ms\n"},
        {0, 60000, 0, 0, -1, false, {545, 3271, 10904, 16356, 43616},
         "extra time for out of book: 3.000xbase=4089ms, total=5452ms\n"},
        {0, 60000, 0, 0, 2, false, {136, 817, 2726, 4089, 10904}, ""},
        {0, 60000, 0, 0, 7, false, {136, 817, 2726, 4089, 10904}, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.movesToGo << "/" << c.timeLeft << "+" << c.increment
                                        << " reserve " << c.reserve << " book " << c.outOfBook
                                        << " ponder " << c.ponder);
        TimeControl tc;
        tc.reserveMs = c.reserve;
        tc.outOfBookMoves = c.outOfBook;
        tc.canPonder = c.ponder;
        scrambleFactors(tc);
        LogCapture log;
        tc.setClock(c.movesToGo, c.timeLeft, c.increment);
        for (int i = 0; i < kPhases; ++i) EXPECT_EQ(tc.timeLimitMs[i], c.budgets[i]) << i;
        EXPECT_EQ(log.text(), c.log);
        EXPECT_EQ(tc.factor[1], 0.6f);
        EXPECT_EQ(tc.timeLeftMs, c.timeLeft);
        tc.reset();
        EXPECT_EQ(tc.limitMs, static_cast<int32_t>(c.budgets[2]));
    }
}

TEST(TimeControl, NodeBudgets) {
    const struct {
        int64_t nodes;
        int movesToGo, outOfBook;
        bool ponder;
        int64_t limits[kPhases];
        const char* out;
    } cases[] = {
        {100000, 16, 0, false, {500, 3000, 10000, 15000, 40000}, ""},
        {1000, 96, 0, false, {1, 6, 20, 30, 80}, "nodes=10\n"},
        {100, 46, 0, false, {1, 1, 4, 6, 16}, "nodes=2\n"},
        {-5, 1, 0, false, {2, 12, 40, 60, 100}, ""},
        {10000000, 1, 0, false, {200000, 1200000, 4000000, 6000000, 10000000}, "nodes=2000000\n"},
        {27260, 16, 0, true, {177, 1062, 3542, 5313, 14168}, ""},
        {100000, 16, 1, false, {1000, 6000, 20000, 30000, 80000}, ""},
        {1200000, 16, 1, false, {12000, 72000, 240000, 360000, 960000}, "nodes=120000\n"},
        {5000, 0, 0, false, {5000, 5000, 5000, 5000, 5000}, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.nodes << " nodes, " << c.movesToGo << " moves, book "
                                        << c.outOfBook << " ponder " << c.ponder);
        TimeControl tc;
        tc.outOfBookMoves = c.outOfBook;
        tc.canPonder = c.ponder;
        tc.movesToGo = c.movesToGo;
        tc.setNodeLimit(c.nodes);
        scrambleFactors(tc);
        tc.phase = 4;
        LogCapture log;
        testing::internal::CaptureStdout();
        tc.setNodeBudget();
        std::fflush(stdout);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out);
        EXPECT_EQ(log.text(), "");
        for (int i = 0; i < kPhases; ++i) EXPECT_EQ(tc.nodeLimit[i], c.limits[i]) << i;
        EXPECT_EQ(tc.nodeLimitNow, c.limits[2]);
        EXPECT_EQ(tc.phase, c.movesToGo > 0 ? 2 : 4);
    }
}

enum Op { FAIL_LOW, NEW_BEST, NEW_BEST_DONE, RESOLVED, DROP, ITERATION_DONE };

void apply(TimeControl& tc, Op op, int score) {
    switch (op) {
        case FAIL_LOW: return tc.firstMoveFailedLow();
        case NEW_BEST: return tc.newBestMoveSearch();
        case NEW_BEST_DONE: return tc.newBestMoveDone();
        case RESOLVED: return tc.failLowResolved();
        case DROP: return tc.checkScoreDrop(score);
        case ITERATION_DONE: return tc.noteIterationScore(score);
    }
}

// Budgets of the sudden-death clock of 60 s, node budgets 10..50; lastScore is the score of
// the last completed iteration, score the argument of the drop test and of the iteration end.
TEST(TimeControl, PhaseTransitions) {
    const struct {
        int phase, depthDone;
        Op op;
        int lastScore, score, expected;
    } cases[] = {
        {2, 1, FAIL_LOW, 0, 0, 4},        {2, 0, FAIL_LOW, 0, 0, 2},
        {3, 5, FAIL_LOW, 0, 0, 3},        {2, 1, NEW_BEST, 0, 0, 3},
        {2, 0, NEW_BEST, 0, 0, 2},        {4, 5, NEW_BEST, 0, 0, 4},
        {3, 1, NEW_BEST_DONE, 0, 0, 2},   {4, 1, NEW_BEST_DONE, 0, 0, 4},
        {3, 0, NEW_BEST_DONE, 0, 0, 3},   {4, 1, RESOLVED, 0, 0, 2},
        {3, 1, RESOLVED, 0, 0, 3},        {4, 0, RESOLVED, 0, 0, 4},
        {2, 3, DROP, 200, 149, 4},        {2, 3, DROP, 200, 150, 2},
        {2, 3, DROP, 200, 189, 2},        {2, 3, DROP, 50, 39, 4},
        {2, 3, DROP, 50, 40, 2},          {2, 3, DROP, 105, 94, 4},
        {2, 3, DROP, -95, -106, 4},       {2, 3, DROP, -100, -111, 2},
        {2, 2, DROP, 200, 0, 2},          {3, 3, DROP, 200, 0, 4},
        {4, 5, ITERATION_DONE, 70, 30, 2}, {3, 5, ITERATION_DONE, 70, 30, 2},
    };
    TimeControl base;
    base.setClock(0, 60000, 0);
    for (int i = 0; i < kPhases; ++i) base.nodeLimit[i] = 10 * (i + 1);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "phase " << c.phase << " depth " << c.depthDone
                                        << " op " << c.op << " " << c.lastScore << "->" << c.score);
        TimeControl tc = base;
        tc.selectPhase(c.phase);
        tc.setDepthDone(c.depthDone);
        tc.lastScore = c.lastScore;
        apply(tc, c.op, c.score);
        EXPECT_EQ(tc.phase, c.expected);
        EXPECT_EQ(tc.limitMs, static_cast<int32_t>(base.timeLimitMs[c.expected]));
        EXPECT_EQ(tc.nodeLimitNow, base.nodeLimit[c.expected]);
        if (c.op == ITERATION_DONE) {
            EXPECT_EQ(tc.prevScore, c.lastScore);
            EXPECT_EQ(tc.lastScore, c.score);
        }
    }
}

// While infinite, every phase change leaves the time unlimited; ponderhit puts the budget of
// the phase then in force.
TEST(TimeControl, InfiniteUntilPonderHit) {
    TimeControl tc;
    tc.setClock(0, 60000, 0);
    tc.infinite = 1;
    tc.reset();
    EXPECT_EQ(tc.limitMs, -1);
    tc.setDepthDone(5);
    tc.lastScore = 200;
    const struct {
        Op op;
        int phase;
    } steps[] = {
        {FAIL_LOW, 4}, {RESOLVED, 2}, {NEW_BEST, 3}, {NEW_BEST_DONE, 2},
        {DROP, 4},     {ITERATION_DONE, 2}, {FAIL_LOW, 4},
    };
    for (const auto& s : steps) {
        apply(tc, s.op, 0);
        EXPECT_EQ(tc.phase, s.phase);
        EXPECT_EQ(tc.limitMs, -1);
    }
    EXPECT_FALSE(tc.ponderHit(20, 5));
    EXPECT_EQ(tc.infinite, 0);
    EXPECT_EQ(tc.limitMs, 10904);
    tc.failLowResolved();
    EXPECT_EQ(tc.limitMs, 2726);
}

TEST(TimeControl, PonderHitWithOneRootMove) {
    const struct {
        int moves, depth;
        bool stops;
    } cases[] = {{1, 3, true}, {1, 9, true}, {1, 2, false}, {2, 9, false}};
    for (const auto& c : cases) {
        TimeControl tc;
        tc.setClock(0, 60000, 0);
        tc.infinite = 1;
        tc.reset();
        LogCapture log;
        EXPECT_EQ(tc.ponderHit(c.moves, c.depth), c.stops) << c.moves << " " << c.depth;
        EXPECT_EQ(log.text(), c.stops ? "ponderhit & single move!\n" : "");
        EXPECT_EQ(tc.infinite, c.stops ? 1 : 0);
        EXPECT_EQ(tc.limitMs, c.stops ? -1 : 2726);
    }
}

TEST(TimeControl, OutOfBudget) {
    const struct {
        int64_t nodeLimit;
        uint64_t nodes;
        int32_t limitMs;
        uint32_t elapsed;
        bool out;
    } cases[] = {
        {1000, 999, -1, 0, false},  {1000, 1000, -1, 0, true},  {0, 1ull << 40, -1, 0, false},
        {0, 0, -1, 3000000, false}, {0, 0, 100, 500, true},     {0, 0, 10000, 500, false},
        {1000, 10, 100, 500, true}, {1000, 1000, 10000, 0, true},
    };
    for (const auto& c : cases) {
        TimeControl tc;
        tc.nodeLimitNow = c.nodeLimit;
        tc.limitMs = c.limitMs;
        tc.startMs = clockMs() - c.elapsed;
        EXPECT_EQ(tc.outOfBudget(c.nodes), c.out)
            << c.nodeLimit << " " << c.nodes << " " << c.limitMs << " " << c.elapsed;
    }
}

}  // namespace

}  // namespace quarn::test
