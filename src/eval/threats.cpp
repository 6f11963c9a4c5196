#include "eval/threats.h"

#include "eval/see.h"
#include "eval/values.h"

namespace quarn {

namespace {

constexpr int kPawnUnits = 100;              // exchange values are in pawns
constexpr int kPinnedQueenDiscount = 50;     // the pinned queen's owner may still find a resource
constexpr int kForkDiscount = 150;           // the pawn is often won back, and the fork may fail

template <int Us>
Bitboard attackedByT(const Position& pos) {
    constexpr int them = Us ^ 1;
    const SideBlock& s = pos.side[Us];
    const Bitboard occ = pos.occupied ^ pos.side[them].pieces[KING];
    Bitboard attacks = pawnAttackSet<Us>(s.pieces[PAWN]) | kingAttacks[s.kingSquare];
    for (Bitboard b = s.pieces[KNIGHT]; b;) attacks |= knightAttacks[popLsb(b)];
    for (Bitboard b = s.pieces[BISHOP] | s.pieces[QUEEN]; b;)
        attacks |= bishopAttacks(popLsb(b), occ);
    for (Bitboard b = s.pieces[ROOK] | s.pieces[QUEEN]; b;) attacks |= rookAttacks(popLsb(b), occ);
    return attacks;
}

// Pieces of `colour` other than the king that could take on `square`, sliders seen over `occ`.
Bitboard defenders(const Position& pos, int colour, int square, Bitboard occ) {
    const SideBlock& s = pos.side[colour];
    return (pawnAttacks[colour ^ 1][square] & s.pieces[PAWN]) |
           (knightAttacks[square] & s.pieces[KNIGHT]) |
           (bishopAttacks(square, occ) & (s.pieces[BISHOP] | s.pieces[QUEEN])) |
           (rookAttacks(square, occ) & (s.pieces[ROOK] | s.pieces[QUEEN]));
}

// Whether a piece of `colour` arriving on `square` from `from` is protected there against the
// king: by a pawn, knight or the king of that colour, or by a slider seen with `from` emptied
// (so a queen or rook right behind the mover counts). The mover itself does not count.
bool supported(const Position& pos, int colour, int square, int from) {
    const Bitboard occ = pos.occupied ^ squareBit[from];
    return ((defenders(pos, colour, square, occ) |
             (kingAttacks[square] & pos.side[colour].pieces[KING])) &
            ~squareBit[from]) != 0;
}

// Attacks of `us` once its piece on `from` stands on `to`, over `occ` (the occupancy after the
// move), sliders looking through the other side's king.
Bitboard attacksAfter(const Position& pos, int us, int from, int to, Bitboard occ) {
    const SideBlock& s = pos.side[us];
    const Bitboard through = occ & ~pos.side[us ^ 1].pieces[KING];
    const Bitboard moved = ~squareBit[from];
    const int moverType = typeOf(pos.board[from]);
    Bitboard attacks = (us == WHITE ? pawnAttackSet<WHITE>(s.pieces[PAWN])
                                    : pawnAttackSet<BLACK>(s.pieces[PAWN])) |
                       kingAttacks[s.kingSquare];
    for (Bitboard b = s.pieces[KNIGHT] & moved; b;) attacks |= knightAttacks[popLsb(b)];
    Bitboard diagonal = (s.pieces[BISHOP] | s.pieces[QUEEN]) & moved;
    Bitboard straight = (s.pieces[ROOK] | s.pieces[QUEEN]) & moved;
    if (moverType == BISHOP || moverType == QUEEN) diagonal |= squareBit[to];
    if (moverType == ROOK || moverType == QUEEN) straight |= squareBit[to];
    if (moverType == KNIGHT) attacks |= knightAttacks[to];
    while (diagonal) attacks |= bishopAttacks(popLsb(diagonal), through);
    while (straight) attacks |= rookAttacks(popLsb(straight), through);
    return attacks;
}

// Pieces of `colour` other than the king that could step onto the empty `square`.
Bitboard interposers(const Position& pos, int colour, int square, Bitboard occ) {
    const SideBlock& s = pos.side[colour];
    const int push = colour == WHITE ? 8 : -8;
    const int doubleRank = colour == WHITE ? 3 : 4;
    Bitboard pawns = 0;
    const int single = square - push;
    if (single >= 0 && single < 64) {
        pawns |= squareBit[single] & s.pieces[PAWN];
        if (rankOf(square) == doubleRank && !(occ & squareBit[single]))
            pawns |= squareBit[single - push] & s.pieces[PAWN];
    }
    return pawns | (knightAttacks[square] & s.pieces[KNIGHT]) |
           (bishopAttacks(square, occ) & (s.pieces[BISHOP] | s.pieces[QUEEN])) |
           (rookAttacks(square, occ) & (s.pieces[ROOK] | s.pieces[QUEEN]));
}

// Whether the checking move from -> to of `us` really mates: after it, every flight square of
// the enemy king is covered (the square the mover left no longer counts, a square behind the
// mover may now be shielded), no other enemy piece can take the checker, and none can step
// between a distant checker and the king. Enemy pins are not looked at, so a pinned defender
// still counts as one: the test may miss a mate but never reports a false one.
bool confirmedMate(const Position& pos, int us, int from, int to) {
    const SideBlock& t = pos.side[us ^ 1];
    const int ksq = static_cast<int>(t.kingSquare);
    const Bitboard occ = (pos.occupied ^ squareBit[from]) | squareBit[to];
    const Bitboard flights = kingAttacks[ksq] & ~(t.pieces[0] & ~squareBit[to]);
    if (flights & ~attacksAfter(pos, us, from, to, occ)) return false;
    const Bitboard taken = ~squareBit[to];
    if (defenders(pos, us ^ 1, to, occ) & taken) return false;
    for (Bitboard b = between[to][ksq]; b;)
        if (interposers(pos, us ^ 1, popLsb(b), occ) & taken) return false;
    return true;
}

// 1. A queen landing next to the king, protected and out of the defender's reach, with every
// flight square held by the king's own pieces, attacked, or covered by the queen (which sees
// through the king, as the attack set does).
Move queenContactMate(const Position& pos, int us, Bitboard attacked) {
    const SideBlock& s = pos.side[us];
    const SideBlock& t = pos.side[us ^ 1];
    const int ksq = static_cast<int>(t.kingSquare);
    const Bitboard around = kingAttacks[ksq];
    for (Bitboard queens = s.pieces[QUEEN] & ~pos.state.kingBlockers[us]; queens;) {
        const int from = popLsb(queens);
        const Bitboard occ = pos.occupied ^ squareBit[from];
        for (Bitboard to = around & ~s.pieces[0] & queenAttacks(from, pos.occupied); to;) {
            const int q = popLsb(to);
            if (defenders(pos, us ^ 1, q, occ) || !supported(pos, us, q, from)) continue;
            const Bitboard cover = queenAttacks(q, occ ^ squareBit[ksq]);
            if (around & ~squareBit[q] & ~t.pieces[0] & ~attacked & ~cover) continue;
            if (!confirmedMate(pos, us, from, q)) continue;
            return makeMoveWord(from, q, pos.board[q]);
        }
    }
    return 0;
}

// 2. A rook check along the king's rank, then its file, where the king cannot leave the line.
// The rook lands where its file (rank) crosses the king's line, or, standing on the line
// already, takes the one piece between. Landing next to the king it needs the support of the
// queen contact mates: pawn, knight, king, or a slider seen through the rook's square. A piece
// dropped between a distant rook and the king is not looked for.
Move rookLineMate(const Position& pos, int us, Bitboard attacked) {
    const SideBlock& s = pos.side[us];
    const SideBlock& t = pos.side[us ^ 1];
    const int ksq = static_cast<int>(t.kingSquare);
    const Bitboard around = kingAttacks[ksq];
    for (const bool onRank : {true, false}) {
        const Bitboard kingLine = onRank ? rankMaskOf[ksq] : fileMaskOf[ksq];
        if (around & ~kingLine & ~t.pieces[0] & ~attacked) continue;
        for (Bitboard rooks = s.pieces[ROOK] & ~pos.state.kingBlockers[us]; rooks;) {
            const int from = popLsb(rooks);
            int target;
            if (kingLine & squareBit[from]) {
                const Bitboard inBetween = between[from][ksq] & pos.occupied;
                if (!inBetween || moreThanOne(inBetween)) continue;
                target = lsbIndex(inBetween);
            } else {
                target = onRank ? makeSquare(fileOf(from), rankOf(ksq))
                                : makeSquare(fileOf(ksq), rankOf(from));
                if (target == ksq) continue;
            }
            if ((s.pieces[0] & squareBit[target]) ||
                ((between[from][target] | between[target][ksq]) & pos.occupied))
                continue;
            if ((around & squareBit[target]) && !supported(pos, us, target, from)) continue;
            if (defenders(pos, us ^ 1, target, pos.occupied ^ squareBit[from])) continue;
            if (!confirmedMate(pos, us, from, target)) continue;
            return makeMoveWord(from, target, pos.board[target]);
        }
    }
    return 0;
}

}  // namespace

Bitboard attackedBy(const Position& pos, int colour) {
    if (pos.sideToMove != static_cast<uint32_t>(colour)) return pos.state.enemyAttacks;
    return colour == WHITE ? attackedByT<WHITE>(pos) : attackedByT<BLACK>(pos);
}

int threatScore(const Position& pos, int colour) {
    const int enemy = colour ^ 1;
    const SideBlock& s = pos.side[colour];
    const SideBlock& e = pos.side[enemy];
    int threat = 0;

    // 1. Enemy pawns queening on an empty square, when we have a piece to lose the race with
    // (bare kings and pawns are the racing term's business).
    if (s.material & kPieceFields) {
        const Bitboard seventh = enemy == WHITE ? rankMask[6] : rankMask[1];
        const int push = enemy == WHITE ? 8 : -8;
        for (Bitboard b = e.pieces[PAWN] & seventh; b;) {
            const int from = popLsb(b);
            if (pos.board[from + push]) continue;
            const int v = see(pos, withPromotion(makeMoveWord(from, from + push, 0), QUEEN));
            if (v > 0) threat += (v - 1) * kPawnUnits;
        }
    }

    // 2. Queens pinned to our king that the pinner or others can win.
    for (Bitboard b = s.pieces[QUEEN] & pos.state.kingBlockers[colour]; b;) {
        const int v = squareExchange(pos, popLsb(b));
        if (v < 0) threat += -kPawnUnits * v - kPinnedQueenDiscount;
    }

    // 3. Pawn forks: we save the more valuable piece and may take the pawn back for the other.
    // A piece whose move uncovers check on the enemy king is not really caught.
    const Bitboard pawnHits = enemy == WHITE ? pawnAttackSet<WHITE>(e.pieces[PAWN])
                                             : pawnAttackSet<BLACK>(e.pieces[PAWN]);
    const Bitboard forked =
        pawnHits & s.pieces[0] & ~s.pieces[PAWN] & ~pos.state.kingBlockers[enemy];
    if (moreThanOne(forked)) {
        int first = 0, second = 0;
        for (Bitboard b = forked; b;) {
            const int v = pieceValue[typeOf(pos.board[popLsb(b)])];
            if (v > first) {
                second = first;
                first = v;
            } else if (v > second) {
                second = v;
            }
        }
        if (second > 0) threat += kPawnUnits * second - kForkDiscount;
    }
    return threat;
}

Move mateThreatMove(const Position& pos, int colour) {
    const int enemy = colour ^ 1;
    const Bitboard attacked = attackedBy(pos, enemy);
    if (const Move m = queenContactMate(pos, enemy, attacked)) return m;
    if (!pos.side[enemy].pieces[ROOK]) return 0;
    return rookLineMate(pos, enemy, attacked);
}

}  // namespace quarn
