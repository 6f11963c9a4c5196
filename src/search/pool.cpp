#include "search/pool.h"

#include <cstring>
#include <new>

#include "search/search.h"
#include "search/timecontrol.h"
#include "search/tt.h"
#include "shell/clock.h"

namespace quarn {

SearchPool pool;

namespace {

void wake(SearchThread& t) {
    std::lock_guard<std::mutex> lock(t.signalMutex);
    t.stopRequested.store(0);
    if (t.busy) return;  // already running: nothing to release twice
    t.busy = true;
    t.woken = true;
    t.signal.notify_all();
}

void waitUntilIdle(SearchThread& t) {
    std::unique_lock<std::mutex> lock(t.signalMutex);
    t.signal.wait(lock, [&] { return !t.busy; });
}

void stopThread(SearchThread& t) {
    t.stopRequested.store(1);
    t.requestStop();
}

// The thread's own preparations when it wakes. Its stop flag is the waker's to clear, before
// the wake: a stop that lands between the wake and this point must not be lost.
void clearForSearch(SearchThread& t) {
    std::memset(&t.stats, 0, sizeof t.stats);
    t.nextLimitCheck = 0;
    t.publishNodes();
    std::memset(t.killers, 0, sizeof t.killers);
    for (int& e : t.staticEvals) e = kNoStaticEval;  // the root's is not kept
    std::memset(t.checkedAt, 0, sizeof t.checkedAt);
    t.maxPly = 0;
    Tt::resetCounters();  // this thread's
    t.savedState = t.pos.state;
    t.savedFiftyStart = t.pos.state.fiftyStart;
}

// A helper's root record, ready for a search of the master's position.
void prepareHelper(int index) {
    SearchThread& h = *pool.threads[index];
    h.nodesPublished.store(0);  // the last search's count goes before the master reports
    h.stopFlag.store(pool.threads[0]->stopFlag.load());  // a stop may have come already
    h.nodeCap = 0;
    for (const int64_t limit : timeControl.nodeLimit)
        if (limit > 0 && static_cast<uint64_t>(limit) > h.nodeCap) h.nodeCap = static_cast<uint64_t>(limit);
    copyPosition(h.pos, pool.threads[0]->pos);
    RootSearch& root = pool.roots[index];
    root.reporter = nullptr;
    root.lines = nullptr;
    root.rootStop.store(0);
    root.depth.store(0);
    root.won = false;
    root.bestMove = 0;
    root.rootPv[0] = 0;
    root.pvLines = 1;  // a helper only feeds the table
}

// The master's last act before it reports its result: the helpers stop, and their counts
// are final before the last line shows them.
void finishHelpers() {
    for (int i = 1; i < pool.threadCount; ++i) stopThread(*pool.threads[i]);
    for (int i = 1; i < pool.threadCount; ++i) waitUntilIdle(*pool.threads[i]);
}

// Thread 0's work: the helpers along on copies of its position, iterative deepening, then the
// statistics of all threads.
void masterDriver(SearchThread& t) {
    for (int i = 1; i < pool.threadCount; ++i) {
        prepareHelper(i);
        wake(*pool.threads[i]);
    }
    iterate(masterRoot());
    finishHelpers();
    pool.running.store(false);  // reported: from here on Ctrl-C ends the engine again
    // The next search (go, the console, bench) waits for this thread to be idle before it
    // sets up the clock and the counts read here.
    SearchStats sum = t.stats;
    for (int i = 1; i < pool.threadCount; ++i) sum.add(pool.threads[i]->stats);
    printStatistics(sum, tt.entryCount(), (clockMs() - timeControl.startMs) * 0.001);
}

void threadMain(SearchThread* t) {
    std::unique_lock<std::mutex> lock(t->signalMutex);
    for (;;) {
        // Announce idle and block until woken.
        t->busy = false;
        t->signal.notify_all();
        t->signal.wait(lock, [&] { return t->woken; });
        t->woken = false;
        if (t->quit.load()) {
            t->busy = false;
            t->signal.notify_all();
            return;
        }
        lock.unlock();
        clearForSearch(*t);
        if (t->index == 0)
            masterDriver(*t);
        else
            iterate(pool.roots[t->index]);
        lock.lock();
    }
}

void startThread(int index) {
    auto* t = new SearchThread();
    t->index = static_cast<uint32_t>(index);
    t->eval = new EvalContext();
    t->history = new MoveHistory();
    initEvalContext(*t->eval, &t->pos);
    resizePawnTable(t->eval->pawnTable, kSearchPawnEntries);
    t->busy = true;  // until the thread announces itself idle
    pool.threads[index] = t;
    t->handle = std::thread(threadMain, t);
}

void endThread(int index) {
    SearchThread* t = pool.threads[index];
    t->quit.store(1);
    stopThread(*t);
    waitUntilIdle(*t);
    {
        std::lock_guard<std::mutex> lock(t->signalMutex);
        t->woken = true;
        t->busy = true;
        t->signal.notify_all();
    }
    t->handle.join();
    freeEvalContext(*t->eval);
    delete t->eval;
    delete t->history;
    delete t;
    pool.threads[index] = nullptr;
}

}  // namespace

void SearchStats::add(const SearchStats& o) {
    const auto* src = reinterpret_cast<const uint64_t*>(&o);
    auto* dst = reinterpret_cast<uint64_t*>(this);
    for (size_t i = 0; i < sizeof(SearchStats) / sizeof(uint64_t); ++i) dst[i] += src[i];
}

void setThreads(int n) {
    n = n < 1 ? 1 : n > kMaxThreads ? kMaxThreads : n;
    waitIdle();
    for (int i = pool.threadCount; i < n; ++i) startThread(i);
    for (int i = pool.threadCount - 1; i >= n; --i) endThread(i);
    pool.threadCount = n;
    waitIdle();
    for (int i = 0; i < n; ++i) {
        pool.roots[i].thread = pool.threads[i];
        pool.roots[i].position = &pool.threads[i]->pos;
        pool.roots[i].finish = i == 0 ? finishHelpers : nullptr;
    }
}

void initThreads() {
    initSearchTables();
    if (pool.threadCount == 0) {
        startThread(0);
        pool.threadCount = 1;
    }
    setThreads(1);
}

void startSearch(const Position& pos, SearchReporter* reporter, const Move* searchMoves,
                 int searchMoveCount) {
    SearchThread& master = *pool.threads[0];
    waitIdle();
    pool.searchMoveCount = searchMoveCount;
    for (int i = 0; i < searchMoveCount; ++i) pool.searchMoves[i] = searchMoves[i];
    pool.stopping.store(0);
    copyPosition(master.pos, pos);
    RootSearch& root = masterRoot();
    copyPosition(root.start, pos);
    root.reporter = reporter;
    root.pvLines = pool.multiPv > 1 ? pool.multiPv : 1;
    root.rootStop.store(0);
    root.depth.store(0);
    root.won = false;
    root.bestMove = 0;
    root.rootPv[0] = 0;
    std::memset(&master.stats, 0, sizeof master.stats);
    timeControl.reset();
    tt.newSearch();
    pool.running.store(true);
    master.stopFlag.store(0);
    wake(master);
}

void stopSearch() {
    interruptSearch();
    waitIdle();
}

void interruptSearch() {
    pool.stopping.store(1);
    masterRoot().rootStop.store(1);
    for (int i = 0; i < pool.threadCount; ++i) stopThread(*pool.threads[i]);
}

void waitIdle() {
    for (int i = 0; i < pool.threadCount; ++i) waitUntilIdle(*pool.threads[i]);
}

void setSearchLines(SearchLines* lines) { masterRoot().lines = lines; }


void clearSearchHistory() {
    waitIdle();
    for (int i = 0; i < pool.threadCount; ++i) std::memset(pool.threads[i]->history, 0, sizeof(MoveHistory));
}

void shutdownThreads() {
    stopSearch();
    for (int i = pool.threadCount - 1; i >= 0; --i) endThread(i);
    pool.threadCount = 0;
}

}  // namespace quarn
