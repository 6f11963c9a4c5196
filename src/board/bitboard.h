// Squares, colours, pieces, bit primitives and the precomputed attack tables.
#pragma once

#include <cstdint>
#include <cstdio>

namespace quarn {

// Bit n of a Bitboard is square n: a1 = 0, h1 = 7, a8 = 56, h8 = 63.
using Bitboard = uint64_t;

enum Colour : int { WHITE = 0, BLACK = 1 };

// Piece types fit in three bits; a piece code is type | (8 << colour), so White's
// pieces are 9..14, Black's 17..22 and an empty square is 0.
enum PieceType : int { NO_TYPE = 0, PAWN = 1, KNIGHT = 2, BISHOP = 3, ROOK = 4, QUEEN = 5, KING = 6 };

constexpr int pieceCode(int colour, int type) { return type | (8 << colour); }
constexpr int typeOf(int code) { return code & 7; }
constexpr int colourOf(int code) { return (code >> 4) & 1; }
constexpr int fileOf(int square) { return square & 7; }
constexpr int rankOf(int square) { return square >> 3; }
constexpr int makeSquare(int file, int rank) { return rank * 8 + file; }
// King steps between two squares.
constexpr int squareDistance(int a, int b) {
    const int df = fileOf(a) > fileOf(b) ? fileOf(a) - fileOf(b) : fileOf(b) - fileOf(a);
    const int dr = rankOf(a) > rankOf(b) ? rankOf(a) - rankOf(b) : rankOf(b) - rankOf(a);
    return df > dr ? df : dr;
}

// Letters by piece type: White and move text, Black, and the letter after "=".
inline constexpr char kPieceLetters[] = " PNBRQK";
inline constexpr char kBlackLetters[] = " pnbrqk";
inline constexpr char kPromotionLetters[] = "  NBRQK";

constexpr Bitboard kFileA = 0x0101010101010101ULL;
constexpr Bitboard kFileH = kFileA << 7;
constexpr Bitboard kNotFileA = ~kFileA;
constexpr Bitboard kNotFileH = ~kFileH;
constexpr Bitboard kRank1 = 0xFFULL;
constexpr Bitboard kRank8 = kRank1 << 56;
// Ranks 1, 2, 7 and 8: pawn moves there promote or prepare to, or are the far ranks pieces
// guard against back-rank threats.
constexpr Bitboard kFarRanks = kRank1 | (kRank1 << 8) | (kRank8 >> 8) | kRank8;

// Magic lookup of one square: index = ((occ & mask) * multiplier) >> shift.
struct Magic {
    Bitboard mask;
    Bitboard multiplier;
    const Bitboard* attacks;
    unsigned shift;
};

extern Bitboard squareBit[64];
extern Bitboard fileMask[8];
extern Bitboard rankMask[8];
extern Bitboard fileMaskOf[64];
extern Bitboard rankMaskOf[64];
extern Bitboard diagonalMask[15];
extern Bitboard antiDiagonalMask[15];
extern Bitboard between[64][64];
extern Bitboard line[64][64];
extern Bitboard rookLines[64];
extern Bitboard bishopLines[64];
extern Bitboard queenLines[64];
extern Bitboard knightAttacks[64];
extern Bitboard kingAttacks[64];
extern Bitboard pawnAttacks[2][64];
extern Bitboard forwardFile[2][64];
extern Bitboard passedSpan[2][64];
extern Bitboard pawnSquare[2][64];
extern const uint8_t castleMask[64];
extern Magic rookMagics[64];
extern Magic bishopMagics[64];
extern uint32_t bitIndex[64];

constexpr Bitboard kDeBruijn = 0x07EDD5E59A4E28C2ULL;

// Fills every table above; runs once at start-up before any position exists.
void initTables();
void initMagics();

// Parallel-sum population count; the engine uses no popcount instruction.
inline int popCount(Bitboard b) {
    b = b - ((b >> 1) & 0x5555555555555555ULL);
    b = (b & 0x3333333333333333ULL) + ((b >> 2) & 0x3333333333333333ULL);
    b = (b + (b >> 4)) & 0x0F0F0F0F0F0F0F0FULL;
    return static_cast<int>((b * 0x0101010101010101ULL) >> 56);
}

// Counts by clearing the lowest bit: cheaper where few bits are expected.
inline int popCountSparse(Bitboard b) {
    int n = 0;
    for (; b; b &= b - 1) ++n;
    return n;
}

// Index of the lowest set bit by De Bruijn multiplication; b must not be empty.
inline int lsbIndex(Bitboard b) {
    return static_cast<int>(bitIndex[((b & (0 - b)) * kDeBruijn) >> 58]);
}

// Index of the lowest set bit, which is cleared from b.
inline int popLsb(Bitboard& b) {
    int s = lsbIndex(b);
    b &= b - 1;
    return s;
}

inline bool moreThanOne(Bitboard b) { return (b & (b - 1)) != 0; }

inline Bitboard bishopAttacks(int s, Bitboard occ) {
    const Magic& m = bishopMagics[s];
    return m.attacks[((occ & m.mask) * m.multiplier) >> m.shift];
}

inline Bitboard rookAttacks(int s, Bitboard occ) {
    const Magic& m = rookMagics[s];
    return m.attacks[((occ & m.mask) * m.multiplier) >> m.shift];
}

inline Bitboard queenAttacks(int s, Bitboard occ) { return bishopAttacks(s, occ) | rookAttacks(s, occ); }
// The empty-board lines through `s` of a slider of `type` (BISHOP, ROOK or QUEEN).
inline Bitboard sliderLines(int type, int s) {
    return type == BISHOP ? bishopLines[s] : type == ROOK ? rookLines[s] : queenLines[s];
}

// Squares attacked by all pawns of a colour.
template <int Colour>
inline Bitboard pawnAttackSet(Bitboard pawns) {
    if constexpr (Colour == WHITE)
        return ((pawns << 7) & 0x7F7F7F7F7F7F7F7FULL) | ((pawns << 9) & 0xFEFEFEFEFEFEFEFEULL);
    else
        return ((pawns >> 9) & 0x7F7F7F7F7F7F7F7FULL) | ((pawns >> 7) & 0xFEFEFEFEFEFEFEFEULL);
}

// Debugging aid: the set as an 8x8 diagram, then its hex value and a title.
void printBitboard(Bitboard b, const char* title, FILE* out = stdout);

// Text of a square ("e4") into buf, which needs three bytes.
inline char* writeSquare(char* buf, int square) {
    buf[0] = static_cast<char>('a' + fileOf(square));
    buf[1] = static_cast<char>('1' + rankOf(square));
    buf[2] = 0;
    return buf + 2;
}

}  // namespace quarn
