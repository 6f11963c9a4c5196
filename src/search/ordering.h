// Move ordering: scores every move of a node and brings the most promising to the front.
#pragma once

#include "board/bitboard.h"
#include "board/move.h"
#include "search/searchthread.h"

namespace quarn {

// Ordering values by piece type (the king counts 99).
inline constexpr int kOrderValue[8] = {0, 1, 3, 3, 5, 10, 99, 0};
// Captures are keyed by the victim first: one order point of victim outweighs any shift of the
// mover's safety below.
inline constexpr int kVictimWeight = 16;

// The mover's own safety: leaving an attacked square gains its order value, entering one
// loses it. Used by both searches' move ordering.
inline int moverSafety(Bitboard attacked, Move m, int mover) {
    int shift = 0;
    if (attacked & squareBit[fromSquare(m)]) shift += mover;
    if (attacked & squareBit[toSquare(m)]) shift -= mover;
    return shift;
}

// Scores the moves of a node not in check, higher first: the hash move, winning captures, the
// killers, the counter move, pawn moves to the far ranks, then the quiet moves by their
// history, losing captures last. `early` marks the moves that are never late (reduced or
// pruned): the hash move, winning captures, the first killer and pawn moves to ranks 1, 2, 7
// and 8. The plain quiet moves only get kUnscoredQuiet here, a tier of their own: most nodes
// are cut off before any of them is due, and their history costs memory lookups.
constexpr int kUnscoredQuiet = 1 << 24;
void scoreMoves(const SearchThread& thread, int ply, const Move* moves, int count, Move threatMove,
                Move hashMove, int* scores, uint8_t* early);
// Gives the unscored quiet moves among moves[from..count) their history scores; a safe check
// comes first among like histories.
void scoreQuiets(const SearchThread& thread, int ply, const Move* moves, int* scores, int from,
                 int count);

// The move loop's pick: brings the best-scored of moves[i..count) to place i.
inline void pickBest(Move* moves, int* scores, uint8_t* early, int i, int count) {
    // The first of the highest scores; kept free of branches, which the scores would
    // mispredict at every step.
    int best = i, top = scores[i];
    for (int j = i + 1; j < count; ++j) {
        const int s = scores[j];
        best = s > top ? j : best;
        top = s > top ? s : top;
    }
    if (best == i) return;
    const Move m = moves[i];
    moves[i] = moves[best];
    moves[best] = m;
    const int s = scores[i];
    scores[i] = scores[best];
    scores[best] = s;
    const uint8_t e = early[i];
    early[i] = early[best];
    early[best] = e;
}

// Orders all moves of a node not in check as scoreMoves and scoreQuiets score them (the
// quiescence search's answer to a threat).
void orderMoves(const SearchThread& thread, int ply, Move* first, Move* end, Move hashMove);

// Orders the evasions of a node in check, the whole list: captures by victim and attacker,
// king steps by square value, blocks guarded by a pawn.
void orderEvasions(const Position& pos, Move* first, Move* end, Move hashMove);

// Moves the highest score to each of the first `places` positions (earliest wins ties).
void selectBest(Move* moves, int* scores, int count, int places);

}  // namespace quarn
