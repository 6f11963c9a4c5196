// Static exchange evaluation: what a move wins or loses on its target square, in pawns.
#pragma once

#include <cstdint>

#include "board/move.h"
#include "board/position.h"

namespace quarn {

struct ExchangeState {
    Bitboard candidates;  // pieces that may still capture
    Bitboard blockers;    // pinned pieces: they never capture but still block lines
    const Position* pos;
    uint32_t side;    // colour to capture next
    uint32_t square;  // the square fought over
};

// Exchange value of m for the side making it; m is given before it is made (or just after:
// the moving piece is then read from the to square). Needs current kingBlockers.
int see(const Position& pos, Move m);

// Value, for the owner of the piece on `square`, of the opponent capturing it; -1 or below
// means the piece can be won.
int squareExchange(const Position& pos, int square);

// Fail-soft negamax over the captures on one square, both sides capturing with their least
// valuable attacker. Exact inside (-1, 1), a bound of the right sign outside.
int swapSearch(ExchangeState& state, int balance, int target, int alpha, int beta);

}  // namespace quarn
