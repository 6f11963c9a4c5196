// The root search: iterative deepening with aspiration windows over the root moves, the
// reports it makes and the statistics it logs after each search.
#pragma once

#include <atomic>
#include <cstdint>

#include "board/move.h"
#include "search/searchthread.h"
#include "search/tt.h"

namespace quarn {

// A line of the search's report, everything the reporter prints of it.
struct PvReport {
    int index;        // its rank among the lines searched, 1 for the best
    int depth;
    int selDepth;     // the deepest ply the master thread reached
    int score;
    TtBound bound;    // BOUND_EXACT, or the side of the window the score only bounds
    const Move* pv;   // the variation, zero-terminated; null for the final line of a search
};

// How the search tells its driver (the protocol side) what it is doing. Calls come from the
// master search thread.
class SearchReporter {
public:
    virtual ~SearchReporter() = default;
    // Before each root move is searched; moveIndex counts from 0.
    virtual void reportCurrentMove(uint32_t depth, uint32_t moveIndex, Move move) = 0;
    // A root move became the new best, with this line.
    virtual void reportPv(const PvReport& report) = 0;
    // Once, when the search ends: the final line, the move chosen (0: none) and the move
    // expected in reply (0: none).
    virtual void reportFinished(const PvReport& report, Move bestMove, Move ponderMove) = 0;
};

struct RootSearch;

// The running commentary of a search at the console: the shell implements it, and a search
// run for the protocol or the benchmark has none. Calls come from the master search thread.
class SearchLines {
public:
    virtual ~SearchLines() = default;
    // A root move became the new best; the root record's rootPv holds the line.
    virtual void bestLine(const RootSearch& root, int score) = 0;
    // A root move `m` of the start position beat the best on its zero window ("++k/n ") and is
    // searched again, or failed in that search ("--").
    virtual void rootMoveLine(const RootSearch& root, int score, const char* prefix, Move m) = 0;
    // An iteration ended; `text` says how ("ok/1.8", or why the search stops there).
    virtual void iterationLine(const RootSearch& root, int score, const char* text) = 0;
};

// The most lines a search can be asked to show (the MultiPV option).
constexpr int kMaxPvLines = 64;

struct RootMove {
    Move move;
    uint64_t sortKey;  // exchange value + 1000 at first; then the nodes of the last iteration
    int score;
};

// One thread's root search: its own root moves, best move and variation. The master thread's
// (thread 0) reports and decides when the search ends.
struct RootSearch {
    SearchThread* thread;      // the thread that searches it
    Position* position;        // that thread's position
    SearchReporter* reporter;  // the master's only; may be absent
    RootMove rootMoves[kMaxMoves];
    int rootMoveCount;
    int legalMoveCount;  // before "go searchmoves" kept some of them
    Move bestMove;
    Move rootPv[kMaxPly];  // zero-terminated
    // Lines searched in full, best first (1 but for the master with MultiPV above 1); the
    // variation of rootMoves[i] is linePv[i].
    int pvLines;
    Move linePv[kMaxPvLines][kMaxPly];
    std::atomic<uint8_t> rootStop;
    // The console's lines (the master's only), or none. The input thread switches them off
    // when a GUI says "uci", maybe while a search runs: each use loads the pointer once.
    std::atomic<SearchLines*> lines;
    Position start;      // the position searched, as it was handed over
    // Set for an iteration whose side to move is winning, short of a proven mate: captures,
    // promotions and pawn moves then count kProgressBias more when root moves are compared.
    bool won;
    // The iteration running, 0 before the first. Read by the input thread (ponderhit), so it
    // is atomic; once it is above 0 the root moves are built and stay as they are.
    std::atomic<int> depth;
    // The master's: stops the helper threads and waits for them, before the search reports
    // its end. None for a helper.
    void (*finish)();
};

// Whether the root is the master's: it alone watches the budget, moves the time control's
// phases, reports, and stops the search.
inline bool isMaster(const RootSearch& root) { return root.thread->index == 0; }

// All legal moves, ordered by exchange value. Returns their count.
int buildRootMoves(RootSearch& root);
// One pass over the root moves from index `pvIndex` at `depth`, the first of them with the
// full window: the best of them ends up at `pvIndex`. Returns the best score seen.
int searchRoot(RootSearch& root, int depth, int alpha, int beta, int pvIndex = 0);
// The driver: deepens until a limit or a stop rule ends it, then reports the result.
void iterate(RootSearch& root);

// Nodes searched so far by the root's thread.
uint64_t nodesOf(const RootSearch& root);
// A count divided by 1024 while above 99999 (at most `times` times), with its suffix letter
// (blank, k, m, g, t).
uint64_t scaleCount(uint64_t n, char& suffix, int times);
// The statistics block, written to the log.
void printStatistics(const SearchStats& stats, uint32_t entryCount, double seconds);

}  // namespace quarn
