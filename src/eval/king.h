// The king term: pawn shelter and castling prospects in the middlegame, activity in the endgame.
#pragma once

#include "eval/evaluate.h"

namespace quarn {

// Penalty for the king's square in the middlegame, side-relative; larger is worse.
extern const int kingMgPenalty[64];
// Value of the king's square in the endgame, side-relative; larger is better.
extern const int kingEgTable[64];

// Positive is good for `colour`. Leaves the shelter value in ctx.shelter[colour] for the
// enemy's king-attack term. Needs ctx.pawnEntry (pawnScore runs first).
int kingScore(EvalContext& ctx, int colour);

}  // namespace quarn
