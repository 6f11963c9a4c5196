// The root search: iterative deepening with aspiration windows over the root moves, its
// console lines and the statistics printed after each search.
#pragma once

#include <atomic>
#include <cstdint>

#include "board/move.h"
#include "search/searchthread.h"

namespace quarn {

// How the search tells its driver (the protocol side) what it is doing. Calls come from the
// master search thread.
class SearchReporter {
public:
    virtual ~SearchReporter() = default;
    // Before each root move is searched; moveIndex counts from 0.
    virtual void reportCurrentMove(uint32_t depth, uint32_t moveIndex, Move move) = 0;
    // A root move became the new best; the root record's rootPv holds the line.
    virtual void reportPv(uint32_t depth, int score, Move move) = 0;
    // Once, when the search ends.
    virtual void reportFinished(uint32_t depth, int score, Move bestMove) = 0;
};

struct RootMove {
    Move move;
    uint64_t sortKey;  // exchange value + 1000 at first; then the nodes of the last iteration
    int score;
};

struct RootSearch {
    SearchThread* master;
    Position* position;
    SearchReporter* reporter;  // may be absent
    RootMove rootMoves[kMaxMoves];
    int rootMoveCount;
    Move bestMove;
    Move rootPv[kMaxPly];  // zero-terminated
    std::atomic<uint8_t> rootStop;
    uint8_t quiet;  // no console lines
    // The iteration running, 0 before the first. Read by the input thread (ponderhit), so it
    // is atomic; once it is above 0 the root moves are built and stay as they are.
    std::atomic<int> depth;
};

// All legal moves, ordered by exchange value. Returns their count.
int buildRootMoves(RootSearch& root);
// One pass over the root moves at `depth`; returns the best score seen.
int searchRoot(RootSearch& root, int depth, int alpha, int beta);
// The driver: deepens until a limit or a stop rule ends it, then reports the result.
void iterate(RootSearch& root);

// "[depth/seldepth] time nodes score text" on the console, unless quiet.
void printSearchLine(const RootSearch& root, int score, const char* text);
// The statistics block, written to the log.
void printStatistics(const SearchStats& stats, uint32_t entryCount, double seconds);

}  // namespace quarn
