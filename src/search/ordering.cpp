#include "search/ordering.h"

#include "eval/king.h"
#include "eval/see.h"

namespace quarn {

namespace {

constexpr int kHashScore = 32767;
// Move score tiers of the full-width search, far apart so that no history value crosses them.
constexpr int kHashTier = 1 << 30;
constexpr int kWinningCaptureTier = 1 << 28;
constexpr int kKillerTier = 1 << 27;
constexpr int kFarRankPawnTier = 1 << 26;
constexpr int kLosingCaptureTier = -(1 << 28);
// Ahead of the other losing captures, still behind every quiet move.
constexpr int kThreatCaptureBonus = 1 << 20;
// A quiet move out of an attack gains this much per point of the mover's order value: a queen
// escaping (10 points) outweighs most history values, a pawn (1) tips near ties.
constexpr int kSafetyWeight = 256;
// A quiet move that gives check from a square the enemy does not attack comes ahead of quiet
// moves with a history up to this much better (about one table at its limit): checks force
// the reply, and a node that must find a perpetual check or a mating net finds it first.
constexpr int kSafeCheckBonus = 16384;

// Capture history shifts a capture by up to two order points of victim (its whole range over
// this unit): it sorts captures of like victims by what cut off before, while the victim's
// value still leads (a pawn taken comes ahead of a rook taken only at the extremes of both
// history and the movers' safety).
constexpr int kCaptureHistoryUnit = 512;

// Bonus for a quiet evasion onto a square our pawn guards, by the mover's type.
constexpr int kPawnGuardBonus[8] = {0, 64, 32, 32, 0, -128, 0, 0};
// Below this many enemy points the king steps by its endgame table.
constexpr int kEndgamePoints = 13;

// A quiet move of a `type` piece that checks the king on `king` directly from a square the
// enemy does not attack (a slider's line counted through the present occupancy). Table
// lookups only: it is asked for every quiet move scored.
bool safeCheck(const Position& pos, Bitboard attacked, Move m, int type, int king) {
    const int to = toSquare(m);
    if (attacked & squareBit[to]) return false;
    const Bitboard kingBit = squareBit[king];
    switch (type) {
        case PAWN: return (pawnAttacks[pos.sideToMove][to] & kingBit) != 0;
        case KNIGHT: return (knightAttacks[to] & kingBit) != 0;
        case BISHOP:
        case ROOK:
        case QUEEN: return (sliderLines(type, to) & kingBit) && !(between[to][king] & pos.occupied);
        default: return false;
    }
}

}  // namespace

void selectBest(Move* moves, int* scores, int count, int places) {
    if (places > count) places = count;
    for (int i = 0; i < places; ++i) {
        int best = i, top = scores[i];
        for (int j = i + 1; j < count; ++j) {
            if (scores[j] > top) {
                best = j;
                top = scores[j];
            }
        }
        if (best != i) {
            const Move m = moves[i];
            moves[i] = moves[best];
            moves[best] = m;
            const int s = scores[i];
            scores[i] = scores[best];
            scores[best] = s;
        }
    }
}

void scoreMoves(const SearchThread& thread, int ply, const Move* moves, int count, Move threatMove,
                Move hashMove, int* scores, uint8_t* early) {
    const Position& pos = thread.pos;
    const Move(&killers)[2] = thread.killers[ply];
    const MoveHistory& h = *thread.history;
    const int side = static_cast<int>(pos.sideToMove);
    const uint16_t prev1 = thread.moveKeys[ply + 1], prev2 = thread.moveKeys[ply];
    const Move counter = h.counter[prev1];
    const Bitboard attacked = pos.state.enemyAttacks;
    for (int i = 0; i < count; ++i) {
        const Move m = moves[i];
        const int from = fromSquare(m), to = toSquare(m);
        const int type = typeOf(pos.board[from]);
        const int safety = moverSafety(attacked, m, kOrderValue[type]);
        int score;
        bool isEarly = false;
        if (hashMove && sameMove(m, hashMove)) {
            score = kHashTier;
            isEarly = true;
        } else if (m & kCaptureOrPromotion) {
            const int victim = kOrderValue[typeOf(pos.board[to])] * kVictimWeight +
                               captureHistory(h, pos, m) / kCaptureHistoryUnit;
            if (see(pos, m) >= 0) {
                score = kWinningCaptureTier + victim + safety;
                isEarly = true;
            } else {
                score = kLosingCaptureTier + victim + safety;
                // A losing capture that takes the piece behind the threat may still help.
                if (threatMove && to == fromSquare(threatMove)) score += kThreatCaptureBonus;
            }
        } else if (sameMove(m, killers[0])) {
            score = kKillerTier + 2;
            isEarly = true;
        } else if (sameMove(m, killers[1])) {
            score = kKillerTier + 1;
        } else if (sameMove(m, counter)) {
            score = kKillerTier;
        } else if (type == PAWN && (kFarRanks & squareBit[to])) {
            score = kFarRankPawnTier + quietScore(h, side, m, continuationKey(pos, m), prev1, prev2);
            isEarly = true;
        } else {
            score = kUnscoredQuiet;
        }
        scores[i] = score;
        early[i] = isEarly;
    }
}

void scoreQuiets(const SearchThread& thread, int ply, const Move* moves, int* scores, int from,
                 int count) {
    const Position& pos = thread.pos;
    const MoveHistory& h = *thread.history;
    const int side = static_cast<int>(pos.sideToMove);
    const uint16_t prev1 = thread.moveKeys[ply + 1], prev2 = thread.moveKeys[ply];
    const Bitboard attacked = pos.state.enemyAttacks;
    const int king = static_cast<int>(pos.side[side ^ 1].kingSquare);
    for (int i = from; i < count; ++i) {
        if (scores[i] != kUnscoredQuiet) continue;
        const Move m = moves[i];
        const int type = typeOf(pos.board[fromSquare(m)]);
        scores[i] = quietScore(h, side, m, continuationKey(pos, m), prev1, prev2) +
                    moverSafety(attacked, m, kOrderValue[type]) * kSafetyWeight +
                    (safeCheck(pos, attacked, m, type, king) ? kSafeCheckBonus : 0);
    }
}

void orderMoves(const SearchThread& thread, int ply, Move* first, Move* end, Move hashMove) {
    int scores[kMaxMoves];
    uint8_t early[kMaxMoves];
    const int count = static_cast<int>(end - first);
    scoreMoves(thread, ply, first, count, 0, hashMove, scores, early);
    scoreQuiets(thread, ply, first, scores, 0, count);
    for (int i = 0; i < count; ++i) pickBest(first, scores, early, i, count);
}

void orderEvasions(const Position& pos, Move* first, Move* end, Move hashMove) {
    const int us = static_cast<int>(pos.sideToMove);
    const int ksq = static_cast<int>(pos.side[us].kingSquare);
    const bool endgame = materialPoints(pos.side[us ^ 1].material) < kEndgamePoints;
    // King squares by value: the endgame table, or the middlegame penalty turned around.
    auto kingValue = [&](int sq) {
        const int r = sq ^ flipSquare[us];
        return endgame ? kingEgTable[r] : -kingMgPenalty[r];
    };
    const Bitboard ownPawns = pos.side[us].pieces[PAWN];
    int scores[kMaxMoves];
    const int count = static_cast<int>(end - first);
    for (int i = 0; i < count; ++i) {
        const Move m = first[i];
        const int from = fromSquare(m), to = toSquare(m), mover = typeOf(pos.board[from]);
        if (hashMove && sameMove(m, hashMove))
            scores[i] = kHashScore;
        else if (capturedCode(m))
            scores[i] = kOrderValue[typeOf(capturedCode(m))] * 256 - kOrderValue[mover];
        else if (mover == KING)
            scores[i] = kingValue(to) - kingValue(ksq);
        else
            scores[i] = (pawnAttacks[us ^ 1][to] & ownPawns) ? kPawnGuardBonus[mover] : 0;
    }
    selectBest(first, scores, count, count);
}

}  // namespace quarn
