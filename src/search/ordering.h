// Move ordering: scores every move of a node and brings the most promising to the front.
#pragma once

#include "board/move.h"
#include "search/searchthread.h"

namespace quarn {

// Ordering values by piece type (the king counts 99).
inline constexpr int kOrderValue[8] = {0, 1, 3, 3, 5, 10, 99, 0};

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
