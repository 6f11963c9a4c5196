#include "eval/pieces.h"

#include "eval/king.h"

namespace quarn {

namespace {

// Placement tables are side-relative, rows from the side's eighth rank down to its first.
constexpr int kKnightMg[64] = {
    -64, -32, -32, -32, -32, -32, -32, -64,  //
    -32, -20, -12, -8,  -8,  -12, -20, -32,  //
    -24, 12,  20,  28,  28,  20,  12,  -24,  //
    -8,  -4,  16,  24,  24,  16,  -4,  -8,   //
    -16, 8,   10,  20,  20,  10,  8,   -16,  //
    -24, -16, -4,  8,   8,   -4,  -16, -24,  //
    -28, -24, -18, -12, -12, -18, -24, -28,  //
    -64, -32, -44, -32, -32, -44, -32, -64,  //
};

constexpr int kKnightEg[64] = {
    -64, -52, -44, -32, -32, -44, -52, -64,  //
    -40, -32, -28, -24, -24, -28, -32, -40,  //
    -32, -12, 4,   12,  12,  4,   -12, -32,  //
    -8,  4,   16,  16,  16,  16,  4,   -8,   //
    -12, 4,   16,  16,  16,  16,  4,   -12,  //
    -40, -12, -4,  8,   8,   -4,  -12, -40,  //
    -56, -32, -28, -24, -24, -28, -32, -56,  //
    -64, -52, -44, -32, -32, -44, -52, -64,  //
};

constexpr int kBishopMg[64] = {
    0,   0,   0,   0,   0,   0,   0,   0,    //
    0,   0,   0,   0,   0,   0,   0,   0,    //
    0,   0,   0,   2,   2,   0,   0,   0,    //
    0,   0,   2,   4,   4,   2,   0,   0,    //
    0,   0,   2,   4,   4,   2,   0,   0,    //
    0,   0,   2,   1,   1,   2,   0,   0,    //
    0,   1,   0,   0,   0,   0,   1,   0,    //
    -12, -12, -12, -12, -12, -12, -12, -12,  //
};

constexpr int kQueenPlacement[64] = {
    -2, 0, 1, 2, 2, 1, 0, -2,  //
    0,  1, 2, 3, 3, 2, 1, 0,   //
    1,  2, 3, 4, 4, 3, 2, 1,   //
    1,  2, 5, 6, 6, 5, 2, 1,   //
    1,  2, 5, 6, 6, 5, 2, 1,   //
    1,  2, 3, 4, 4, 3, 2, 1,   //
    0,  1, 2, 3, 3, 2, 1, 0,   //
    -2, 0, 1, 2, 2, 1, 0, -2,  //
};

// Mobility by the number of squares counted.
constexpr int kKnightMobMg[16] = {-32, -20, -12, -8, -4, -2, 0, 2, 4, 0, 0, 0, 0, 0, 0, 0};
constexpr int kKnightMobEg[16] = {-75, -50, -40, -30, -20, -10, -5, 0, 5, 0, 0, 0, 0, 0, 0, 0};
constexpr int kBishopMobMg[16] = {-32, -24, -18, -12, -6, -2, 2, 5, 8, 11, 14, 16, 18, 20, 21, 22};
constexpr int kBishopMobEg[16] = {-84, -68, -54, -40, -26, -12, -4, 2, 8, 12, 16, 18, 20, 22, 23, 24};
constexpr int kRookMobMg[16] = {-20, -16, -12, -8, -4, 0, 4, 8, 12, 16, 20, 24, 28, 32, 32, 32};
constexpr int kRookMobEg[16] = {-64, -48, -40, -36, -32, -24, -16, -8, 0, 4, 8, 10, 12, 14, 14, 14};
constexpr int kQueenMobMg[32] = {-32, -24, -16, -8, 0,  4,  6,  8,  10, 12, 13, 14, 15, 16, 16, 16,
                                 17,  17,  17,  18, 18, 18, 19, 19, 19, 19, 20, 20, 20, 20, 20, 20};
constexpr int kQueenMobEg[32] = {-50, -40, -30, -20, -12, -6, -2, 2,  4,  6,  8,  10, 12, 14, 16, 18,
                                 20,  21,  22,  23,  24,  25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35};

constexpr Bitboard kSeventhRank[2] = {0xFFULL << 48, 0xFFULL << 8};
constexpr Bitboard kEighthRank[2] = {kRank8, kRank1};

// A side needs more than this many points to attack the king.
constexpr int kAttackPoints = 12;
constexpr int kBlockedPawn = 8;       // enemy minor piece right in front of our pawn
constexpr int kBishopBehindPawn = 4;  // bishop with our pawn in front of it
constexpr int kKnightThreat = 20, kBishopThreat = 32, kRookThreat = 20, kQueenThreat = 8;
constexpr int kHalfOpenFile = 4, kOpenFile = 8, kOpenFileBonus = 8;
constexpr int kRookSeventh = 20, kQueenSeventh = 12;
constexpr int kMoverDanger = 4;

// The enemy king's square moved onto files b..g and ranks 2..7.
int kingZoneCentre(int king) {
    int f = fileOf(king), r = rankOf(king);
    f = f < 1 ? 1 : f > 6 ? 6 : f;
    r = r < 1 ? 1 : r > 6 ? 6 : r;
    return makeSquare(f, r);
}

struct KingAttack {
    bool on;
    Bitboard zone;
    int attackers = 0;
    int weight = 0;

