#include "eval/loneking.h"

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <vector>

#include "board/movegen.h"

namespace quarn {

namespace {

// Without pawns the board has eight symmetries, so the strong king is kept in the triangle
// a1-d1-d4 (ten squares) by mirroring files, then ranks, then flipping about the a1-h8
// diagonal. With the king on that diagonal both flips of the other two men are kept, as two
// entries that the builder settles together. A placement's index is (king slot * 64 + piece)
// * 64 + lone king; each table holds, per side to move, the plies to mate with best play, or
// kOpen for a draw, an illegal placement, or (while building) a verdict not reached yet.
constexpr int kSlots = 10;
constexpr int kPlacements = kSlots * 64 * 64;
constexpr uint8_t kOpen = 0xFF;
constexpr int kMirrorFiles = 1, kMirrorRanks = 2, kFlipDiagonal = 4;

constexpr int entryOf(int slot, int piece, int lone) { return (slot * 64 + piece) * 64 + lone; }
constexpr int slotPart(int entry) { return entry >> 12; }
constexpr int piecePart(int entry) { return (entry >> 6) & 63; }
constexpr int lonePart(int entry) { return entry & 63; }

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

    int indexOf(int king, int piece, int lone) const {
        const int t = toTriangle[king];
        return entryOf(slotOf[image[t][king]], image[t][piece], image[t][lone]);
    }

    // The entry that, with the king on the diagonal, stands for the same position flipped.
    int flipped(int index) const {
        return entryOf(slotPart(index), image[kFlipDiagonal][piecePart(index)], image[kFlipDiagonal][lonePart(index)]);
    }
};

const Symmetry symmetry;

struct Table {
    uint8_t strongToMove[kPlacements];
    uint8_t loneToMove[kPlacements];
    int longest = 0;  // plies of the longest mate with the strong side to move
};

Table tables[2];  // [0] rook, [1] queen
std::once_flag built;

Bitboard pieceAttacks(int type, int square, Bitboard occupied) {
    return type == ROOK ? rookAttacks(square, occupied) : queenAttacks(square, occupied);
}

// Works back from the mates one ply at a time: a strong-side position that can reach a mate
// in n is a mate in n + 1; a lone-king position whose every move reaches a mate is mated in
// one ply more than its longest defence.
class Builder {
public:
    Builder(int type, Table& table) : type_(type), t_(table) {}

    void build() {
        std::fill(std::begin(t_.strongToMove), std::end(t_.strongToMove), kOpen);
        std::fill(std::begin(t_.loneToMove), std::end(t_.loneToMove), kOpen);
        std::vector<int> mated;
        for (int slot = 0; slot < kSlots; ++slot)
            for (int piece = 0; piece < 64; ++piece)
                for (int lone = 0; lone < 64; ++lone) {
                    const int king = symmetry.squareOf[slot];
                    if (!placed(king, piece, lone)) continue;
                    const int i = entryOf(slot, piece, lone);
                    open_[i] = static_cast<uint8_t>(loneSteps(king, piece, lone));
                    if (open_[i] == 0 && checked(king, piece, lone)) {
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
    int type_;
    Table& t_;
    // Per lone-king entry, its legal steps not yet known to lead into a mate.
    std::vector<uint8_t> open_ = std::vector<uint8_t>(kPlacements, 0);

    static bool placed(int king, int piece, int lone) {
        return king != piece && piece != lone && squareDistance(king, lone) > 1;
    }

    // The lone king attacked by the piece; only the strong king can block the line.
    bool checked(int king, int piece, int lone) const {
        return (pieceAttacks(type_, piece, squareBit[king]) & squareBit[lone]) != 0;
    }

    // The lone king's legal steps (the piece's lines seen through the king's own square), or
    // kCanTake when one of them takes the piece, a draw.
    int loneSteps(int king, int piece, int lone) const {
        const Bitboard lines = pieceAttacks(type_, piece, squareBit[king]);
        int steps = 0;
        for (Bitboard b = kingAttacks[lone] & ~kingAttacks[king]; b;) {
            const int to = popLsb(b);
            if (to == piece) return kCanTake;
            if (!(lines & squareBit[to])) ++steps;
        }
        return steps;
    }

    // Strong-side positions, not yet settled, with a move into one of `lost`: mates in `plies`.
    std::vector<int> strongPredecessors(const std::vector<int>& lost, int plies) {
        std::vector<int> found;
        auto settle = [&](int i) {
            if (t_.strongToMove[i] != kOpen) return;
            t_.strongToMove[i] = static_cast<uint8_t>(plies);
            found.push_back(i);
        };
        auto mark = [&](int king, int piece, int lone) {
            if (checked(king, piece, lone)) return;
            const int i = symmetry.indexOf(king, piece, lone);
            settle(i);
            if (symmetry.onDiagonal(slotPart(i))) settle(symmetry.flipped(i));
        };
        for (const int i : lost) {
            const int king = symmetry.squareOf[slotPart(i)], piece = piecePart(i), lone = lonePart(i);
            for (Bitboard b = kingAttacks[king]; b;) {
                const int from = popLsb(b);
                if (placed(from, piece, lone)) mark(from, piece, lone);
            }
            // A slider comes back along the lines it now attacks.
            for (Bitboard b = pieceAttacks(type_, piece, squareBit[king] | squareBit[lone]); b;) {
                const int from = popLsb(b);
                if (placed(king, from, lone)) mark(king, from, lone);
            }
        }
        return found;
    }

    // Lone-king positions with a step into one of `winning` and, with it, no step left that
    // escapes the mate: mated in `plies`. A step counts down once, when its target is settled;
    // the king stays put, so the entries need no symmetry.
    std::vector<int> lonePredecessors(const std::vector<int>& winning, int plies) {
        std::vector<int> found;
        for (const int i : winning) {
            const int slot = slotPart(i), king = symmetry.squareOf[slot], piece = piecePart(i), lone = lonePart(i);
            for (Bitboard b = kingAttacks[lone]; b;) {
                const int from = popLsb(b);
                if (!placed(king, piece, from)) continue;
                const int j = entryOf(slot, piece, from);
                if (--open_[j] != 0) continue;
                t_.loneToMove[j] = static_cast<uint8_t>(plies);
                found.push_back(j);
            }
        }
        return found;
    }
};

void buildTables() {
    Builder(ROOK, tables[0]).build();
    Builder(QUEEN, tables[1]).build();
}

}  // namespace

void buildLoneKingTables() { std::call_once(built, buildTables); }

int loneKingOutcome(const Position& pos, int& plies) {
    buildLoneKingTables();
    const int strong = pos.side[WHITE].material ? WHITE : BLACK;
    const SideBlock& s = pos.side[strong];
    const bool rook = s.pieces[ROOK] != 0;
    const Table& table = tables[rook ? 0 : 1];
    const int i = symmetry.indexOf(static_cast<int>(s.kingSquare), lsbIndex(s.pieces[rook ? ROOK : QUEEN]),
                                   static_cast<int>(pos.side[strong ^ 1].kingSquare));
    const bool strongToMove = static_cast<int>(pos.sideToMove) == strong;
    const uint8_t entry = strongToMove ? table.strongToMove[i] : table.loneToMove[i];
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
    buildLoneKingTables();
    return (tables[pieceType == ROOK ? 0 : 1].longest + 1) / 2;
}

}  // namespace quarn
