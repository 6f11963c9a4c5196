// The piece term: placement, mobility, threats and the attack on the enemy king.
#pragma once

#include "eval/evaluate.h"

namespace quarn {

// Positive is good for `colour`. Reads the enemy's ctx.shelter (kingScore runs first) and the
// position's kingBlockers.
int pieceScore(EvalContext& ctx, int colour);

}  // namespace quarn
