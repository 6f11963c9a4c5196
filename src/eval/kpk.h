// King and pawn against king: which positions the pawn's side wins, worked out exactly.
#pragma once

#include "board/position.h"

namespace quarn {

// Whether the side with the single pawn wins; the position must hold the two kings and that
// pawn only. The table behind it is built on the first call (tens of milliseconds, once per
// process, safe from any thread) by retrograde analysis over every placement.
bool kpkWins(const Position& pos);

// Builds the table now if no call has yet; returns once it is ready.
void buildKpkTable();

}  // namespace quarn
