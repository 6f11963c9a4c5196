#include "eval/racing.h"

namespace quarn {

namespace {

constexpr int kRaceWin = 500;                // a runner that queens with this move
constexpr int kRacePerMove = 10;             // less for every move it still needs

// Escort moves the pair race adds to the pawn's own moves: once the king stands beside or in
// front of the pawn's next two squares it mostly just walks along; a king that only got onto the
// square straight ahead blocks its own pawn and must first walk round it; a king already two
// squares ahead must still step off the file before the pawn can pass.
constexpr int kEscortFromZone = 2;
constexpr int kEscortFromFront = 6;
constexpr int kEscortFromAhead = 4;

// The set grown by one king step in every direction, the set itself included.
inline Bitboard grow(Bitboard b) {
    const Bitboard row = b | ((b << 1) & kNotFileA) | ((b >> 1) & kNotFileH);
    return row | (row << 8) | (row >> 8);
}

template <int Us>
constexpr int kPush = Us == WHITE ? 8 : -8;

template <int Us>
constexpr Bitboard shiftForward(Bitboard b) {
    return Us == WHITE ? b << 8 : b >> 8;
}

// Pawn moves still needed to queen from `square`, one rank at a time.
template <int Us>
constexpr int movesToQueen(int square) {
    return Us == WHITE ? 7 - rankOf(square) : rankOf(square);
}

// Whether a king standing anywhere in `king` gets onto the runner's path before it queens.
// The runner moves first, then the king region grows one step; squares our king or pawns hold
// and the squares the runner attacks are closed to it. Reaching the promotion square after the
// last push means taking the new queen.
template <int Us>
bool kingCatches(Bitboard king, Bitboard guarded, int start) {
    Bitboard path = forwardFile[Us][start] | squareBit[start];
    king &= ~guarded;
    if (king & path) return true;
    for (int q = start + kPush<Us>; q >= 0 && q < 64; q += kPush<Us>) {
        king = grow(king) & ~guarded & ~pawnAttacks[Us][q];
        path &= ~squareBit[q - kPush<Us>];
        if (king & path) return true;
    }
    return false;
}

// Moves the fastest runner of `Us` needs to queen when the defender has only king and pawns;
// kNoRace when every passer can be caught.
template <int Us>
int unstoppableCount(const Position& pos, Bitboard passers) {
    constexpr int them = Us ^ 1;
    const SideBlock& own = pos.side[Us];
    const SideBlock& opp = pos.side[them];
    // 1. Any piece of the defender stops or gives itself for a lone runner.
    if (opp.material & kPieceFields) return kNoRace;
    // 2. Where the defending king stands when our next move is played.
    const int ourKing = static_cast<int>(own.kingSquare);
    const int theirKing = static_cast<int>(opp.kingSquare);
    const Bitboard reach = pos.sideToMove == static_cast<uint32_t>(them) ? kingAttacks[theirKing]
                                                                         : squareBit[theirKing];
    const Bitboard grown = grow(reach);
    const Bitboard towardsDefender = shiftForward<Us>(grown);
    const Bitboard guarded = kingAttacks[ourKing] | own.pieces[PAWN];

    // 3. Every passer.
    int best = kNoRace;
    for (Bitboard b = passers; b;) {
        const int sq = popLsb(b);
        const int start = movesToQueen<Us>(sq) == 6 ? sq + kPush<Us> : sq;  // double step
        const Bitboard path = forwardFile[Us][start] | squareBit[start];
        // a. Inside the pawn's square the king may still be too slow; run the chase.
        if ((reach & pawnSquare[Us][sq]) && kingCatches<Us>(reach, guarded, start)) continue;
        // b., c. Counted from `start`, as the chase is: a pawn on its first rank reaches the
        // fourth with its first move. Our own king in front costs a move; in a rook-file
        // corner it may be shut in.
        int moves = movesToQueen<Us>(start);
        if (forwardFile[Us][sq] & squareBit[ourKing]) {
            const bool rookFile = (fileMaskOf[sq] & (kFileA | kFileH)) != 0;
            if (rookFile &&
                !(kingAttacks[ourKing] & ~(grown | towardsDefender | own.pieces[0] | path)))
                continue;
            ++moves;
        }
        // d. A queen that arrives with check wins the defender's next move.
        const int promotion = Us == WHITE ? 56 + fileOf(sq) : fileOf(sq);
        if (queenAttacks(promotion, pos.occupied) & squareBit[theirKing]) --moves;
        if (moves < best) best = moves;
    }
    return best;
}

// The smallest pawn move count among the passers whose target (the zone in front, or the front
// square alone) the region `king` has reached.
template <int Us>
int fastestReached(Bitboard passers, Bitboard king, bool zoneOnly) {
    int best = kNoRace;
    for (Bitboard b = passers; b;) {
        const int sq = popLsb(b), ahead = sq + kPush<Us>;
        const Bitboard target = zoneOnly ? kingAttacks[ahead] & ~rankMaskOf[sq] : squareBit[ahead];
        if ((king & target) && movesToQueen<Us>(sq) < best) best = movesToQueen<Us>(sq);
    }
    return best;
}

template <int Us>
int pairRace(const Position& pos, Bitboard passers) {
    constexpr int them = Us ^ 1;
    passers &= ~(kFileA | kFileH);
    if (!passers) return kNoRace;
    const int ourKing = static_cast<int>(pos.side[Us].kingSquare);
    const int theirKing = static_cast<int>(pos.side[them].kingSquare);

    // The king already two squares in front with the defender out of the pawn's way: won.
    int best = kNoRace;
    Bitboard zone = 0, front = 0;
    for (Bitboard b = passers; b;) {
        const int sq = popLsb(b), ahead = sq + kPush<Us>;
        const int toQueen = movesToQueen<Us>(sq);
        if (toQueen >= 2 && ourKing == ahead + kPush<Us> &&
            !(forwardFile[Us][sq] & squareBit[theirKing]) && toQueen + kEscortFromAhead < best)
            best = toQueen + kEscortFromAhead;
        zone |= kingAttacks[ahead] & ~rankMaskOf[sq];
        front |= squareBit[ahead];
    }
    if (best != kNoRace) return best;

    // Both king regions grow a step per move, the side to move first. A region never enters
    // squares the other one already holds nor squares the other side's pawns attack, so the
    // first king to arrive keeps a square. Our target is checked before the defender's at each
    // count, which is right both ways: with us to move our k-th move comes before the
    // defender's k-th, with the defender to move it comes before the defender's (k + 1)-th.
    const Bitboard ourPawnGuard = pawnAttackSet<Us>(pos.side[Us].pieces[PAWN]);
    const Bitboard theirPawnGuard = pawnAttackSet<them>(pos.side[them].pieces[PAWN]);
    Bitboard ours = squareBit[ourKing], theirs = squareBit[theirKing];
    if (pos.sideToMove == static_cast<uint32_t>(them))
        theirs = grow(theirs) & ~ours & ~ourPawnGuard;
    for (int k = 0;; ++k) {
        if (ours & zone) return k + kEscortFromZone + fastestReached<Us>(passers, ours, true);
        if (ours & front) return k + kEscortFromFront + fastestReached<Us>(passers, ours, false);
        if (theirs & front) return kNoRace;
        const Bitboard next = grow(ours) & ~theirs & ~theirPawnGuard;
        if (!(next & ~ours)) return kNoRace;
        ours = next;
        theirs = grow(theirs) & ~ours & ~ourPawnGuard;
    }
}

}  // namespace

// The king race for the b- to g-file passers of `colour` against a bare king, settled so that
// its count reads like a lone runner's (the racing side's moves until a pawn queens):
// - Zone of a passer: the squares one and two ranks ahead of it on its own and the adjacent
//   files, less the square straight in front. All passers race together; the defender reaching
//   the front square of any of them first ends the race with kNoRace.
// - count = k + the pawn's moves to queen (7 - rank for White, the 0-based rank for Black)
//   + 2 when the king reaches a zone, + 6 when it reaches only a front square; the most advanced
//   pawn whose target was reached counts.
// - k counts the racing side's moves: 0 when its king already stands in a zone (which wins
//   whoever is to move), then one per growth of its region.
// - The side to move moves first: with the defender to move its region grows once before the
//   count starts. A region takes the whole other region as closed ("just reached" by the
//   other king) and avoids the squares the other side's pawns attack; our king may pass over
//   our own pawns.
// - Start shortcut: our king two squares ahead on the pawn's file and the defending king not on
//   that file in front of the pawn: 11 - rank for White, rank + 4 for Black, whoever is to
//   move. That is the pawn's moves + 4, two more than from elsewhere in the zone, because
//   this king stands on the pawn's file and must step aside before the pawn can pass.
int passerPairRace(EvalContext& ctx, int colour) {
    return colour == WHITE ? pairRace<WHITE>(*ctx.pos, ctx.passers[WHITE])
                           : pairRace<BLACK>(*ctx.pos, ctx.passers[BLACK]);
}

int racingPasserScore(EvalContext& ctx) {
    const Position& pos = *ctx.pos;
    int white = unstoppableCount<WHITE>(pos, ctx.passers[WHITE]);
    int black = unstoppableCount<BLACK>(pos, ctx.passers[BLACK]);

    // 4. No lone runner: an escorted one may still win against a bare king.
    if (white == kNoRace && black == kNoRace) {
        if (!(pos.side[BLACK].material & kPieceFields) && !ctx.passers[BLACK])
            white = pairRace<WHITE>(pos, ctx.passers[WHITE]);
        if (!(pos.side[WHITE].material & kPieceFields) && !ctx.passers[WHITE])
            black = pairRace<BLACK>(pos, ctx.passers[BLACK]);
        if (white == kNoRace && black == kNoRace) return 0;
    }

    // 5. The faster runner wins; runners queening within a move of each other are even.
    const int whiteWins = kRaceWin - kRacePerMove * white;
    const int blackWins = -(kRaceWin - kRacePerMove * black);
    if (black == kNoRace) return whiteWins;
    if (white == kNoRace) return blackWins;
    if (pos.sideToMove == BLACK) {
        if (black <= white + 1) return black < white ? blackWins : 0;
        return whiteWins;
    }
    if (black <= white) return black < white - 1 ? blackWins : 0;
    return whiteWins;
}

}  // namespace quarn
