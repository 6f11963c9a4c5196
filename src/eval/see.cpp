#include "eval/see.h"

#include "eval/values.h"

namespace quarn {

namespace {

constexpr int kKingExchangeValue = 100;  // a king may only take last
constexpr int kPromotionGain = 8;
constexpr Bitboard kBackRanks = kRank1 | kRank8;

struct Attacker {
    int square;
    int value;  // what the opponent wins by taking it back
    int gain;   // extra won by the capture itself (promotion)
};

// The least valuable piece of `side` among the candidates that attacks the square.
bool leastAttacker(const ExchangeState& st, int side, Attacker& a) {
    const SideBlock& s = st.pos->side[side];
    const Bitboard mine = st.candidates & s.pieces[0];
    const Bitboard occ = st.candidates | st.blockers;
    const int sq = static_cast<int>(st.square);
    const bool promotes = (kBackRanks & squareBit[sq]) != 0;
    Bitboard b;
    if ((b = pawnAttacks[side ^ 1][sq] & mine & s.pieces[PAWN])) {
        a = {lsbIndex(b), promotes ? kPromotionGain : pieceValue[PAWN], promotes ? kPromotionGain : 0};
        return true;
    }
    if ((b = knightAttacks[sq] & mine & s.pieces[KNIGHT])) {
        a = {lsbIndex(b), pieceValue[KNIGHT], 0};
        return true;
    }
    const Bitboard diagonal = bishopAttacks(sq, occ);
    if ((b = diagonal & mine & s.pieces[BISHOP])) {
        a = {lsbIndex(b), pieceValue[BISHOP], 0};
        return true;
    }
    const Bitboard straight = rookAttacks(sq, occ);
    if ((b = straight & mine & s.pieces[ROOK])) {
        a = {lsbIndex(b), pieceValue[ROOK], 0};
        return true;
    }
    if ((b = (diagonal | straight) & mine & s.pieces[QUEEN])) {
        a = {lsbIndex(b), pieceValue[QUEEN], 0};
        return true;
    }
    if ((b = kingAttacks[sq] & mine & s.pieces[KING])) {
        a = {lsbIndex(b), kKingExchangeValue, 0};
        return true;
    }
    return false;
}

// Pieces that moving away from `from` leaves alone between the opponent king and one of our
// sliders on the line the move abandons.
Bitboard newPins(const Position& pos, int us, int from, int to) {
    const int ksq = static_cast<int>(pos.side[us ^ 1].kingSquare);
    const SideBlock& s = pos.side[us];
    const Bitboard occ = pos.occupied & ~squareBit[from];
    Bitboard found = 0;
    const Bitboard kinds[2][2] = {{bishopLines[ksq], s.pieces[BISHOP] | s.pieces[QUEEN]},
                                  {rookLines[ksq], s.pieces[ROOK] | s.pieces[QUEEN]}};
    for (const auto& kind : kinds) {
        if (!(kind[0] & squareBit[from]) || from == ksq) continue;
        const Bitboard ray = line[ksq][from];
        if (ray & squareBit[to]) continue;
        for (Bitboard sliders = ray & kind[0] & kind[1]; sliders;) {
            const Bitboard b = between[ksq][popLsb(sliders)] & occ;
            if (b && !moreThanOne(b)) found |= b;
        }
    }
    return found;
}

}  // namespace

int swapSearch(ExchangeState& st, int balance, int target, int alpha, int beta) {
    // 1. Even winning the target cannot reach alpha.
    if (balance + target < alpha) return balance + target;
    // 2. Standing pat already refutes the window, or nothing is left to capture with.
    if (balance >= beta) return balance;
    Attacker a;
    if (!leastAttacker(st, static_cast<int>(st.side), a)) return balance;
    // 3. Capture and let the opponent answer.
    st.candidates &= ~squareBit[a.square];
    st.side ^= 1;
    const int newAlpha = balance > alpha ? balance : alpha;
    const int value = -swapSearch(st, -(balance + target + a.gain), a.value, -beta, -newAlpha);
    return value > balance ? value : balance;
}

int see(const Position& pos, Move m) {
    const int from = fromSquare(m), to = toSquare(m);
    const int code = pos.board[from] ? pos.board[from] : pos.board[to];
    const int us = colourOf(code), them = us ^ 1;
    int captured = pieceValue[typeOf(capturedCode(m))];
    int mover = pieceValue[typeOf(code)];

    // 1. Taking more than we risk is at least that much.
    if (captured > mover) return captured - mover;

    // 2. Pins against the opponent's king decide who may recapture.
    ExchangeState st{0, 0, &pos, static_cast<uint32_t>(us), static_cast<uint32_t>(to)};
    Bitboard pins = pos.state.kingBlockers[them];
    const Bitboard theirs = pos.side[them].pieces[0];
    const Bitboard occ = pos.occupied & ~squareBit[from];
    if (!(pins & squareBit[from])) {
        pins |= newPins(pos, us, from, to);
        st.blockers = pins & theirs;
        st.candidates = occ & ~st.blockers;
    } else {
        // The move uncovers a check: only the king may answer.
        st.blockers = pins & theirs;
        st.candidates = occ & ~(theirs & ~pos.side[them].pieces[KING]);
    }

    // 3. A pawn reaching the last rank promotes.
    if (typeOf(code) == PAWN && (kBackRanks & squareBit[to])) {
        captured += kPromotionGain;
        mover += kPromotionGain;
    }
    // 4. Clearly losing even if nothing recaptures.
    if (mover - captured < -1) return captured - mover;

    // 5. The opponent's cheapest recapture.
    Attacker a;
    if (!leastAttacker(st, them, a)) return captured;
    st.candidates &= ~squareBit[a.square];

    // 6. The opponent may also decline to recapture.
    const int result = swapSearch(st, captured - mover - a.gain, a.value, -1, 1);
    return result < captured ? result : captured;
}

int squareExchange(const Position& pos, int square) {
    const int code = pos.board[square];
    if (!code) return 0;
    const int owner = colourOf(code), them = owner ^ 1;
    ExchangeState st{0, 0, &pos, static_cast<uint32_t>(owner), static_cast<uint32_t>(square)};
    st.blockers = pos.state.kingBlockers[them] & pos.side[them].pieces[0];
    st.candidates = pos.occupied & ~st.blockers;
    Attacker a;
    if (!leastAttacker(st, them, a)) return 0;
    st.candidates &= ~squareBit[a.square];
    return swapSearch(st, -pieceValue[typeOf(code)] - a.gain, a.value, -1, 1);
}

}  // namespace quarn
