// What the search has learned about moves, per thread: which quiet moves caused cut-offs
// (by side, from and to), which move refuted the move before (the counter move), which
// moves worked after the last two moves played (continuation history), and which captures
// cut off (by piece, target and victim). Quiet moves are ordered by it, and late-move
// reductions shrink for moves it rates well; captures of the same victim are ordered by it.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "board/bitboard.h"
#include "board/move.h"
#include "board/position.h"

namespace quarn {

// Every value stays within this bound: a bonus shrinks as the value nears it ("gravity"), so
// that lessons of earlier positions fade instead of saturating the table.
constexpr int kHistoryMax = 16384;
// A cut-off at depth d is worth about d squared: a deep cut-off saves a large tree and is
// rarer. Capped, so that one deep node does not outweigh many shallow ones.
constexpr int kHistoryBonusMax = 1600;
// Rows of the continuation table: (piece code & 15) * 64 + to. Row 0 holds no piece: it
// stands for "no move", after a null move or above the root.
constexpr int kPieceSquares = 16 * 64;
constexpr uint16_t kNoContinuation = 0;

struct MoveHistory {
    int16_t butterfly[2][64][64];
    Move counter[kPieceSquares];
    int16_t continuation[kPieceSquares][kPieceSquares];
    int16_t capture[kPieceSquares][8];  // by the mover's continuation key and the victim's type
};

// The continuation key of a move about to be made in `pos`.
inline uint16_t continuationKey(const Position& pos, Move m) {
    return static_cast<uint16_t>((pos.board[fromSquare(m)] & 15) * 64 + toSquare(m));
}

inline int historyBonus(int depth) {
    const int b = depth * depth * 16 + depth * 32;
    return b < kHistoryBonusMax ? b : kHistoryBonusMax;
}

// Moves `value` towards +-kHistoryMax by `bonus` (negative: a malus).
inline void addHistory(int16_t& value, int bonus) {
    value = static_cast<int16_t>(value + bonus - value * std::abs(bonus) / kHistoryMax);
}

// The ordering value of a quiet move: its own history and its continuations after the moves
// one and two plies before (keys `prev1`, `prev2`).
inline int quietScore(const MoveHistory& h, int side, Move m, uint16_t key, uint16_t prev1,
                      uint16_t prev2) {
    return h.butterfly[side][fromSquare(m)][toSquare(m)] + h.continuation[prev1][key] +
           h.continuation[prev2][key];
}

// After a quiet move `m` (key `key`) cut off at `depth`: it gains, and so does it as the
// continuation of the moves before; it becomes the counter move of the move before.
inline void rewardQuiet(MoveHistory& h, int side, Move m, uint16_t key, uint16_t prev1,
                        uint16_t prev2, int bonus) {
    addHistory(h.butterfly[side][fromSquare(m)][toSquare(m)], bonus);
    if (prev1 != kNoContinuation) addHistory(h.continuation[prev1][key], bonus);
    if (prev2 != kNoContinuation) addHistory(h.continuation[prev2][key], bonus);
}

// The capture history entry of a capture or promotion `m` about to be made in `pos`.
inline int16_t& captureHistory(MoveHistory& h, const Position& pos, Move m) {
    return h.capture[continuationKey(pos, m)][typeOf(capturedCode(m))];
}
inline int captureHistory(const MoveHistory& h, const Position& pos, Move m) {
    return h.capture[continuationKey(pos, m)][typeOf(capturedCode(m))];
}

}  // namespace quarn
