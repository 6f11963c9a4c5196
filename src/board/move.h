// The Move word: everything needed to make and undo a move, in 32 bits.
#pragma once

#include <cstdint>

namespace quarn {

// Bits   field
// 0-7    to square
// 8-15   from square
// 16-23  captured piece code (0 = none; the captured pawn's code for en passant)
// 24-26  promotion piece type (Knight 2 .. Queen 5), 0 if none
// 27     en-passant capture
// 28     castling (the king's move)
// 29     double pawn step
// 30-31  free; identity comparisons mask them off
// 0 is the null move.
using Move = uint32_t;
static_assert(sizeof(Move) == 4);

constexpr Move kNullMove = 0;
constexpr Move kEnPassantFlag = 1u << 27;
constexpr Move kCastleFlag = 1u << 28;
constexpr Move kDoubleStepFlag = 1u << 29;
constexpr Move kSpecialMask = 0x1F000000u;  // promotion, en passant or castling
constexpr Move kIdentityMask = 0x3FFFFFFFu;
constexpr Move kCaptureOrPromotion = 0x07FF0000u;  // captured piece or promotion type
constexpr Move kNotQuiet = 0x0FFF0000u;            // capture, promotion or en passant

// Enough for any legal position (the known maximum is 218).
constexpr int kMaxMoves = 256;

constexpr int toSquare(Move m) { return static_cast<int>(m & 0xFF); }
constexpr int fromSquare(Move m) { return static_cast<int>((m >> 8) & 0xFF); }
constexpr int capturedCode(Move m) { return static_cast<int>((m >> 16) & 0xFF); }
constexpr int promotionType(Move m) { return static_cast<int>((m >> 24) & 7); }
constexpr bool isEnPassant(Move m) { return (m & kEnPassantFlag) != 0; }
constexpr bool isCastling(Move m) { return (m & kCastleFlag) != 0; }
constexpr bool isDoubleStep(Move m) { return (m & kDoubleStepFlag) != 0; }

// A move that captures, promotes or takes en passant is no quiet move.
constexpr bool isQuiet(Move m) { return (m & kNotQuiet) == 0; }
// The same move, whatever the search noted in bits 30..31.
constexpr bool sameMove(Move a, Move b) { return ((a ^ b) & kIdentityMask) == 0; }

constexpr Move makeMoveWord(int from, int to, int captured) {
    return static_cast<Move>(to) | (static_cast<Move>(from) << 8) | (static_cast<Move>(captured) << 16);
}

constexpr Move withPromotion(Move m, int type) { return m | (static_cast<Move>(type) << 24); }

}  // namespace quarn
