// The search threads: thread 0 runs every search while the input thread goes on reading.
#pragma once

#include <atomic>

#include "board/position.h"
#include "search/root.h"
#include "search/searchthread.h"

namespace quarn {

constexpr int kMaxThreads = 64;

struct SearchPool {
    RootSearch roots[kMaxThreads];  // roots[i] is thread i's; roots[0] the master's
    SearchThread* threads[kMaxThreads];
    int threadCount;
    std::atomic<uint8_t> stopping;
    // Set from startSearch until the search has reported; read by the interrupt handler.
    std::atomic<bool> running;
    // Whether Ctrl-C may stop the search running (one started at the console); set by the
    // caller before startSearch.
    std::atomic<bool> interruptible;
    // Set while no search runs, read by the searches: the lines the master shows (MultiPV),
    // and the root moves a "go searchmoves" keeps to (none listed: all).
    int multiPv;
    Move searchMoves[kMaxMoves];
    int searchMoveCount;
};

extern SearchPool pool;

// The master thread's root search: the one that reports and answers.
inline RootSearch& masterRoot() { return pool.roots[0]; }

// Leaves exactly one search thread, idle.
void initThreads();
// n clamped to 1..64 threads: thread 0 is the master, which decides when a search ends and
// answers; the others search the same position along with it, sharing the table. Waits until
// no search runs.
void setThreads(int n);
// Searches `pos` on thread 0 (and the helpers) with the limits in timeControl, among the
// `searchMoveCount` moves listed (none: all legal moves); returns at once.
void startSearch(const Position& pos, SearchReporter* reporter, const Move* searchMoves = nullptr,
                 int searchMoveCount = 0);
// Stops every thread and waits until all are idle.
void stopSearch();
// Asks the running search to stop as "stop" does, without waiting: only atomic stores, so a
// signal handler may call it.
void interruptSearch();
// Returns when every search thread is idle.
void waitIdle();
// The nodes the master counts against a node budget: its own exact count and the helpers'
// published ones.
inline uint64_t budgetNodes(const SearchThread& master) {
    uint64_t nodes = master.stats.total();
    for (int i = 1; i < pool.threadCount; ++i) nodes += publishedNodes(*pool.threads[i]);
    return nodes;
}
// The published node counts of all threads.
inline uint64_t publishedTotal() {
    uint64_t nodes = 0;
    for (int i = 0; i < pool.threadCount; ++i) nodes += publishedNodes(*pool.threads[i]);
    return nodes;
}
// Where every search from now on sends its console lines; none (the protocol, the benchmark)
// turns them off.
void setSearchLines(SearchLines* lines);
// Forgets what the searches learned about quiet moves (a new game, or a search that must not
// depend on the ones before it). Waits until every thread is idle.
void clearSearchHistory();
// Ends the threads (for a clean exit in tests and tools).
void shutdownThreads();

}  // namespace quarn
