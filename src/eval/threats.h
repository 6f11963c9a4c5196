// Static threat tests the search prunes with: material about to be lost, one-move mates.
#pragma once

#include "board/move.h"
#include "board/position.h"

namespace quarn {

// Score units (>= 0) colour is about to lose to the opponent's direct threats: a pawn queening,
// a pinned queen, a pawn fork. Needs current kingBlockers.
int threatScore(const Position& pos, int colour);

// A move of colour's opponent that mates colour's king at once by a supported queen contact
// check or a rook check along the king's rank or file, else 0. The move carries from, to and
// the captured piece code only. Needs current attack words.
Move mateThreatMove(const Position& pos, int colour);

// Every square the colour attacks, sliders looking through the other side's king. For the side
// not to move this is the position's stored enemyAttacks.
Bitboard attackedBy(const Position& pos, int colour);

}  // namespace quarn
