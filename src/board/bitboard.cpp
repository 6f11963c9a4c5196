#include "board/bitboard.h"

namespace quarn {

Bitboard squareBit[64];
Bitboard fileMask[8];
Bitboard rankMask[8];
Bitboard fileMaskOf[64];
Bitboard rankMaskOf[64];
Bitboard diagonalMask[15];
Bitboard antiDiagonalMask[15];
Bitboard between[64][64];
Bitboard line[64][64];
Bitboard rookLines[64];
Bitboard bishopLines[64];
Bitboard queenLines[64];
Bitboard knightAttacks[64];
Bitboard kingAttacks[64];
Bitboard pawnAttacks[2][64];
Bitboard forwardFile[2][64];
Bitboard passedSpan[2][64];
Bitboard pawnSquare[2][64];
Magic rookMagics[64];
Magic bishopMagics[64];
uint32_t bitIndex[64];

// Castling rights that survive a move touching a square: a1 clears Q (4), e1 clears K and Q,
// h1 clears K (1), a8 clears q (8), e8 clears k and q, h8 clears k (2).
const uint8_t castleMask[64] = {
    251, 255, 255, 255, 250, 255, 255, 254,  //
    255, 255, 255, 255, 255, 255, 255, 255,  //
    255, 255, 255, 255, 255, 255, 255, 255,  //
    255, 255, 255, 255, 255, 255, 255, 255,  //
    255, 255, 255, 255, 255, 255, 255, 255,  //
    255, 255, 255, 255, 255, 255, 255, 255,  //
    255, 255, 255, 255, 255, 255, 255, 255,  //
    247, 255, 255, 255, 245, 255, 255, 253,  //
};

namespace {

// Fixed magic constants, rank 1 first, files a..h. The rook shifts of a8, b8, c8 and h8 use one
// index bit fewer than usual; their multipliers only work with those shifts.
const Bitboard kRookMultipliers[64] = {
    0x0080001020400080ULL, 0x0040001000200040ULL, 0x0080081000200080ULL, 0x0080040800100080ULL, 0x0080020400080080ULL, 0x0080010200040080ULL, 0x0080008001000200ULL, 0x0080002040800100ULL,
    0x0000800020400080ULL, 0x0000400020005000ULL, 0x0000801000200080ULL, 0x0000800800100080ULL, 0x0000800400080080ULL, 0x0000800200040080ULL, 0x0000800100020080ULL, 0x0000800040800100ULL,
    0x0000208000400080ULL, 0x0000404000201000ULL, 0x0000808010002000ULL, 0x0000808008001000ULL, 0x0000808004000800ULL, 0x0000808002000400ULL, 0x0000010100020004ULL, 0x0000020000408104ULL,
    0x0000208080004000ULL, 0x0000200040005000ULL, 0x0000100080200080ULL, 0x0000080080100080ULL, 0x0000040080080080ULL, 0x0000020080040080ULL, 0x0000010080800200ULL, 0x0000800080004100ULL,
    0x0000204000800080ULL, 0x0000200040401000ULL, 0x0000100080802000ULL, 0x0000080080801000ULL, 0x0000040080800800ULL, 0x0000020080800400ULL, 0x0000020001010004ULL, 0x0000800040800100ULL,
    0x0000204000808000ULL, 0x0000200040008080ULL, 0x0000100020008080ULL, 0x0000080010008080ULL, 0x0000040008008080ULL, 0x0000020004008080ULL, 0x0000010002008080ULL, 0x0000004081020004ULL,
    0x0000204000800080ULL, 0x0000200040008080ULL, 0x0000100020008080ULL, 0x0000080010008080ULL, 0x0000040008008080ULL, 0x0000020004008080ULL, 0x0000800100020080ULL, 0x0000800041000080ULL,
    0x00FFFCDDFCED714AULL, 0x007FFCDDFCED714AULL, 0x003FFFCDFFD88096ULL, 0x0000040810002101ULL, 0x0001000204080011ULL, 0x0001000204000801ULL, 0x0001000082000401ULL, 0x0001FFFAABFAD1A2ULL,
};

const Bitboard kBishopMultipliers[64] = {
    0x0002020202020200ULL, 0x0002020202020000ULL, 0x0004010202000000ULL, 0x0004040080000000ULL, 0x0001104000000000ULL, 0x0000821040000000ULL, 0x0000410410400000ULL, 0x0000104104104000ULL,
    0x0000040404040400ULL, 0x0000020202020200ULL, 0x0000040102020000ULL, 0x0000040400800000ULL, 0x0000011040000000ULL, 0x0000008210400000ULL, 0x0000004104104000ULL, 0x0000002082082000ULL,
    0x0004000808080800ULL, 0x0002000404040400ULL, 0x0001000202020200ULL, 0x0000800802004000ULL, 0x0000800400A00000ULL, 0x0000200100884000ULL, 0x0000400082082000ULL, 0x0000200041041000ULL,
    0x0002080010101000ULL, 0x0001040008080800ULL, 0x0000208004010400ULL, 0x0000404004010200ULL, 0x0000840000802000ULL, 0x0000404002011000ULL, 0x0000808001041000ULL, 0x0000404000820800ULL,
    0x0001041000202000ULL, 0x0000820800101000ULL, 0x0000104400080800ULL, 0x0000020080080080ULL, 0x0000404040040100ULL, 0x0000808100020100ULL, 0x0001010100020800ULL, 0x0000808080010400ULL,
    0x0000820820004000ULL, 0x0000410410002000ULL, 0x0000082088001000ULL, 0x0000002011000800ULL, 0x0000080100400400ULL, 0x0001010101000200ULL, 0x0002020202000400ULL, 0x0001010101000200ULL,
    0x0000410410400000ULL, 0x0000208208200000ULL, 0x0000002084100000ULL, 0x0000000020880000ULL, 0x0000001002020000ULL, 0x0000040408020000ULL, 0x0004040404040000ULL, 0x0002020202020000ULL,
    0x0000104104104000ULL, 0x0000002082082000ULL, 0x0000000020841000ULL, 0x0000000000208800ULL, 0x0000000010020200ULL, 0x0000000404080200ULL, 0x0000040404040400ULL, 0x0002020202020200ULL,
};

const uint8_t kRookShifts[64] = {
    52, 53, 53, 53, 53, 53, 53, 52,
    53, 54, 54, 54, 54, 54, 54, 53,
    53, 54, 54, 54, 54, 54, 54, 53,
    53, 54, 54, 54, 54, 54, 54, 53,
    53, 54, 54, 54, 54, 54, 54, 53,
    53, 54, 54, 54, 54, 54, 54, 53,
    53, 54, 54, 54, 54, 54, 54, 53,
    53, 54, 54, 53, 53, 53, 53, 53,
};

const uint8_t kBishopShifts[64] = {
    58, 59, 59, 59, 59, 59, 59, 58,
    59, 59, 59, 59, 59, 59, 59, 59,
    59, 59, 57, 57, 57, 57, 59, 59,
    59, 59, 57, 55, 55, 57, 59, 59,
    59, 59, 57, 55, 55, 57, 59, 59,
    59, 59, 57, 57, 57, 57, 59, 59,
    59, 59, 59, 59, 59, 59, 59, 59,
    58, 59, 59, 59, 59, 59, 59, 58,
};
constexpr int kRookDirs[4][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
constexpr int kBishopDirs[4][2] = {{1, 1}, {1, -1}, {-1, 1}, {-1, -1}};

constexpr bool onBoard(int file, int rank) { return file >= 0 && file < 8 && rank >= 0 && rank < 8; }

// Relevant occupancy: the rays from s without s and without the last square of each ray.
constexpr Bitboard relevantMask(int s, const int (*dirs)[2]) {
    Bitboard mask = 0;
    for (int d = 0; d < 4; ++d) {
        int f = fileOf(s) + dirs[d][0], r = rankOf(s) + dirs[d][1];
        while (onBoard(f + dirs[d][0], r + dirs[d][1])) {
            mask |= 1ULL << makeSquare(f, r);
            f += dirs[d][0];
            r += dirs[d][1];
        }
    }
    return mask;
}

struct MaskTable {
    Bitboard rook[64];
    Bitboard bishop[64];
};

constexpr MaskTable buildMasks() {
    MaskTable t{};
    for (int s = 0; s < 64; ++s) {
        t.rook[s] = relevantMask(s, kRookDirs);
        t.bishop[s] = relevantMask(s, kBishopDirs);
    }
    return t;
}

constexpr MaskTable kMasks = buildMasks();

Bitboard rookTable[102400];
Bitboard bishopTable[5248];

// Walks the four rays one step at a time, stopping after the first occupied square.
Bitboard slowAttacks(int s, Bitboard occ, const int (*dirs)[2]) {
    Bitboard result = 0;
    for (int d = 0; d < 4; ++d) {
        int f = fileOf(s) + dirs[d][0], r = rankOf(s) + dirs[d][1];
        while (onBoard(f, r)) {
            Bitboard b = 1ULL << makeSquare(f, r);
            result |= b;
            if (occ & b) break;
            f += dirs[d][0];
            r += dirs[d][1];
        }
    }
    return result;
}

// Occupancy number `index` of a mask: bit k of index goes to the k-th set bit of the mask.
Bitboard subsetOf(Bitboard mask, unsigned index) {
    Bitboard occ = 0;
    for (unsigned k = 0; mask; ++k) {
        Bitboard low = mask & (0 - mask);
        if (index & (1u << k)) occ |= low;
        mask ^= low;
    }
    return occ;
}

void fillSlider(Magic* magics, Bitboard* table, const Bitboard* masks, const Bitboard* multipliers,
                const uint8_t* shifts, const int (*dirs)[2], bool ordinarySlices) {
    Bitboard* next = table;
    for (int s = 0; s < 64; ++s) {
        Magic& m = magics[s];
        m.mask = masks[s];
        m.multiplier = multipliers[s];
        m.shift = shifts[s];
        m.attacks = next;
        const unsigned bits = 64 - m.shift;
        // Every subset of the mask gets its entry, also where the shift keeps fewer index bits
        // than the mask has (rook a8, b8, c8, h8): those multipliers map the extra subsets
        // onto entries with the same attacks.
        const unsigned maskBits = static_cast<unsigned>(popCount(m.mask));
        // Rook slices keep the ordinary size even where the shift needs only half of it.
        const unsigned sliceBits = ordinarySlices ? maskBits : bits;
        for (unsigned i = 0; i < (1u << maskBits); ++i) {
            Bitboard occ = subsetOf(m.mask, i);
            next[(occ * m.multiplier) >> m.shift] = slowAttacks(s, occ, dirs);
        }
        next += 1u << sliceBits;
    }
}

int squareIf(int file, int rank) { return onBoard(file, rank) ? makeSquare(file, rank) : -1; }

void initLines() {
    for (int s = 0; s < 64; ++s) {
        int f = fileOf(s), r = rankOf(s);
        for (int x = 0; x < 64; ++x)
            if (rankOf(x) == r) line[s][x] = rankMask[r];
        for (int x = 0; x < 64; ++x)
            if (fileOf(x) == f) line[s][x] = fileMask[f];
        Bitboard diag = diagonalMask[r + 7 - f], anti = antiDiagonalMask[r + f];
        for (int d = 0; d < 4; ++d) {
            for (int k = 1;; ++k) {
                int x = squareIf(f + kBishopDirs[d][0] * k, r + kBishopDirs[d][1] * k);
                if (x < 0) break;
                line[s][x] = (kBishopDirs[d][0] == kBishopDirs[d][1]) ? diag : anti;
            }
        }
        rookLines[s] = fileMask[f] | rankMask[r];
        bishopLines[s] = diag | anti;
        queenLines[s] = rookLines[s] | bishopLines[s];
        pawnAttacks[WHITE][s] = pawnAttacks[BLACK][s] = 0;
        if (s <= 55) {
            if (f > 0) pawnAttacks[WHITE][s] |= squareBit[s + 7];
            if (f < 7) pawnAttacks[WHITE][s] |= squareBit[s + 9];
        }
        if (s >= 8) {
            if (f > 0) pawnAttacks[BLACK][s] |= squareBit[s - 9];
            if (f < 7) pawnAttacks[BLACK][s] |= squareBit[s - 7];
        }
    }
}

void initBetween() {
    constexpr int dirs[8][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}, {1, 1}, {1, -1}, {-1, 1}, {-1, -1}};
    for (int a = 0; a < 64; ++a) {
        for (const auto& d : dirs) {
            int prev = a;
            for (int k = 1;; ++k) {
                int b = squareIf(fileOf(a) + d[0] * k, rankOf(a) + d[1] * k);
                if (b < 0) break;
                between[a][b] = (k == 1) ? 0 : (between[a][prev] | squareBit[prev]);
                prev = b;
            }
        }
    }
}

void initPawnSpans() {
    for (int s = 0; s < 64; ++s) {
        int f = fileOf(s);
        int top = makeSquare(f, 7), bottom = makeSquare(f, 0);
        forwardFile[WHITE][s] = s == top ? 0 : (between[s][top] | squareBit[top]);
        forwardFile[BLACK][s] = s == bottom ? 0 : (between[s][bottom] | squareBit[bottom]);
        passedSpan[WHITE][s] = passedSpan[BLACK][s] = 0;
        for (int x = s - 1; x <= s + 1; ++x) {
            if (x < 0 || x > 63 || rankOf(x) != rankOf(s)) continue;
            int xt = makeSquare(fileOf(x), 7), xb = makeSquare(fileOf(x), 0);
            passedSpan[WHITE][s] |= between[x][xt];
            passedSpan[BLACK][s] |= between[x][xb];
        }
    }
}

// One king step in every direction around the set.
Bitboard dilate(Bitboard x) {
    Bitboard a = x | ((x >> 1) & 0x7F7F7F7F7F7F7F7FULL);
    a |= (a << 1) & 0xFEFEFEFEFEFEFEFEULL;
    Bitboard y = a | (a >> 8);
    return y | (y << 8);
}

// The squares from which a king catches a pawn running to promotion.
void initPawnSquare() {
    for (int f = 0; f < 8; ++f) {
        pawnSquare[WHITE][makeSquare(f, 7)] = squareBit[makeSquare(f, 7)];
        for (int r = 6; r >= 2; --r)
            pawnSquare[WHITE][makeSquare(f, r)] = dilate(pawnSquare[WHITE][makeSquare(f, r + 1)]);
        pawnSquare[WHITE][makeSquare(f, 1)] = pawnSquare[WHITE][makeSquare(f, 2)];
        pawnSquare[WHITE][makeSquare(f, 0)] = 0;

        pawnSquare[BLACK][makeSquare(f, 0)] = squareBit[makeSquare(f, 0)];
        for (int r = 1; r <= 5; ++r)
            pawnSquare[BLACK][makeSquare(f, r)] = dilate(pawnSquare[BLACK][makeSquare(f, r - 1)]);
        pawnSquare[BLACK][makeSquare(f, 6)] = pawnSquare[BLACK][makeSquare(f, 5)];
        pawnSquare[BLACK][makeSquare(f, 7)] = 0;
    }
}

Bitboard leaperTargets(int s, const int (*offsets)[2], int count) {
    Bitboard b = 0;
    for (int i = 0; i < count; ++i) {
        int x = squareIf(fileOf(s) + offsets[i][0], rankOf(s) + offsets[i][1]);
        if (x >= 0) b |= squareBit[x];
    }
    return b;
}

}  // namespace

void initMagics() {
    fillSlider(rookMagics, rookTable, kMasks.rook, kRookMultipliers, kRookShifts, kRookDirs, true);
    fillSlider(bishopMagics, bishopTable, kMasks.bishop, kBishopMultipliers, kBishopShifts,
               kBishopDirs, false);
}

void initTables() {
    initMagics();
    for (int s = 0; s < 64; ++s) squareBit[s] = 1ULL << s;
    for (int i = 0; i < 8; ++i) {
        fileMask[i] = kFileA << i;
        rankMask[i] = kRank1 << (8 * i);
    }
    for (int s = 0; s < 64; ++s) {
        fileMaskOf[s] = fileMask[fileOf(s)];
        rankMaskOf[s] = rankMask[rankOf(s)];
    }
    for (int i = 0; i < 15; ++i) diagonalMask[i] = antiDiagonalMask[i] = 0;
    for (int s = 0; s < 64; ++s) {
        diagonalMask[rankOf(s) + 7 - fileOf(s)] |= squareBit[s];
        antiDiagonalMask[rankOf(s) + fileOf(s)] |= squareBit[s];
    }
    initLines();
    initBetween();
    initPawnSpans();
    initPawnSquare();
    constexpr int knightSteps[8][2] = {{1, 2}, {2, 1}, {2, -1}, {1, -2}, {-1, -2}, {-2, -1}, {-2, 1}, {-1, 2}};
    constexpr int kingSteps[8][2] = {{1, 0}, {1, 1}, {0, 1}, {-1, 1}, {-1, 0}, {-1, -1}, {0, -1}, {1, -1}};
    for (int s = 0; s < 64; ++s) {
        knightAttacks[s] = leaperTargets(s, knightSteps, 8);
        kingAttacks[s] = leaperTargets(s, kingSteps, 8);
    }
    for (int i = 0; i < 64; ++i) bitIndex[((1ULL << i) * kDeBruijn) >> 58] = static_cast<uint32_t>(i);
}

void printBitboard(Bitboard b, const char* title, FILE* out) {
    for (int r = 7; r >= 0; --r) {
        for (int f = 0; f < 8; ++f) fprintf(out, " %c", (b >> makeSquare(f, r)) & 1 ? 'x' : '.');
        fputc('\n', out);
    }
    fprintf(out, "%08x%08x %s\n", static_cast<unsigned>(b >> 32), static_cast<unsigned>(b), title);
}

}  // namespace quarn
