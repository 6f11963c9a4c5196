#include "eval/pawns.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "board/move.h"
#include "eval/evaluate.h"
#include "eval/see.h"

namespace quarn {

namespace {

// Side-relative, rows from the side's eighth rank down to its first.
constexpr int16_t kPawnMg[64] = {
    0,   0,  0,  0,  0,  0,  0,  0,    //
    -12, 4,  20, 24, 24, 20, 4,  -12,  //
    -12, 4,  20, 24, 24, 20, 4,  -12,  //
    -12, 4,  18, 24, 24, 18, 4,  -12,  //
    -12, 0,  12, 24, 24, 12, 0,  -12,  //
    -12, -4, 7,  20, 20, 7,  -4, -12,  //
    -12, -4, 0,  12, 12, 0,  -4, -12,  //
    0,   0,  0,  0,  0,  0,  0,  0,    //
};

constexpr int16_t kPawnEg[64] = {
    0,  0,  0,  0, 0, 0,  0,  0,   //
    24, 20, 14, 5, 5, 14, 20, 24,  //
    24, 20, 14, 4, 4, 14, 20, 24,  //
    16, 12, 8,  3, 3, 8,  12, 16,  //
    8,  8,  2,  2, 2, 2,  8,  8,   //
    4,  4,  0,  1, 1, 0,  4,  4,   //
    4,  4,  0,  0, 0, 0,  4,  4,   //
    0,  0,  0,  0, 0, 0,  0,  0,   //
};

// Passed pawns by row from the side's eighth rank, the same on every file.
constexpr int kPassedMgByRow[8] = {0, 90, 60, 20, 4, 0, 0, 0};
constexpr int kPassedEgByRow[8] = {0, 120, 72, 40, 20, 8, 8, 0};
// By relative rank, 0 = the side's first rank.
constexpr int kPasserRankMg[8] = {0, 0, 0, 16, 32, 48, 64, 0};
constexpr int kPasserRankEg[8] = {0, 20, 20, 40, 64, 72, 96, 0};
// Enemy pawns storming the shelter, by row from the side's eighth rank.
constexpr int kStormWeight[8] = {0, 0, 0, 1, 1, 1, 1, 0};

constexpr int kDoubledMg = 8, kDoubledEg = 24;
constexpr int kWeakMg = 8, kWeakEg = 8;
constexpr int kWeakOpenMg = 12, kWeakOpenEg = 8;
constexpr int kWeakStopAttacked = 8;
constexpr int kWeakDefender = 4;
constexpr int kCandidateRowLimit = 40;  // relative index below 40: fourth rank or beyond

constexpr Bitboard kShelterZone[2] = {0x000000FFFFFFFF00ULL, 0x00FFFFFFFF000000ULL};
constexpr int kShelterBase = -16;
constexpr int kTableAlignment = 256;

constexpr int kEntryCheckUnused = 1;  // the pawnless structure has key 0: never match it blindly

void allocateEntries(PawnTable& table, uint32_t count) {
    const size_t bytes = static_cast<size_t>(count) * sizeof(PawnEntry) + kTableAlignment;
    // A new block comes zeroed from calloc without touching its pages (the old entries are not
    // kept): a thread's table is mapped as its searches first use it, not at start-up.
    std::free(table.raw);
    void* raw = std::calloc(1, bytes);
    if (!raw) {
        std::fprintf(stderr, "failed to allocate %u bytes for pawnhash\n", static_cast<unsigned>(bytes));
        std::abort();
    }
    table.raw = raw;
    const uintptr_t aligned = (reinterpret_cast<uintptr_t>(raw) + kTableAlignment - 1) &
                              ~static_cast<uintptr_t>(kTableAlignment - 1);
    table.entries = reinterpret_cast<PawnEntry*>(aligned);
    table.count = count;
    table.mask = count - 1;
    table.hits = table.stores = 0;
    table.entries[0].check = kEntryCheckUnused;
}

}  // namespace

void resizePawnTable(PawnTable& table, uint32_t requested) {
    uint32_t count = 1;
    while (count <= requested / 2) count <<= 1;
    allocateEntries(table, count);
}

void resetPawnTable(PawnTable& table, const Position* pos) {
    table.pos = pos;
    allocateEntries(table, 1);
}

void freePawnTable(PawnTable& table) {
    std::free(table.raw);
    table.raw = nullptr;
    table.entries = nullptr;
    table.count = table.mask = 0;
}

void pawnTerms(EvalContext& ctx, int c, PawnEntry& entry) {
    const Position& pos = *ctx.pos;
    const Bitboard own = pos.side[c].pieces[PAWN], enemy = pos.side[c ^ 1].pieces[PAWN];
    const int push = pawnPush[c];
    int mg = 0, eg = 0;
    for (Bitboard b = own; b;) {
        const int s = popLsb(b), r = s ^ flipSquare[c];
        mg += kPawnMg[r];
        eg += kPawnEg[r];
        const bool doubled = (forwardFile[c ^ 1][s] & own) != 0;
        if (doubled) {
            mg -= kDoubledMg;
            eg -= kDoubledEg;
        }
        const Bitboard blockers = passedSpan[c][s] & enemy;
        if (!blockers) {
            mg += kPassedMgByRow[r >> 3];
            eg += kPassedEgByRow[r >> 3];
            entry.passers |= squareBit[s];
            continue;
        }
        // A candidate: supported, half-open file, advanced, and only one pawn in its way.
        if ((kingAttacks[s] & own) && !(blockers & fileMaskOf[s]) && r < kCandidateRowLimit &&
            !doubled && !moreThanOne(blockers)) {
            const int bonus = kPassedMgByRow[r >> 3] * 3 / 4;
            mg += bonus;
            eg += bonus;
        }
        // Weak: no pawn of ours defends it or can come level with it.
        if (!(pawnAttacks[c ^ 1][s] & own) && !(passedSpan[c ^ 1][s + push] & ~fileMaskOf[s] & own)) {
            mg -= kWeakMg;
            eg -= kWeakEg;
            if (!(forwardFile[c][s] & enemy)) {
                mg -= kWeakOpenMg;
                eg -= kWeakOpenEg;
            }
            if (pawnAttacks[c][s + push] & enemy) {
                mg -= kWeakStopAttacked;
                eg -= kWeakStopAttacked;
            } else if (pawnAttacks[c][s] & own) {
                mg += kWeakDefender;
                eg += kWeakDefender;
            }
        }
    }
    entry.side[c].mg = static_cast<int16_t>(mg);
    entry.side[c].eg = static_cast<int16_t>(eg);
}

int kingShelterAt(const EvalContext& ctx, int c, int k) {
    const Position& pos = *ctx.pos;
    const Bitboard own = pos.side[c].pieces[PAWN], enemy = pos.side[c ^ 1].pieces[PAWN];
    const int push = pawnPush[c];
    int v = kShelterBase;
    for (Bitboard b = passedSpan[c][k] & kShelterZone[c] & enemy; b;) {
        const int e = popLsb(b);
        v -= kStormWeight[(e ^ flipSquare[c]) >> 3];
        // A storming pawn that is blocked and attacks nothing is less of a threat.
        if (!(pawnAttacks[c ^ 1][e] & own) && (own & squareBit[e - push])) v += 1;
    }
    // The first pawn of ours on the files next to and of the king, going forward, as far as
    // the board and the rule's values reach.
    const int inner = fileOf(k) < 4 ? 1 : -1, outer = -inner;
    const int ranksAhead = c == WHITE ? 7 - rankOf(k) : rankOf(k);
    struct FileRule {
        int fileOffset;
        int values[4];
    };
    const FileRule rules[3] = {{inner, {3, 2, 1, 0}}, {0, {6, 4, 3, 2}}, {outer, {6, 5, 3, 2}}};
    for (const FileRule& rule : rules) {
        const int file = fileOf(k) + rule.fileOffset;
        if (file < 0 || file > 7) continue;
        int sq = k + rule.fileOffset;
        for (int n = 0; n < ranksAhead && n < 4 && rule.values[n]; ++n) {
            sq += push;
            if (own & squareBit[sq]) {
                v += rule.values[n];
                break;
            }
        }
    }
    return v;
}

void passerScore(const EvalContext& ctx, int c, int& mg, int& eg) {
    const Position& pos = *ctx.pos;
    const SideBlock& us = pos.side[c];
    const SideBlock& them = pos.side[c ^ 1];
    const uint32_t opp = them.material;
    const bool oppBishop = materialCount(opp, BISHOP) > 0, oppKnight = materialCount(opp, KNIGHT) > 0;
    const bool oppRook = materialCount(opp, ROOK) > 0, oppQueen = materialCount(opp, QUEEN) > 0;
    // Knights and rooks alone stop a supported passer poorly.
    const bool weakBlockade = !oppBishop && !oppQueen && (oppKnight || oppRook);
    const int push = pawnPush[c];
    const Bitboard ownPawns = us.pieces[PAWN];

    for (Bitboard b = ctx.passers[c]; b;) {
        const int s = popLsb(b), stop = s + push;
        // 1. What the opponent has to blockade with.
        int bonus = 16;
        if (oppBishop || (oppKnight && oppRook))
            bonus = 0;
        else if (oppKnight || oppRook)
            bonus = 8;
        // 2. Defended by a pawn.
        if (pawnAttacks[c ^ 1][s] & ownPawns) bonus += 4 + (weakBlockade ? 8 : 0);
        // 3-4. Connected, or else free to advance.
        const bool connected = (pawnAttacks[c][s - push] & ownPawns) != 0;
        if (!connected) {
            if (them.pieces[0] & squareBit[stop]) {
                bonus -= 12;
            } else {
                Move advance = makeMoveWord(s, stop, 0);
                if (squareBit[stop] & (kRank1 | kRank8)) advance = withPromotion(advance, QUEEN);
                if (see(pos, advance) >= 0) bonus += 8;
            }
        } else {
            bonus += 32 + (weakBlockade ? 8 : 0);
        }
        // 5. Nothing of the enemy's ahead; our own rook in front of a lone passer hinders it.
        if (!(forwardFile[c][s] & them.pieces[0])) bonus += 8;
        if (!connected && (forwardFile[c][s] & us.pieces[ROOK])) bonus -= 8;
        // 6. Middlegame half by rank.
        const int rr = c == WHITE ? rankOf(s) : 7 - rankOf(s);
        mg += kPasserRankMg[rr] * bonus / 64;
        // 7. Endgame half: the kings' race to the pawn's path, and heavy pieces behind it.
        const int dOpp = squareDistance(static_cast<int>(them.kingSquare), stop);
        const int ahead = rankOf(stop) + (c == WHITE ? 1 : -1);
        const int own = static_cast<int>(us.kingSquare);
        const int dfOwn = std::abs(fileOf(own) - fileOf(stop)), drOwn = std::abs(rankOf(own) - ahead);
        const int dOwn = dfOwn > drOwn ? dfOwn : drOwn;
        const Bitboard behind = forwardFile[c ^ 1][s];
        int e = 16 * (dOpp - 2) + 8 * (4 - dOwn) + bonus;
        if (behind & them.pieces[ROOK]) e -= 8;
        if (behind & (us.pieces[QUEEN] | us.pieces[ROOK])) e += 8;
        if (us.pieces[QUEEN]) e += 8;
        eg += e * kPasserRankEg[rr] / 64;
    }
}

int pawnScore(EvalContext& ctx) {
    const Position& pos = *ctx.pos;
    PawnTable& table = ctx.pawnTable;
    const uint64_t key = pos.state.pawnKey;
    PawnEntry& entry = table.entries[key & table.mask];
    const uint32_t check = static_cast<uint32_t>(key >> 32);
    if (entry.check == check) {
        ++table.hits;
    } else {
        ++table.stores;
        entry.check = check;
        entry.passers = 0;
        pawnTerms(ctx, WHITE, entry);
        pawnTerms(ctx, BLACK, entry);
        for (int c = WHITE; c <= BLACK; ++c)
            for (int file = 1; file <= 6; ++file)
                entry.side[c].shelter[file - 1] = static_cast<int8_t>(
                    kingShelterAt(ctx, c, makeSquare(file, c == WHITE ? 0 : 7)));
    }
    ctx.pawnEntry = &entry;
    ctx.passers[WHITE] = entry.passers & pos.side[WHITE].pieces[0];
    ctx.passers[BLACK] = entry.passers & pos.side[BLACK].pieces[0];

    int mgW = entry.side[WHITE].mg, egW = entry.side[WHITE].eg;
    int mgB = entry.side[BLACK].mg, egB = entry.side[BLACK].eg;
    passerScore(ctx, WHITE, mgW, egW);
    passerScore(ctx, BLACK, mgB, egB);
    // Each side's pawns count in the endgame as the opponent's pieces come off.
    const int wPoints = materialPoints(pos.side[WHITE].material);
    const int bPoints = materialPoints(pos.side[BLACK].material);
    return (bPoints * mgW + (32 - bPoints) * egW) / 32 - (wPoints * mgB + (32 - wPoints) * egB) / 32;
}

}  // namespace quarn
