// Static evaluation: the score of a position for the side to move, with its per-thread state.
#pragma once

#include <cstdint>

#include "board/position.h"
#include "eval/pawns.h"

namespace quarn {

// Side-relative tables are looked up at square ^ flipSquare[colour]: entry 0..7 is the side's
// eighth rank, 56..63 its first.
inline constexpr int flipSquare[2] = {56, 0};
inline constexpr int pawnPush[2] = {8, -8};

constexpr int kEvalCacheSize = 4096;
constexpr int kTempo = 4;

struct EvalCacheEntry {
    uint64_t key;
    int32_t score;
};

// Everything one search thread needs to evaluate, so evaluation takes no locks.
struct EvalContext {
    const Position* pos;
    PawnTable pawnTable;
    uint64_t evalCount;
    Bitboard passers[2];   // passed pawns of each colour, from the current pawn entry
    int32_t shelter[2];    // king shelter found by kingScore, read by the enemy's pieceScore
    PawnEntry* pawnEntry;  // the entry of the current pawn structure
    EvalCacheEntry cache[kEvalCacheSize];
};

// Prepares a context for `pos` with a one-entry pawn table and an empty cache.
void initEvalContext(EvalContext& ctx, const Position* pos);
void freeEvalContext(EvalContext& ctx);

// The score for the side to move, tempo included.
int evaluate(EvalContext& ctx);

// Every term of one evaluation, for looking inside it.
struct EvalTrace {
    int material, pattern, pawns, kingWhite, kingBlack, piecesWhite, piecesBlack, racing;
    int sum;                 // the terms added up, White's point of view
    const char* drawRule;    // the draw rule that zeroed the score, or null
    const char* scaleRule;   // the scaling case that applied, or null
    int final;               // after draw recognition and scaling
    int result;              // for the side to move, tempo included
    bool cacheHit;           // the evaluation cache already held this position
};

// evaluate, and the terms behind it recomputed into `trace` (the caches are used as usual).
int evaluateTraced(EvalContext& ctx, EvalTrace& trace);

// The terms, from White's point of view unless a colour is given.
int materialScore(const EvalContext& ctx);
int patternScore(const EvalContext& ctx);

}  // namespace quarn
