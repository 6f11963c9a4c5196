// Counting move paths: perft, divide and the console's move list.
#pragma once

#include <cstdint>
#include <cstdio>

#include "board/position.h"

namespace quarn {

// Leaf nodes to `depth`, counted in bulk at the last ply: a depth below 2 returns the number of
// legal moves (also for depth 0). The position is unchanged afterwards.
uint64_t perft(Position& pos, int depth);

// The perft count of every root move in generation order, then their total.
void divide(Position& pos, int depth, FILE* out = stdout);

// Every legal move in SAN with its exchange value, then the count.
void listMoves(Position& pos, FILE* out = stdout);

}  // namespace quarn
