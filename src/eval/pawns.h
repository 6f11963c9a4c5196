// Pawn structure terms and the per-thread pawn table keyed by the pawn key.
#pragma once

#include <cstdint>

#include "board/position.h"

namespace quarn {

struct EvalContext;

// One pawn structure, 32 bytes.
struct PawnEntry {
    Bitboard passers;  // passed pawns of both colours
    uint32_t check;    // upper half of the pawn key
    struct Side {
        int16_t mg;         // sum of the per-pawn terms, middlegame half
        int16_t eg;         // endgame half
        int8_t shelter[6];  // kingShelterAt on the first-rank squares of the b- to g-files
    } side[2];
};
static_assert(sizeof(PawnEntry) == 32);

struct PawnTable {
    const Position* pos;
    PawnEntry* entries;  // aligned to 256 bytes inside `raw`
    uint32_t count;      // a power of two
    uint32_t mask;
    uint32_t hits;
    uint32_t stores;
    void* raw;
};

constexpr uint32_t kSearchPawnEntries = 0x20000;

// Sizes the table to the largest power of two not above `requested` (at least 1) and empties
// it. Allocation failure is fatal.
void resizePawnTable(PawnTable& table, uint32_t requested);
// A one-entry table serving `pos`.
void resetPawnTable(PawnTable& table, const Position* pos);
void freePawnTable(PawnTable& table);

// Starts loading the entry of a pawn structure, for an evaluation soon to come.
inline void prefetchPawnEntry(const PawnTable& table, uint64_t pawnKey) {
    __builtin_prefetch(&table.entries[pawnKey & table.mask]);
}

// White minus Black, blended by material; sets ctx.pawnEntry and ctx.passers.
int pawnScore(EvalContext& ctx);
void pawnTerms(EvalContext& ctx, int colour, PawnEntry& entry);
// Shelter of a king of `colour` on `square`: from -16 minus the pawn storm up to -1.
int kingShelterAt(const EvalContext& ctx, int colour, int square);
// Adds the dynamic terms of the colour's passed pawns.
void passerScore(const EvalContext& ctx, int colour, int& mg, int& eg);

}  // namespace quarn
