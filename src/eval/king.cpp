#include "eval/king.h"

#include <initializer_list>

#include "eval/pawns.h"

namespace quarn {

const int kingMgPenalty[64] = {
    10, 10, 10, 10, 10, 10, 10, 10,  //
    10, 10, 10, 10, 10, 10, 10, 10,  //
    10, 10, 10, 10, 10, 10, 10, 10,  //
    8,  8,  9,  10, 10, 9,  8,  8,   //
    6,  6,  7,  8,  8,  7,  6,  6,   //
    4,  4,  5,  6,  6,  5,  4,  4,   //
    2,  1,  2,  4,  4,  2,  1,  2,   //
    1,  0,  2,  3,  3,  2,  0,  1,   //
};

const int kingEgTable[64] = {
    -28, -24, -22, -20, -20, -22, -24, -28,  //
    -18, -8,  -2,  2,   2,   -2,  -8,  -18,  //
    -6,  2,   16,  24,  24,  16,  2,   -6,   //
    -4,  16,  24,  40,  40,  24,  16,  -4,   //
    -4,  8,   20,  32,  32,  20,  8,   -4,   //
    -6,  2,   8,   12,  12,  8,   2,   -6,   //
    -18, -8,  -2,  2,   2,   -2,  -8,  -18,  //
    -28, -24, -22, -20, -20, -22, -24, -28,  //
};

namespace {

// Endgame weight by the opponent's points 0..15.
constexpr int kKingEgScale[16] = {32, 32, 32, 32, 32, 32, 32, 32, 32, 32, 24, 24, 16, 16, 12, 8};

// Shelters of the pawn entry by first-rank file, b-file first.
constexpr int kLongSlot = 1, kShortSlot = 5;  // c and g

// Above this many points the opponent can still attack the king.
constexpr int kMiddlegamePoints = 15;
constexpr int kQueenWeight = 16;
constexpr int kShelterFloor = 9;  // below this attacking weight shelter does not matter

constexpr int kNearWeakPawn = 12, kOneStepWeakPawn = 8, kTwoStepsWeakPawn = 4;

Bitboard grow(Bitboard b) {
    b |= ((b << 1) & kNotFileA) | ((b >> 1) & kNotFileH);
    return b | (b << 8) | (b >> 8);
}

int occupiedCount(const Position& pos, std::initializer_list<int> squares) {
    int n = 0;
    for (int s : squares) n += pos.board[s] != 0;
    return n;
}

}  // namespace

int kingScore(EvalContext& ctx, int c) {
    const Position& pos = *ctx.pos;
    const int k = static_cast<int>(pos.side[c].kingSquare);
    const uint32_t opp = pos.side[c ^ 1].material;
    const int oppPoints = materialPoints(opp);
    ctx.shelter[c] = 0;

    if (oppPoints > kMiddlegamePoints) {
        // Middlegame: shelter of the king's first-rank file, and what castling could bring.
        const int f = oppPoints + kQueenWeight * materialCount(opp, QUEEN) - 16;
        if (f <= kShelterFloor) return 0;
        const PawnEntry::Side& cached = ctx.pawnEntry->side[c];
        int file = fileOf(k);
        file = file < 1 ? 1 : file > 6 ? 6 : file;
        const int v = cached.shelter[file - 1] - kingMgPenalty[k ^ flipSquare[c]];
        ctx.shelter[c] = v;
        int q = v, g = v;
        const uint8_t rights = pos.state.castling;
        if (rights & (c == WHITE ? WHITE_LONG : BLACK_LONG)) {
            // The right keeps the king at home, so c1 (c8) two squares to its left is cached;
            // a record set up by hand is looked at afresh.
            const int home = c == WHITE ? 4 : 60;
            const int shelter = k == home ? cached.shelter[kLongSlot] : kingShelterAt(ctx, c, k - 2);
            const int longSide = shelter - occupiedCount(pos, {k - 1, k - 2, k - 3});
            if (longSide > q) q = longSide;
        }
        if (rights & (c == WHITE ? WHITE_SHORT : BLACK_SHORT)) {
            const int shortSide = cached.shelter[kShortSlot] - occupiedCount(pos, {k + 1, k + 2});
            if (shortSide > g) g = shortSide;
        }
        return f * 4 * (q + g) / 32;
    }

    // Endgame: a king close to enemy pawns that no pawn defends.
    const Bitboard enemy = pos.side[c ^ 1].pieces[PAWN];
    const Bitboard safe =
        ~(c == WHITE ? pawnAttackSet<BLACK>(enemy) : pawnAttackSet<WHITE>(enemy));
    const Bitboard weak = enemy & safe;
    const Bitboard near = enemy & kingAttacks[k];
    int t = kNearWeakPawn * popCount(near & weak);
    const Bitboard d1 = grow(near & safe);
    t += kOneStepWeakPawn * popCount(d1 & weak);
    const Bitboard d2 = grow(d1 & safe);
    t += kTwoStepsWeakPawn * popCount(d2 & weak);
    return (t + kingEgTable[k ^ flipSquare[c]]) * kKingEgScale[oppPoints] / 32;
}

}  // namespace quarn
