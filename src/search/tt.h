// The transposition table: one lock-free table shared by all search threads, four-way buckets
// of one cache line, with generations so that entries of earlier searches go first.
#pragma once

#include <cstdint>

#include "board/move.h"
#include "board/movegen.h"
#include "board/position.h"
#include "search/score.h"

namespace quarn {

enum TtBound : uint8_t { BOUND_NONE = 0, BOUND_EXACT = 1, BOUND_LOWER = 2, BOUND_UPPER = 3 };

// Bytes   field
// 0-3     check: high 32 bits of the key XOR its low 32 bits (the side to move is not in it);
//         in the table it is stored folded with the other three 32-bit words (Tt::save), so
//         that an entry torn by two threads writing at once fails the check
// 4-7     move: best or refutation move, 0 = none
// 8-9     score: mate scores made relative to the stored node (scoreToTt)
// 10-11   depth: remaining depth of the search that wrote the entry
// 12-13   staticEval: the position's static evaluation, so a hit need not evaluate again
// 14      generation: the table's generation when the entry was written
// 15      bits 0-3 bound: TtBound; bits 4-7 extension: the plies the full-width search
//         extended the move by (a single reply), so that it is extended again as the hash
//         move; the quiescence search stores 0
// An all-zero entry is empty.
struct TtEntry {
    uint32_t check;
    Move move;
    int16_t score;
    int16_t depth;
    int16_t staticEval;
    uint8_t generation;
    uint8_t bound : 4;
    uint8_t extension : 4;
};
static_assert(sizeof(TtEntry) == 16, "four entries must fill one cache line");

constexpr uint32_t ttCheck(uint64_t key) {
    return static_cast<uint32_t>(key >> 32) ^ static_cast<uint32_t>(key);
}

// What one thread's stores did, for the statistics lines and "hashfull": entries written over
// another position, those of them that belonged to the current search, and entries rewritten
// for the same position. Each search thread counts its own.
struct TtCounters {
    uint64_t replacements = 0, liveReplacements = 0, updates = 0;
};

class Tt {
public:
    static constexpr uint32_t kWays = 4;
    static constexpr uint32_t kAlignment = 128;
    static constexpr uint32_t kMinBytes = 262144;  // the floor for small and odd requests

    // Trivial on purpose: the global table is built without allocating; start-up sizes it.
    constexpr Tt() = default;
    Tt(const Tt&) = delete;
    Tt& operator=(const Tt&) = delete;

    // Sizes the table for `kilobytes` (rounded down to a power of two, at least 256 KB). The
    // same size keeps the contents; any other size reallocates, zeroes and sets generation 1.
    // Allocation failures retry with half the size and abort below 64 bytes. Returns the byte
    // size first asked for, even if retries ended smaller. No search may run meanwhile.
    uint32_t resize(uint32_t kilobytes);
    // Zeroes every entry and sets generation 1. No search may run meanwhile.
    void clear();
    // Has the kernel map every page of the table now. A resized table gets its zero pages only
    // as they are first touched, which a search would otherwise pay for by the thousand in its
    // first seconds. Start-up leaves them to the protocol's first "isready" (a 32 MB table
    // faulted in during a search costs its first move about 20 ms). Contents are kept.
    void prefault();
    bool prefaulted() const { return prefaulted_; }
    // Frees the table; the object can be resized again later. For tables other than the
    // global one, which lives until exit.
    void release();

    // Hit when a way holds the position's check and a move that is 0 or passes isValidMove;
    // a matching way with an impossible move (a collision) is skipped. On a miss `out` holds
    // the last way read and means nothing. The attack words of `pos` must be current.
    bool probe(const Position& pos, TtEntry& out) const;
    // Writes an entry whose move, score, depth, staticEval and bound the caller has filled;
    // check and generation are set here, and an upper bound never keeps a move.
    void store(const Position& pos, TtEntry entry);
    // The beta cut-off store: a lower bound with the score made relative to the node at `ply`.
    // `entry` is filled as written.
    void storeLowerBound(TtEntry& entry, const Position& pos, int depth, int ply, int score,
                         Move move, int staticEval, int extension = 0);
    // Zeroes every way of the position's bucket that holds its check; true if any did.
    bool remove(const Position& pos);
    void newSearch() { ++generation_; }
    void prefetch(const Position& pos) const {
        __builtin_prefetch(&entries_[homeIndex(pos) & ~(kWays - 1)]);
    }

    uint32_t entryCount() const { return entryCount_; }
    uint32_t sizeBytes() const { return sizeBytes_; }
    uint8_t generation() const { return generation_; }

    // The position's home index: (hashKey + side * 4) & mask, so the side to move picks the
    // neighbouring bucket. Its ways are home, home ^ 1, home ^ 2, home ^ 3, in that order.
    uint32_t homeIndex(const Position& pos) const {
        return static_cast<uint32_t>(pos.hashKey + uint64_t{pos.sideToMove} * kWays) & mask_;
    }
    // Way i (0..3) of the position's bucket, in visiting order, as stored (check unfolded);
    // for tests and diagnostics.
    TtEntry way(const Position& pos, uint32_t i) const { return load(homeIndex(pos) ^ i); }
    void setWay(const Position& pos, uint32_t i, const TtEntry& e) { save(homeIndex(pos) ^ i, e); }
    const TtEntry* wayAddress(const Position& pos, uint32_t i) const { return &entries_[homeIndex(pos) ^ i]; }

