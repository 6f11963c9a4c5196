#include "eval/loneking.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "board/movegen.h"

namespace quarn {

namespace {

// The strong side's men besides its king, in the order a placement lists them.
struct Men {
    int count;
    int types[2];
};

constexpr int kTables = 3;
constexpr Men kMenOf[kTables] = {{1, {ROOK, 0}}, {1, {QUEEN, 0}}, {2, {BISHOP, KNIGHT}}};
constexpr int kRookTable = 0, kQueenTable = 1, kBishopKnightTable = 2;

// Without pawns the board has eight symmetries, so the strong king is kept in the triangle
// a1-d1-d4 (ten squares) by mirroring files, then ranks, then flipping about the a1-h8
// diagonal. With the king on that diagonal both flips of the other men are kept, as two
// entries that the builder settles together. A placement's index is the king slot followed by
// the square of each strong man and then of the lone king, six bits each; each table holds,
// per side to move, the plies to mate with best play, or kOpen for a draw, an illegal
// placement, or (while building) a verdict not reached yet.
constexpr int kSlots = 10;
constexpr uint8_t kOpen = 0xFF;
constexpr int kMirrorFiles = 1, kMirrorRanks = 2, kFlipDiagonal = 4;

struct Placement {
    int king;
    int men[2];
    int lone;
};

constexpr int entries(int count) { return kSlots << (6 * (count + 1)); }

int entryOf(int slot, const Placement& p, int count) {
    int entry = slot;
    for (int i = 0; i < count; ++i) entry = entry * 64 + p.men[i];
    return entry * 64 + p.lone;
}

int slotPart(int entry, int count) { return entry >> (6 * (count + 1)); }

struct Symmetry {
    int slotOf[64];         // -1 outside the triangle
    int squareOf[kSlots];
    uint8_t toTriangle[64]; // the symmetry that takes a king on this square into the triangle
    uint8_t image[8][64];   // a square under each symmetry

    Symmetry() {
        for (int t = 0; t < 8; ++t)
            for (int s = 0; s < 64; ++s) {
                int f = fileOf(s), r = rankOf(s);
                if (t & kMirrorFiles) f = 7 - f;
                if (t & kMirrorRanks) r = 7 - r;
                if (t & kFlipDiagonal) std::swap(f, r);
                image[t][s] = static_cast<uint8_t>(makeSquare(f, r));
            }
        int slots = 0;
        for (int s = 0; s < 64; ++s) {
            int t = (fileOf(s) > 3 ? kMirrorFiles : 0) | (rankOf(s) > 3 ? kMirrorRanks : 0);
            const int m = image[t][s];
            if (rankOf(m) > fileOf(m)) t |= kFlipDiagonal;
            toTriangle[s] = static_cast<uint8_t>(t);
            slotOf[s] = -1;
        }
        for (int s = 0; s < 64; ++s)
            if (fileOf(s) <= 3 && rankOf(s) <= fileOf(s)) {
                slotOf[s] = slots;
                squareOf[slots++] = s;
            }
    }

    bool onDiagonal(int slot) const { return fileOf(squareOf[slot]) == rankOf(squareOf[slot]); }

    // The placement an entry stands for, its king back on the board.
    Placement placementOf(int entry, int count) const {
        Placement p{};
        p.lone = entry & 63;
        for (int i = count - 1; i >= 0; --i) {
            entry >>= 6;
            p.men[i] = entry & 63;
        }
        p.king = squareOf[entry >> 6];
        return p;
    }

    Placement transformed(const Placement& p, int t, int count) const {
        Placement q{image[t][p.king], {0, 0}, image[t][p.lone]};
        for (int i = 0; i < count; ++i) q.men[i] = image[t][p.men[i]];
        return q;
    }

    int indexOf(const Placement& p, int count) const {
        const Placement q = transformed(p, toTriangle[p.king], count);
        return entryOf(slotOf[q.king], q, count);
    }

