#include "eval/kpk.h"

#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <vector>

namespace quarn {

namespace {

// Positions are seen with the pawn White's, moving up the board on files a to d (others are
// mirrored): index = ((toMove * 24 + pawn slot) * 64 + white king) * 64 + black king, the pawn
// slot being file + 4 * (rank - 1) for ranks 2 to 7.
constexpr int kSlots = 24;
constexpr int kPositions = 2 * kSlots * 64 * 64;

enum Result : uint8_t { UNKNOWN, ILLEGAL, DRAW, WIN };

uint64_t wins[kPositions / 64];  // one bit per position: the pawn's side wins
std::once_flag built;

int indexOf(int toMove, int pawn, int wk, int bk) {
    const int slot = (pawn & 7) + 4 * ((pawn >> 3) - 1);
    return ((toMove * kSlots + slot) * 64 + wk) * 64 + bk;
}

bool adjacent(int a, int b) { return (kingAttacks[a] & squareBit[b]) != 0; }

struct Builder {
    std::vector<uint8_t> result = std::vector<uint8_t>(kPositions, UNKNOWN);

    // Whether a new queen on `queen` leaves the lone king, to move, without a move or a check.
    static bool stalemated(int queen, int wk, int bk) {
        const Bitboard hits = queenAttacks(queen, squareBit[wk] | squareBit[queen]);
        if (hits & squareBit[bk]) return false;
        for (Bitboard b = kingAttacks[bk]; b;) {
            const int to = popLsb(b);
            if (!(hits & squareBit[to]) && !adjacent(to, wk) && to != queen) return false;
        }
        return true;
    }

    // The first verdict: illegal placements, safe promotions, the pawn taken, and positions
    // where the defender cannot move (mate is impossible, so that is stalemate).
    Result initial(int toMove, int pawn, int wk, int bk) const {
        if (wk == bk || wk == pawn || bk == pawn || adjacent(wk, bk)) return ILLEGAL;
        const bool check = (pawnAttacks[WHITE][pawn] & squareBit[bk]) != 0;
        if (toMove == WHITE) {
            if (check) return ILLEGAL;
            const int queen = pawn + 8;
            if (pawn >= 48 && queen != wk && queen != bk && (!adjacent(bk, queen) || adjacent(wk, queen)) &&
                !stalemated(queen, wk, bk))
                return WIN;  // a queen the king cannot take, and it does not stalemate
            return UNKNOWN;
        }
        if (adjacent(bk, pawn) && !adjacent(wk, pawn)) return DRAW;  // the pawn is taken
        bool canMove = false;
        for (Bitboard b = kingAttacks[bk]; b;) {
            const int to = popLsb(b);
            if (to != pawn && !adjacent(to, wk) && !(pawnAttacks[WHITE][pawn] & squareBit[to]))
                canMove = true;
        }
        return canMove ? UNKNOWN : check ? WIN : DRAW;
    }

    // White to move: a win if some move wins, a draw once every move is known to draw.
    Result whiteMove(int pawn, int wk, int bk) const {
        bool unknown = false;
        auto see = [&](Result r) {
            if (r == UNKNOWN) unknown = true;
            return r == WIN;
        };
        for (Bitboard b = kingAttacks[wk]; b;) {
            const int to = popLsb(b);
            if (to == pawn || adjacent(to, bk)) continue;
            if (see(static_cast<Result>(result[indexOf(BLACK, pawn, to, bk)]))) return WIN;
        }
        const int push = pawn + 8;
        if (pawn < 48 && push != wk && push != bk) {
            if (see(static_cast<Result>(result[indexOf(BLACK, push, wk, bk)]))) return WIN;
            const int twice = pawn + 16;
            if (pawn < 16 && twice != wk && twice != bk &&
                see(static_cast<Result>(result[indexOf(BLACK, twice, wk, bk)])))
                return WIN;
        }
        return unknown ? UNKNOWN : DRAW;
    }

    // Black to move: a draw if some move draws, a win once every move is known to lose.
    Result blackMove(int pawn, int wk, int bk) const {
        bool unknown = false;
        for (Bitboard b = kingAttacks[bk]; b;) {
            const int to = popLsb(b);
            if (to == pawn || adjacent(to, wk) || (pawnAttacks[WHITE][pawn] & squareBit[to]))
                continue;
            const Result r = static_cast<Result>(result[indexOf(WHITE, pawn, wk, to)]);
            if (r == DRAW) return DRAW;
            if (r == UNKNOWN) unknown = true;
        }
        return unknown ? UNKNOWN : WIN;
    }

    void build() {
        forEach([&](int i, int toMove, int pawn, int wk, int bk) {
            result[i] = initial(toMove, pawn, wk, bk);
        });
        for (bool changed = true; changed;) {
            changed = false;
            forEach([&](int i, int toMove, int pawn, int wk, int bk) {
                if (result[i] != UNKNOWN) return;
                const Result r = toMove == WHITE ? whiteMove(pawn, wk, bk) : blackMove(pawn, wk, bk);
                if (r == UNKNOWN) return;
                result[i] = r;
                changed = true;
            });
        }
        // What is still open after every forced line is found can be held: a draw.
        for (int i = 0; i < kPositions; ++i)
            if (result[i] == WIN) wins[i >> 6] |= uint64_t{1} << (i & 63);
    }

    template <class F>
    static void forEach(F f) {
        for (int toMove = 0; toMove < 2; ++toMove)
            for (int rank = 1; rank <= 6; ++rank)
                for (int file = 0; file < 4; ++file) {
                    const int pawn = rank * 8 + file;
                    for (int wk = 0; wk < 64; ++wk)
                        for (int bk = 0; bk < 64; ++bk)
                            f(indexOf(toMove, pawn, wk, bk), toMove, pawn, wk, bk);
                }
    }
};

void buildTable() { Builder().build(); }

}  // namespace

void buildKpkTable() { std::call_once(built, buildTable); }

bool kpkWins(const Position& pos) {
    buildKpkTable();
    const int strong = pos.side[WHITE].pieces[PAWN] ? WHITE : BLACK;
    // Seen from the pawn's side, its pawn on files a to d.
    const int flip = strong == WHITE ? 0 : 56;
    int pawn = lsbIndex(pos.side[strong].pieces[PAWN]) ^ flip;
    int wk = static_cast<int>(pos.side[strong].kingSquare) ^ flip;
    int bk = static_cast<int>(pos.side[strong ^ 1].kingSquare) ^ flip;
    if ((pawn & 7) > 3) {
        pawn ^= 7;
        wk ^= 7;
        bk ^= 7;
    }
    const int toMove = static_cast<int>(pos.sideToMove) == strong ? WHITE : BLACK;
    const int i = indexOf(toMove, pawn, wk, bk);
    return (wins[i >> 6] >> (i & 63)) & 1;
}

}  // namespace quarn
