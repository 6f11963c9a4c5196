// King and rook, king and queen, or king, bishop and knight against a lone king: the exact
// distance to mate.
#pragma once

#include "board/position.h"

namespace quarn {

// Whether the position is one the mate tables cover: one side has its king and a single rook
// or queen, or a bishop and a knight, the other its king alone. Cheap enough for every node.
inline bool loneKingEnding(const Position& pos) {
    constexpr uint32_t kRookOnly = kMaterialIncrement[ROOK], kQueenOnly = kMaterialIncrement[QUEEN];
    constexpr uint32_t kBishopKnight = kMaterialIncrement[BISHOP] + kMaterialIncrement[KNIGHT];
    const uint32_t w = pos.side[WHITE].material, b = pos.side[BLACK].material;
    const uint32_t m = w | b;
    return (w == 0 || b == 0) && (m == kRookOnly || m == kQueenOnly || m == kBishopKnight);
}

// The result with best play on both sides of a position loneKingEnding accepts, for the side
// to move: 1 when it mates, -1 when it is mated, 0 for a draw (the lone king takes a man or
// is stalemated). For a mate, `plies` is its distance in plies: 0 when the side to move is
// mated already, odd when the side to move mates. The fifty-move rule is the caller's to weigh.
// The table behind it is built on its first call (a few milliseconds for a rook or queen, a
// fraction of a second for bishop and knight; once per process, safe from any thread) by
// working back from every mate.
int loneKingOutcome(const Position& pos, int& plies);

// Builds the tables now if no call has yet; returns once they are ready. The second builds the
// table of ROOK, QUEEN or BISHOP (with a knight) alone.
void buildLoneKingTables();
void buildLoneKingTable(int pieceType);

// Whether the table of a position loneKingEnding accepts is built, without waiting for it: a
// search never waits for a table that start-up is still building.
bool loneKingTableReady(const Position& pos);

// The move of the tables' best line from a position loneKingEnding accepts: the quickest mate,
// or the longest defence; 0 when no move has a verdict. Needs current attack words.
Move loneKingMove(Position& pos);

// The longest mate the table of ROOK, QUEEN or BISHOP (with a knight) holds, in moves of the
// mating side.
int loneKingLongestMate(int pieceType);

}  // namespace quarn
