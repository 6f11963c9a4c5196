// Passed-pawn races: runners the defending king cannot catch when the defender has no piece.
#pragma once

#include "eval/evaluate.h"

namespace quarn {

// Move count meaning "no unstoppable passer".
constexpr int kNoRace = 128;

// White's point of view: 500 - 10 * n when White queens first in n moves, the negation when
// Black does, 0 when neither side has a runner or the race is even. Reads ctx.pos and
// ctx.passers, which the pawn term fills first.
int racingPasserScore(EvalContext& ctx);

// Moves `colour` needs to queen a b- to g-file passer escorted by its king, racing the bare
// enemy king; kNoRace when the defender gets in front first. Only meaningful when the
// defending side has no piece and no passer of its own.
int passerPairRace(EvalContext& ctx, int colour);

}  // namespace quarn