    // The entry that, with the king on the diagonal, stands for the same position flipped.
    int flipped(int entry, int count) const {
        const Placement flip = transformed(placementOf(entry, count), kFlipDiagonal, count);
        return entryOf(slotPart(entry, count), flip, count);
    }
};

const Symmetry symmetry;

struct Table {
    uint8_t* strongToMove;
    uint8_t* loneToMove;
    int longest;  // plies of the longest mate with the strong side to move
};

// Plain static storage, never freed: a process may end while the start-up thread still builds.
uint8_t rookStorage[2][entries(1)], queenStorage[2][entries(1)], bishopKnightStorage[2][entries(2)];
Table tables[kTables] = {{rookStorage[0], rookStorage[1], 0},
                         {queenStorage[0], queenStorage[1], 0},
                         {bishopKnightStorage[0], bishopKnightStorage[1], 0}};
std::once_flag built[kTables];
std::atomic<bool> ready[kTables];  // set once a table is built, for readers that must not wait

Bitboard manAttacks(int type, int square, Bitboard occupied) {
    switch (type) {
    case KNIGHT: return knightAttacks[square];
    case BISHOP: return bishopAttacks(square, occupied);
    case ROOK: return rookAttacks(square, occupied);
    default: return queenAttacks(square, occupied);
    }
}

// Works back from the mates one ply at a time: a strong-side position that can reach a mate
// in n is a mate in n + 1; a lone-king position whose every move reaches a mate is mated in
// one ply more than its longest defence.
class Builder {
public:
    Builder(const Men& men, Table& table) : men_(men), t_(table), open_(entries(men.count), 0) {}

    void build() {
        const int size = entries(men_.count);
        std::fill(t_.strongToMove, t_.strongToMove + size, kOpen);
        std::fill(t_.loneToMove, t_.loneToMove + size, kOpen);
        std::vector<int> mated;
        for (int i = 0; i < size; ++i) {
            const Placement p = symmetry.placementOf(i, men_.count);
            if (!placed(p)) continue;
            open_[i] = static_cast<uint8_t>(loneSteps(p));
            if (open_[i] == 0 && checked(p)) {
                t_.loneToMove[i] = 0;
                mated.push_back(i);
            }
        }
        for (int plies = 0; !mated.empty(); plies += 2) {
            const std::vector<int> winning = strongPredecessors(mated, plies + 1);
            if (winning.empty()) break;
            t_.longest = plies + 1;
            mated = lonePredecessors(winning, plies + 2);
        }
    }

private:
    static constexpr int kCanTake = 9;  // more steps than a king has: never counted down to 0
    const Men& men_;
    Table& t_;
    // Per lone-king entry, its legal steps not yet known to lead into a mate.
    std::vector<uint8_t> open_;

    Bitboard strongMen(const Placement& p) const {
        Bitboard b = squareBit[p.king];
        for (int i = 0; i < men_.count; ++i) b |= squareBit[p.men[i]];
        return b;
    }

    // Every man on a square of its own, the kings apart.
    bool placed(const Placement& p) const {
        const Bitboard men = strongMen(p);
        return !(men & squareBit[p.lone]) && popCountSparse(men) == men_.count + 1 &&
               squareDistance(p.king, p.lone) > 1;
    }

    // Where the strong side attacks, its lines seen through the lone king's square.
    Bitboard guarded(const Placement& p) const {
        const Bitboard occupied = strongMen(p);
        Bitboard b = kingAttacks[p.king];
        for (int i = 0; i < men_.count; ++i) b |= manAttacks(men_.types[i], p.men[i], occupied);
        return b;
    }

    bool checked(const Placement& p) const { return (guarded(p) & squareBit[p.lone]) != 0; }

    // The lone king's legal steps, or kCanTake when one of them takes a man, a draw.
    int loneSteps(const Placement& p) const {
        const Bitboard men = strongMen(p);
        int steps = 0;
        for (Bitboard b = kingAttacks[p.lone] & ~guarded(p); b;) {
            if (men & squareBit[popLsb(b)]) return kCanTake;
            ++steps;
        }
        return steps;
    }

    // Strong-side positions, not yet settled, with a move into one of `lost`: mates in `plies`.
    std::vector<int> strongPredecessors(const std::vector<int>& lost, int plies) {
        std::vector<int> found;
        auto settle = [&](int i) {
            t_.strongToMove[i] = static_cast<uint8_t>(plies);
            found.push_back(i);
        };
        // Most predecessors are settled already: the table is read before the legality test.
        auto mark = [&](int i, const Placement& q) {
            if (t_.strongToMove[i] != kOpen || checked(q)) return;
            settle(i);
            if (!symmetry.onDiagonal(slotPart(i, men_.count))) return;
            const int flip = symmetry.flipped(i, men_.count);
            if (flip != i) settle(flip);
        };
        for (const int i : lost) {
            const Placement p = symmetry.placementOf(i, men_.count);
            const Bitboard occupied = strongMen(p) | squareBit[p.lone];
            Placement q = p;
            for (Bitboard b = kingAttacks[p.king] & ~occupied & ~kingAttacks[p.lone]; b;) {
                q.king = popLsb(b);
                mark(symmetry.indexOf(q, men_.count), q);
            }
            q.king = p.king;
            // Every man moves back the way it moves: a slider along the lines it now attacks.
            // The king stays in the triangle, so only the man's field of the entry changes.
            for (int m = 0; m < men_.count; ++m) {
                const int shift = 6 * (men_.count - m);
                const int rest = i & ~(63 << shift);
                for (Bitboard b = manAttacks(men_.types[m], p.men[m], occupied) & ~occupied; b;) {
                    q.men[m] = popLsb(b);
                    mark(rest | q.men[m] << shift, q);
                }
                q.men[m] = p.men[m];
            }
        }
        return found;
    }

