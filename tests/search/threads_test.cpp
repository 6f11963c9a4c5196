// Starting and stopping searches from the input thread, many times and at awkward moments.
// Also built with ThreadSanitizer (make test-tsan), which must stay silent.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "board/fen.h"
#include "search/pool.h"
#include "search/timecontrol.h"
#include "search/tt.h"
#include "support.h"

namespace quarn::test {

namespace {

class CountingReporter : public SearchReporter {
public:
    void reportCurrentMove(uint32_t, uint32_t, Move) override {}
    void reportPv(uint32_t, int, Move) override {}
    void reportFinished(uint32_t, int, Move best) override {
        ++finished;
        lastBest = best;
    }
    std::atomic<int> finished{0};
    std::atomic<Move> lastBest{0};
};

void prepareEngine() {
    static bool ready = false;
    if (ready) return;
    tt.resize(4096);
    initThreads();
    setQuiet(true);
    ready = true;
}

}  // namespace

TEST(SearchThreads, StartAndStopManyTimes) {
    prepareEngine();
    const Position pos = positionFrom("r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1");
    CountingReporter reporter;
    constexpr int kRounds = 40;
    for (int i = 0; i < kRounds; ++i) {
        timeControl.infinite = 0;
        timeControl.depthLimit = 0;
        timeControl.setNodeLimit(0);
        timeControl.setMoveTime(i % 3 == 2 ? 30 : 1000);
        startSearch(pos, &reporter);
        // Stop at once, after a moment, or let a tiny node budget end it by itself.
        if (i % 3 == 1) std::this_thread::sleep_for(std::chrono::milliseconds(i % 7));
        if (i % 3 != 2) stopSearch();
        waitIdle();
    }
    EXPECT_EQ(reporter.finished.load(), kRounds);
    EXPECT_NE(reporter.lastBest.load(), 0u);
}

TEST(SearchThreads, StopWithoutSearchReturnsAtOnce) {
    prepareEngine();
    for (int i = 0; i < 100; ++i) stopSearch();
    waitIdle();
}

TEST(SearchThreads, NodeLimitEndsTheSearch) {
    prepareEngine();
    const Position pos = positionFrom("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1");
    timeControl.infinite = 0;
    timeControl.depthLimit = 0;
    timeControl.setMoveTime(0xFFFFFFFFu);
    timeControl.setNodeLimit(20000);
    startSearch(pos, nullptr);
    waitIdle();
    // The limit is tested every 256 full-width nodes, so the total overshoots a little.
    EXPECT_GE(pool.threads[0]->stats.total(), 20000u);
    EXPECT_LT(pool.threads[0]->stats.total(), 60000u);
    timeControl.setNodeLimit(0);
}

}  // namespace quarn::test
