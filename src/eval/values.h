// Piece values in pawns, as the exchange code and the material terms count them.
#pragma once

namespace quarn {

// By piece type: none, pawn, knight, bishop, rook, queen, king, unused.
inline constexpr int pieceValue[8] = {0, 1, 3, 3, 5, 10, 99, 0};

}  // namespace quarn
