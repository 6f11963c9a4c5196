// What the position fuzz targets share.
#pragma once

#include <cstring>

#include "board/position.h"

namespace quarn::test {

// The board part: what a FEN describes (the move counters aside) and the keys made from it.
inline bool sameBoard(const Position& a, const Position& b) {
    for (int c = 0; c < 2; ++c) {
        if (std::memcmp(a.side[c].pieces, b.side[c].pieces, sizeof a.side[c].pieces) ||
            a.side[c].kingSquare != b.side[c].kingSquare ||
            a.side[c].material != b.side[c].material)
            return false;
    }
    return !std::memcmp(a.board, b.board, sizeof a.board) && a.occupied == b.occupied &&
           a.hashKey == b.hashKey && a.sideToMove == b.sideToMove &&
           a.state.pawnKey == b.state.pawnKey && a.state.castling == b.state.castling &&
           a.state.epSquare == b.state.epSquare;
}

}  // namespace quarn::test
