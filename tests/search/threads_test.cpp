// Starting and stopping searches from the input thread, many times and at awkward moments.
// Also built with ThreadSanitizer (make test-tsan), which must stay silent.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "search/pool.h"
#include "search/timecontrol.h"
#include "search/tt.h"
#include "support.h"

namespace quarn::test {

namespace {

struct CountingReporter : SearchReporter {
    void reportCurrentMove(uint32_t, uint32_t, Move) override {}
    void reportPv(uint32_t, int, Move) override {}
    void reportFinished(uint32_t, int, Move best) override { ++finished; lastBest = best; }
    std::atomic<int> finished{0};
    std::atomic<Move> lastBest{0};
};

// An idle engine whose next search stops after `ms` milliseconds or `nodes` nodes (0: none).
void prepareEngine(uint32_t ms, int64_t nodes) {
    tt.resize(4096);
    initThreads();
    setQuiet(true);
    timeControl.infinite = 0;
    timeControl.depthLimit = 0;
    timeControl.setNodeLimit(nodes);
    timeControl.setMoveTime(ms);
}

}  // namespace

// Stop at once, after a moment, or let a short move time end the search by itself; a stop
// with no search running returns at once.
TEST(SearchThreads, StartAndStopManyTimes) {
    const Position pos =
        positionFrom("r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1");
    CountingReporter reporter;
    for (int i = 0; i < 40; ++i) {
        prepareEngine(i % 3 == 2 ? 30 : 1000, 0);
        startSearch(pos, &reporter);
        if (i % 3 == 1) std::this_thread::sleep_for(std::chrono::milliseconds(i % 7));
        if (i % 3 != 2) stopSearch();
        waitIdle();
    }
    EXPECT_EQ(reporter.finished.load(), 40);
    EXPECT_NE(reporter.lastBest.load(), 0u);
    for (int i = 0; i < 100; ++i) stopSearch();
    waitIdle();
}

// The limit is tested every 256 full-width nodes, so the total overshoots a little.
TEST(SearchThreads, NodeLimitEndsTheSearch) {
    prepareEngine(0xFFFFFFFFu, 20000);
    startSearch(positionFrom("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1"), nullptr);
    waitIdle();
    EXPECT_GE(pool.threads[0]->stats.total(), 20000u);
    EXPECT_LT(pool.threads[0]->stats.total(), 60000u);
    timeControl.setNodeLimit(0);
}

}  // namespace quarn::test
