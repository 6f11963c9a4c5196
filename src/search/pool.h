// The search threads: thread 0 runs every search while the input thread goes on reading.
#pragma once

#include <atomic>

#include "board/position.h"
#include "search/root.h"
#include "search/searchthread.h"

namespace quarn {

constexpr int kMaxThreads = 16;

struct SearchPool {
    RootSearch root;
    SearchThread* threads[kMaxThreads];
    int threadCount;
    std::atomic<uint8_t> stopping;
};

extern SearchPool pool;

// Leaves exactly one search thread, idle.
void initThreads();
// n clamped to 1..16 threads; threads beyond the first only idle along.
void setThreads(int n);
// Searches `pos` on thread 0 with the limits in timeControl; returns at once.
void startSearch(const Position& pos, SearchReporter* reporter);
// Stops every thread and waits until all are idle.
void stopSearch();
// Returns when every search thread is idle.
void waitIdle();
// No console lines, and the log down to warnings.
void setQuiet(bool on);
// Ends the threads (for a clean exit in tests and tools).
void shutdownThreads();

}  // namespace quarn
