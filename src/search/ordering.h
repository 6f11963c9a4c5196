// Move ordering: scores every move of a node and brings the most promising to the front.
#pragma once

#include "board/bitboard.h"
#include "board/move.h"
#include "search/searchthread.h"

namespace quarn {

// Ordering values by piece type (the king counts 99).
inline constexpr int kOrderValue[8] = {0, 1, 3, 3, 5, 10, 99, 0};
// Captures are keyed by the victim first: one order point of victim outweighs any shift of the
// mover's safety below.
inline constexpr int kVictimWeight = 16;

// The mover's own safety: leaving an attacked square gains its order value, entering one
// loses it. Used by both searches' move ordering.
inline int moverSafety(Bitboard attacked, Move m, int mover) {
    int shift = 0;
    if (attacked & squareBit[fromSquare(m)]) shift += mover;
    if (attacked & squareBit[toSquare(m)]) shift -= mover;
    return shift;
}

// Orders a node not in check: the hash move, killers, winning captures and pawn pushes to
// the far ranks first. Only the first eight places are sorted. Returns the first late move:
// the moves before it are the hash move, the first killer, winning captures and pawn moves
// to ranks 1, 2, 7 and 8, wherever they ended up.
Move* orderMoves(const SearchThread& thread, int ply, Move* first, Move* end, Move threatMove,
                 Move hashMove);

// Orders the evasions of a node in check, the whole list: captures by victim and attacker,
// king steps by square value, blocks guarded by a pawn.
void orderEvasions(const Position& pos, Move* first, Move* end, Move hashMove);

// Moves the highest score to each of the first `places` positions (earliest wins ties).
void selectBest(Move* moves, int* scores, int count, int places);

}  // namespace quarn