    // The calling thread's store counters (each search thread has its own).
    static TtCounters& counters();
    static void resetCounters() { counters() = TtCounters{}; }

private:
    // Entries are read and written as two 64-bit words with relaxed atomic accesses: threads
    // share the table without locks, and a reader may see the words of two different writes.
    // The check is stored folded with the three data words, so such a torn entry fails the
    // check on load (save folds, load unfolds).
    static uint32_t fold(const TtEntry& e) {
        uint32_t w[4];
        __builtin_memcpy(w, &e, sizeof w);
        return w[1] ^ w[2] ^ w[3];
    }
    TtEntry load(uint32_t index) const {
        const auto* words = reinterpret_cast<const uint64_t*>(&entries_[index]);
        const uint64_t w[2] = {__atomic_load_n(&words[0], __ATOMIC_RELAXED),
                               __atomic_load_n(&words[1], __ATOMIC_RELAXED)};
        TtEntry e;
        __builtin_memcpy(&e, w, sizeof e);
        e.check ^= fold(e);
        return e;
    }
    void save(uint32_t index, TtEntry e) {
        e.check ^= fold(e);
        uint64_t w[2];
        __builtin_memcpy(w, &e, sizeof w);
        auto* words = reinterpret_cast<uint64_t*>(&entries_[index]);
        __atomic_store_n(&words[0], w[0], __ATOMIC_RELAXED);
        __atomic_store_n(&words[1], w[1], __ATOMIC_RELAXED);
    }

    // How willing we are to give a way up: lower goes first. Entries of earlier searches are
    // pushed far down so that they go before any current one.
    int keepValue(const TtEntry& e) const {
        return e.depth - (e.generation != generation_ ? kOldPenalty : 0);
    }

    // Larger than any depth, so that every entry of an earlier search ranks below every
    // current one: old entries are mostly for positions the game has left behind.
    static constexpr int kOldPenalty = 8192;

    TtEntry* entries_ = nullptr;  // aligned to kAlignment inside rawBlock_
    uint32_t sizeBytes_ = 0;      // a power of two
    uint32_t entryCount_ = 0;
    uint32_t mask_ = 0;
    void* rawBlock_ = nullptr;
    uint8_t generation_ = 0;
    bool prefaulted_ = false;
};

inline bool Tt::probe(const Position& pos, TtEntry& out) const {
    const uint32_t home = homeIndex(pos), check = ttCheck(pos.hashKey);
    for (uint32_t i = 0; i < kWays; ++i) {
        out = load(home ^ i);
        if (out.check == check && (out.move == 0 || isValidMove(pos, out.move))) return true;
    }
    return false;
}

inline void Tt::store(const Position& pos, TtEntry entry) {
    const uint32_t home = homeIndex(pos);
    entry.check = ttCheck(pos.hashKey);
    entry.generation = generation_;
    // An upper bound's move is only the best of moves that all failed: not worth keeping.
    if (entry.bound == BOUND_UPPER) {
        entry.move = 0;
        entry.extension = 0;
    }

    TtCounters& c = counters();
    TtEntry ways[kWays];
    for (uint32_t i = 0; i < kWays; ++i) {
        const TtEntry e = ways[i] = load(home ^ i);
        if (e.check != entry.check) continue;
        // Same position. A shallower result does not overwrite a deeper one unless it is a
        // tighter bound: a higher lower bound or a lower upper bound. A deeper result always
        // wins, and so does an equal one: it was found with the newer window. A stored move is
        // kept when the new result has none, since it is still the best guess for ordering.
        if (entry.depth < e.depth) {
            if (e.bound == BOUND_EXACT) return;
            if (e.bound == BOUND_LOWER && entry.score <= e.score) return;
            if (e.bound == BOUND_UPPER && entry.score >= e.score) return;
        }
        if (entry.move == 0) {
            entry.move = e.move;
            entry.extension = e.extension;
        }
        save(home ^ i, entry);
        ++c.updates;
        return;
    }

    // A new position: the shallowest way goes, entries of earlier searches first. Shallow
    // entries are the cheapest to find again, while a deep one saves a whole subtree. The home
    // way's value is capped so that a huge depth cannot make it unbeatable; ties keep the
    // earlier way, the home way first, which is the one a later probe reads first.
    uint32_t victim = 0;
    int lowest = keepValue(ways[0]);
    if (lowest > kOldPenalty) lowest = kOldPenalty;
    for (uint32_t i = 1; i < kWays; ++i) {
        const int value = keepValue(ways[i]);
        if (value < lowest) {
            lowest = value;
            victim = i;
        }
    }
    ++c.replacements;
    if (ways[victim].generation == generation_) ++c.liveReplacements;
    save(home ^ victim, entry);
}

inline void Tt::storeLowerBound(TtEntry& entry, const Position& pos, int depth, int ply, int score,
                                Move move, int staticEval, int extension) {
    entry.move = move;
    entry.extension = static_cast<uint8_t>(extension);
    entry.score = static_cast<int16_t>(scoreToTt(score, ply));
    entry.depth = static_cast<int16_t>(depth);
    entry.staticEval = static_cast<int16_t>(staticEval);
    entry.bound = BOUND_LOWER;
    entry.check = ttCheck(pos.hashKey);
    entry.generation = generation_;
    store(pos, entry);
}

// The one table of the process.
extern Tt tt;

}  // namespace quarn
