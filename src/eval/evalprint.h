// The evaluation's own printing: every term of one position, for debugging and for users.
#pragma once

#include <cstdio>

#include "board/position.h"

namespace quarn {

// Prints each term, the rules that fired and the final score; the last line is "score <n>"
// with the score for the side to move. Returns that score.
int printEvaluation(const Position& pos, FILE* out);

}  // namespace quarn