    void add(Bitboard hits, int perSquare, int extra) {
        if (!on || !hits) return;
        ++attackers;
        weight += perSquare * popCount(hits) + extra;
    }
};

// One copy per colour, so that every side-relative choice below is made at compile time.
template <int c>
int pieceScoreT(const EvalContext& ctx) {
    const Position& pos = *ctx.pos;
    constexpr int e = c ^ 1;
    const SideBlock& us = pos.side[c];
    const SideBlock& them = pos.side[e];
    const int oppPoints = materialPoints(them.material);
    const int enemyKing = static_cast<int>(them.kingSquare);
    const Bitboard own = us.pieces[0], enemy = them.pieces[0], occ = pos.occupied;

    // Set-up: the zone around the enemy king and the squares enemy pawns control.
    const int z = kingZoneCentre(enemyKing);
    KingAttack attack{materialPoints(us.material) > kAttackPoints, squareBit[z] | kingAttacks[z]};
    const Bitboard freePawns = them.pieces[PAWN] & ~pos.state.kingBlockers[e];
    const Bitboard enemyPawnAttacks =
        e == WHITE ? pawnAttackSet<WHITE>(freePawns) : pawnAttackSet<BLACK>(freePawns);
    const Bitboard safe = ~enemyPawnAttacks;
    const Bitboard inFront = c == WHITE ? us.pieces[PAWN] << 8 : us.pieces[PAWN] >> 8;
    int bonus = -kBlockedPawn * popCount(inFront & (them.pieces[KNIGHT] | them.pieces[BISHOP]));
    int mg = 0, eg = 0;

    for (Bitboard b = us.pieces[KNIGHT]; b;) {
        const int s = popLsb(b), r = s ^ flipSquare[c];
        const Bitboard a = knightAttacks[s];
        attack.add(a & attack.zone & safe, 3, 0);
        const int m = popCount(a & ~(enemyPawnAttacks | own));
        mg += kKnightMg[r] + kKnightMobMg[m];
        eg += kKnightEg[r] + kKnightMobEg[m] + kKnightThreat * popCount(a & enemy & safe);
    }

    // Bishops look through enemy rooks and queens.
    const Bitboard bishopOcc = occ & ~(them.pieces[ROOK] | them.pieces[QUEEN]);
    for (Bitboard b = us.pieces[BISHOP]; b;) {
        const int s = popLsb(b), r = s ^ flipSquare[c];
        const Bitboard a = bishopAttacks(s, bishopOcc) & safe;
        attack.add(a & attack.zone, 3, (a & them.pieces[BISHOP]) ? 0 : 3);
        const int m = popCount(a);
        mg += kBishopMg[r] + kBishopMobMg[m];
        eg += kBishopMobEg[m] + kBishopThreat * popCount(a & enemy);
        if (!(squareBit[s] & (kRank1 | kRank8)) && (us.pieces[PAWN] & squareBit[s + pawnPush[c]]))
            bonus += kBishopBehindPawn;
    }

    // Rooks look through our rooks and queens and the enemy queens.
    const Bitboard rookOcc = occ & ~(us.pieces[ROOK] | us.pieces[QUEEN] | them.pieces[QUEEN]);
    const Bitboard enemyPawnGuards =
        e == WHITE ? pawnAttackSet<WHITE>(them.pieces[PAWN]) : pawnAttackSet<BLACK>(them.pieces[PAWN]);
    const bool seventhTarget = (them.pieces[PAWN] & kSeventhRank[c]) || (kEighthRank[c] & squareBit[enemyKing]);
    for (Bitboard b = us.pieces[ROOK]; b;) {
        const int s = popLsb(b);
        const Bitboard a = rookAttacks(s, rookOcc) & safe;
        attack.add(a & attack.zone, 4, 1 + ((a & them.pieces[ROOK]) ? 0 : 4));
        const int m = popCount(a & ~own);
        mg += kRookMobMg[m];
        eg += kRookMobEg[m] + kRookThreat * popCount(a & enemy);
        const Bitboard file = fileMaskOf[s];
        if (!(file & us.pieces[PAWN])) {
            mg += kHalfOpenFile;
            if (!(file & them.pieces[PAWN])) mg += kOpenFile;
            if (!(file & them.pieces[PAWN] & enemyPawnGuards)) bonus += kOpenFileBonus;
        }
        if ((kSeventhRank[c] & squareBit[s]) && seventhTarget) bonus += kRookSeventh;
    }

    // Queens look through our rooks.
    const Bitboard queenOcc = occ & ~us.pieces[ROOK];
    for (Bitboard b = us.pieces[QUEEN]; b;) {
        const int s = popLsb(b), r = s ^ flipSquare[c];
        const Bitboard a = queenAttacks(s, queenOcc) & safe;
        attack.add(a & attack.zone, 4, 4 + ((a & (them.pieces[ROOK] | them.pieces[QUEEN])) ? 0 : 4));
        const int m = popCount(a & ~own);
        mg += kQueenMobMg[m];
        eg += kQueenPlacement[r] + kQueenMobEg[m];
        if (const Bitboard hits = a & ~own & enemy) eg += kQueenThreat * popCount(hits);
        if ((kSeventhRank[c] & squareBit[s]) && seventhTarget) bonus += kQueenSeventh;
    }

    int result = mg * oppPoints / 32 + eg * (32 - oppPoints) / 32 + bonus;
    if (!attack.on) return result;

    // Danger to the enemy king grows with the square of the attack.
    const Bitboard pawnReach =
        c == WHITE ? pawnAttackSet<WHITE>(us.pieces[PAWN]) : pawnAttackSet<BLACK>(us.pieces[PAWN]);
    const Bitboard pawnHits = pawnReach & attack.zone;
    if (pawnHits) ++attack.attackers;
    const int danger = 4 * kingMgPenalty[enemyKing ^ flipSquare[e]] - ctx.shelter[e] + 2 * attack.weight +
                       (pawnHits ? (moreThanOne(pawnHits) ? 4 : 2) : 0) + 8 * attack.attackers +
                       (static_cast<int>(pos.sideToMove) == c ? kMoverDanger : 0);
    int d = danger / 4;
    if (d < 0) d = 0;
    return result + d * d * 6 / 64;
}

}  // namespace

int pieceScore(EvalContext& ctx, int c) {
    return c == WHITE ? pieceScoreT<WHITE>(ctx) : pieceScoreT<BLACK>(ctx);
}

}  // namespace quarn
