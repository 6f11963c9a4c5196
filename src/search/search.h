// The alpha-beta search below the root and the quiescence search at its horizon.
#pragma once

#include <cstdint>

#include "search/score.h"
#include "search/searchthread.h"

namespace quarn {

// Flags passed down with every call.
enum SearchFlags : uint32_t {
    NODE_PV = 1,        // window may be wide; no table cut-off; PV re-searches
    NODE_ALL = 2,       // expected all-node
    NODE_CUT = 4,       // expected cut-node
    NULL_ALLOWED = 8,   // a null move may be tried
    REDUCED_CHILD = 32,  // the reduced child of a late-move reduction
    FROM_SEARCH = 256,  // a quiescence chain entered from the full-width search
};
constexpr uint32_t kSwapExpectation = NODE_ALL | NODE_CUT;

// Full-width principal-variation search at `ply` (1 or more) with `depth` plies left. The
// position's attack words must be current. Returns 0 at once when the thread is stopped.
int search(SearchThread& t, int ply, int depth, int alpha, int beta, uint32_t flags);

// Captures, evasions, mate threats and, at its first ply, quiet checks. `checkDepth` is the
// check allowance: 2 on entry from `search`.
int quiesce(SearchThread& t, int ply, int checkDepth, int alpha, int beta, uint32_t flags);

// Publishes the thread's node count and, on the master, tests the budget; true (with the
// stop raised) when it is spent.
bool testLimits(SearchThread& t);

// Builds the search's own tables (the late-move reductions); start-up calls it once, before
// any search.
void initSearchTables();

// Takes a move back made with makeMove, or a null move (m = 0).
void takeBack(Position& pos, Move m, const UndoState& saved);

// The search's null move: passes, fetches the table line and recomputes the attack words.
void makeSearchNullMove(Position& pos);

// Killer update after a quiet cut-off: the newest killer in slot 0.
void updateKillers(SearchThread& t, int ply, Move m);

}  // namespace quarn