    // Lone-king positions with a step into one of `winning` and, with it, no step left that
    // escapes the mate: mated in `plies`. A step counts down once, when its target is settled;
    // the strong men stay put, so the entries need no symmetry.
    std::vector<int> lonePredecessors(const std::vector<int>& winning, int plies) {
        std::vector<int> found;
        for (const int i : winning) {
            const Placement p = symmetry.placementOf(i, men_.count);
            for (Bitboard b = kingAttacks[p.lone] & ~strongMen(p) & ~kingAttacks[p.king]; b;) {
                const int j = (i & ~63) | popLsb(b);
                if (--open_[j] != 0) continue;
                t_.loneToMove[j] = static_cast<uint8_t>(plies);
                found.push_back(j);
            }
        }
        return found;
    }
};

void buildTable(int table) {
    std::call_once(built[table], [table] {
        Builder(kMenOf[table], tables[table]).build();
        ready[table].store(true, std::memory_order_release);
    });
}

int tableOfPiece(int pieceType) {
    return pieceType == ROOK ? kRookTable : pieceType == QUEEN ? kQueenTable : kBishopKnightTable;
}

int strongSideOf(const Position& pos) { return pos.side[WHITE].material ? WHITE : BLACK; }

// The table of a position loneKingEnding accepts, from the strong side's men.
int tableOf(const SideBlock& s) {
    return s.pieces[KNIGHT] ? kBishopKnightTable : s.pieces[ROOK] ? kRookTable : kQueenTable;
}

// The table of a position loneKingEnding accepts, and its placement.
int tableOf(const Position& pos, int strong, Placement& p) {
    const SideBlock& s = pos.side[strong];
    p.king = static_cast<int>(s.kingSquare);
    p.lone = static_cast<int>(pos.side[strong ^ 1].kingSquare);
    const int table = tableOf(s);
    for (int i = 0; i < kMenOf[table].count; ++i) p.men[i] = lsbIndex(s.pieces[kMenOf[table].types[i]]);
    return table;
}

}  // namespace

void buildLoneKingTables() {
    for (int table = 0; table < kTables; ++table) buildTable(table);
}

void buildLoneKingTable(int pieceType) { buildTable(tableOfPiece(pieceType)); }

bool loneKingTableReady(const Position& pos) {
    return ready[tableOf(pos.side[strongSideOf(pos)])].load(std::memory_order_acquire);
}

int loneKingOutcome(const Position& pos, int& plies) {
    const int strong = strongSideOf(pos);
    Placement p{};
    const int table = tableOf(pos, strong, p);
    buildTable(table);
    const int i = symmetry.indexOf(p, kMenOf[table].count);
    const bool strongToMove = static_cast<int>(pos.sideToMove) == strong;
    const uint8_t entry = strongToMove ? tables[table].strongToMove[i] : tables[table].loneToMove[i];
    if (entry == kOpen) return 0;
    plies = entry;
    return strongToMove ? 1 : -1;
}

Move loneKingMove(Position& pos) {
    Move moves[kMaxMoves];
    const Move* end = generateMoves(pos, moves);
    const UndoState saved = pos.state;
    const bool mating = pos.side[pos.sideToMove].material != 0;
    Move best = 0;
    int bestPlies = 0;
    for (const Move* it = moves; it != end; ++it) {
        makeMove(pos, *it);
        int plies = 0;
        const int outcome = loneKingEnding(pos) ? loneKingOutcome(pos, plies) : 0;
        unmakeMove(pos, *it, saved);
        if (outcome == (mating ? -1 : 1) && (!best || (mating ? plies < bestPlies : plies > bestPlies))) {
            best = *it;
            bestPlies = plies;
        }
    }
    return best;
}

int loneKingLongestMate(int pieceType) {
    const int table = tableOfPiece(pieceType);
    buildTable(table);
    return (tables[table].longest + 1) / 2;
}

}  // namespace quarn
