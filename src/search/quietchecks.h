// The quiescence search's check generator: the checking moves the capture generator skips.
#pragma once

#include "board/move.h"
#include "board/position.h"

namespace quarn {

// Checking moves to empty squares and checking captures of pieces worth less than the
// margin (the ones generateCaptures with that margin leaves out), ordered by a small score.
// Needs current attack words. Returns the list end.
//
// The side to move must not be in check, and the list needs room for kMaxMoves moves. A bishop
// or rook move that lines up on the king through an enemy queen counts as a check (it wins the
// queen or checks), and a move that both uncovers a check and checks directly may come twice.
// No promotion, castling or en-passant capture is generated.
Move* generateQuietChecks(const Position& pos, Move* list, int margin);

}  // namespace quarn
