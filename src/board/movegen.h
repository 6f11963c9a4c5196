// Strictly legal move generation: no move is made to test it. Legality comes from the
// attack words (enemyAttacks, kingBlockers) that every generation computes first.
#pragma once

#include "board/move.h"
#include "board/position.h"

namespace quarn {

// Fills enemyAttacks (our king lifted off the board) and both kings' blocker sets.
void computeAttackInfo(Position& pos);
// The blocker set of one colour's king, returned instead of stored.
Bitboard blockersOf(const Position& pos, int colour);

// Every legal move, written from `list` on; returns one past the last move written.
Move* generateMoves(Position& pos, Move* list);
// The two halves of generateMoves; both need current attack words.
Move* generateEvasions(const Position& pos, Move* list);
Move* generateAll(const Position& pos, Move* list);
// Captures (and pushes to the seventh rank) for the quiescence search. A victim type is taken
// when its point value is at least `margin`; enemy pawns about to promote count as queens.
// Needs current attack words; no under-promotion, en passant or castling.
Move* generateCaptures(const Position& pos, Move* list, int margin);

// Quick test that a move from the transposition table may be played here (a filter against
// key collisions, not a full legality test). Needs current attack words.
bool isValidMove(const Position& pos, Move m);

// Appends a pawn move, or its four promotions (Q, N, B, R) when it reaches the last rank.
inline Move* addPawnMove(Move* list, Move m) {
    const int to = toSquare(m);
    if (to >= 56 || to < 8) {
        *list++ = withPromotion(m, QUEEN);
        *list++ = withPromotion(m, KNIGHT);
        *list++ = withPromotion(m, BISHOP);
        *list++ = withPromotion(m, ROOK);
    } else {
        *list++ = m;
    }
    return list;
}

// The legal move of `pos` that `m` names (its identity bits), or 0. A PV may end in the undo
// word of a back-and-forth repetition, which need not be a legal move (a pawn cannot step
// back): lines are only walked as far as their moves are legal.
inline Move legalMove(Position& pos, Move m) {
    Move moves[kMaxMoves];
    Move* end = generateMoves(pos, moves);
    for (Move* it = moves; it != end; ++it)
        if (((*it ^ m) & kIdentityMask) == 0) return *it;
    return 0;
}

inline bool inCheck(const Position& pos) {
    return (pos.state.enemyAttacks & squareBit[pos.side[pos.sideToMove].kingSquare]) != 0;
}

// In check with no way out. Needs current attack words.
inline bool checkmated(const Position& pos) {
    Move moves[kMaxMoves];
    return inCheck(pos) && generateEvasions(pos, moves) == moves;
}

}  // namespace quarn
