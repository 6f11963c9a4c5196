// One search thread's own record: its position, evaluation state, PV and killer tables,
// statistics and the signals that start and stop it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "board/position.h"
#include "eval/evaluate.h"
#include "search/history.h"

namespace quarn {

// A static score that no evaluation gives: the node was in check.
constexpr int kNoStaticEval = -32000;

// Plies a search can reach; deeper nodes return their static evaluation.
constexpr int kMaxPly = 128;
constexpr int kMaxSearchPly = 119;

// Counters behind the statistics printed after every search.
struct SearchStats {
    uint64_t nodes;         // full-width nodes
    uint64_t qnodes;        // quiescence nodes
    uint64_t pruned;        // futility-pruned moves
    uint64_t frontier;      // calls handed to the quiescence search
    uint64_t ttProbes, ttHits, ttCuts;
    uint64_t mates;         // mates and stalemates found
    uint64_t nullTries, nullCuts;
    uint64_t iid;
    uint64_t pvNodes, cutNodes, allNodes;
    uint64_t firstMoveCuts;  // cut-offs by the first move searched
    uint64_t firstMovePv;    // PV nodes whose best move was the first searched
    uint64_t killerCuts;     // cut-offs by a killer move
    uint64_t killerTries;    // killer moves searched
    uint64_t reduceTries, reduceFails;
    uint64_t ttStores;
    uint64_t quietChecks;
    uint64_t mateThreats;

    // The node total used by limits and reports.
    uint64_t total() const { return nodes + qnodes + pruned; }
    void add(const SearchStats& o);
};

struct SearchThread {
    Position pos;
    EvalContext* eval;  // owned; large, so on the heap
    SearchStats stats;
    int maxPly;         // deepest ply reached ("seldepth")
    Move pv[kMaxPly][kMaxPly];
    Move killers[kMaxPly][2];
    MoveHistory* history;  // owned; large, so on the heap; kept from search to search
    // moveKeys[ply + 2]: the continuation key of the move made at `ply` (kNoContinuation for a
    // null move); the two entries before the root stay kNoContinuation.
    uint16_t moveKeys[kMaxPly + 2];
    // staticEvals[ply]: the static score of the full-width node at `ply` on the current line,
    // kNoStaticEval in check; whether a side's position improves is read from it.
    int staticEvals[kMaxPly + 2];
    // excluded[ply]: the move a singular-extension test leaves out of the node at `ply`; 0
    // in every ordinary search.
    Move excluded[kMaxPly + 2];
    // checkedAt[ply]: the node at `ply` on the current line was in check.
    bool checkedAt[kMaxPly + 2];
    std::atomic<uint8_t> stopFlag;
    // The node total at which the search next tests its limits.
    uint64_t nextLimitCheck;
    // A helper's hard cap on the node total of all threads (0: none), the largest budget of
    // the search: a helper stops itself there, since a master that is not scheduled in time
    // cannot stop it.
    uint64_t nodeCap;
    // The node total as last published (every 256 nodes and at the end), for the
    // info lines and the master's node budget; other threads read it while this one runs.
    std::atomic<uint64_t> nodesPublished;
    UndoState savedState;  // the root state, taken at every wake-up
    uint32_t savedFiftyStart;
    uint32_t index;
    std::atomic<uint8_t> quit;
    std::atomic<uint8_t> stopRequested;

    // Idle/busy signalling: a woken thread is busy until it has finished its work and waits
    // again; waiting for idle blocks until then.
    std::thread handle;
    std::mutex signalMutex;
    std::condition_variable signal;
    bool busy;
    bool woken;

    bool stopped() const { return stopFlag.load(std::memory_order_relaxed) != 0; }
    void publishNodes() { nodesPublished.store(stats.total(), std::memory_order_relaxed); }
    // The search polls the flag cheaply; raising it is a full-order store.
    void requestStop() { stopFlag.store(1); }
};

inline uint64_t publishedNodes(const SearchThread& t) {
    return t.nodesPublished.load(std::memory_order_relaxed);
}

}  // namespace quarn
