#include "search/ordering.h"

#include "eval/king.h"
#include "eval/see.h"

namespace quarn {

namespace {

constexpr int kHashScore = 32767;
constexpr int kKillerScores[2] = {1024, 1023};
constexpr int kOlderKillerScores[2] = {1022, 1021};  // killers of two plies up
constexpr int kYoungerKillerScores[2] = {1018, 1017};  // killers of two plies down
constexpr int kWinningCapture = 4096;
constexpr int kLosingCapture = 512;
constexpr int kFarRankPawn = 768;
constexpr int kQuietKnight = 10;
constexpr int kSortedPlaces = 8;
constexpr int kYoungerKillerPlyLimit = 62;

// Bonus for a quiet evasion onto a square our pawn guards, by the mover's type.
constexpr int kPawnGuardBonus[8] = {0, 64, 32, 32, 0, -128, 0, 0};
// Below this many enemy points the king steps by its endgame table.
constexpr int kEndgamePoints = 13;

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

Move* orderMoves(const SearchThread& thread, int ply, Move* first, Move* end, Move threatMove,
                 Move hashMove) {
    const Position& pos = thread.pos;
    const Move(&killers)[2] = thread.killers[ply];
    const Bitboard attacked = pos.state.enemyAttacks;
    int scores[kMaxMoves];
    int early = 0;
    const int count = static_cast<int>(end - first);
    for (int i = 0; i < count; ++i) {
        const Move m = first[i];
        int score = 0;
        bool isEarly = false;
        if (hashMove && sameMove(m, hashMove)) {
            score = kHashScore;
            isEarly = true;
        } else if (sameMove(m, killers[0])) {
            score = kKillerScores[0];
            isEarly = true;
        } else if (sameMove(m, killers[1])) {
            score = kKillerScores[1];
        } else if (ply > 2 && sameMove(m, thread.killers[ply - 2][0])) {
            score = kOlderKillerScores[0];
        } else if (ply > 2 && sameMove(m, thread.killers[ply - 2][1])) {
            score = kOlderKillerScores[1];
        } else if (ply < kYoungerKillerPlyLimit && sameMove(m, thread.killers[ply + 2][0])) {
            score = kYoungerKillerScores[0];
        } else if (ply < kYoungerKillerPlyLimit && sameMove(m, thread.killers[ply + 2][1])) {
            score = kYoungerKillerScores[1];
        } else {
            const int from = fromSquare(m), to = toSquare(m);
            const int mover = kOrderValue[typeOf(pos.board[from])];
            if (m & kCaptureOrPromotion) {
                const int victim = kOrderValue[typeOf(pos.board[to])];
                if (see(pos, m) >= 0) {
                    score = victim * kVictimWeight + kWinningCapture;
                    isEarly = true;
                } else {
                    score = (victim - kLosingCapture) * kVictimWeight;
                    // A losing capture that takes the piece behind the threat may still help.
                    if (threatMove && to == fromSquare(threatMove)) score += kLosingCapture;
                }
            }
            // A move out of an attack also wins ties against one that was never attacked.
            score += moverSafety(attacked, m, mover) + ((attacked & squareBit[from]) ? 1 : 0);
            if (typeOf(pos.board[from]) == PAWN && (kFarRanks & squareBit[to])) {
                score += kFarRankPawn;
                isEarly = true;
            } else if (typeOf(pos.board[from]) == KNIGHT && isQuiet(m)) {
                score += kQuietKnight;
            }
        }
        scores[i] = score;
        early += isEarly;
    }
    selectBest(first, scores, count, kSortedPlaces);
    return first + early;
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
