#include <iterator>
#include <random>
#include <utility>

#include "board/bitboard.h"
#include "support.h"

namespace quarn::test {

namespace {

// Rook directions first, then bishop directions.
constexpr int kDirs[8][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}, {1, 1}, {1, -1}, {-1, 1}, {-1, -1}};

Bitboard bit(int s) { return Bitboard{1} << s; }

// Walks the four rays one square at a time, stopping after the first occupied square. With
// `inner` the last square of every ray is dropped: the squares a blocker can matter on.
Bitboard slowRays(int s, Bitboard occ, bool rook, bool inner = false) {
    Bitboard all = 0;
    for (int d = rook ? 0 : 4; d < (rook ? 4 : 8); ++d) {
        Bitboard ray = 0;
        int last = -1;
        for (int f = fileOf(s) + kDirs[d][0], r = rankOf(s) + kDirs[d][1];
             f >= 0 && f < 8 && r >= 0 && r < 8; f += kDirs[d][0], r += kDirs[d][1]) {
            ray |= bit(last = makeSquare(f, r));
            if (occ & bit(last)) break;
        }
        all |= inner && last >= 0 ? ray & ~bit(last) : ray;
    }
    return all;
}

}  // namespace

// For every square: the slider lookups for every blocker arrangement on the relevant squares
// and for random boards (with the slider's own square and the edges set too, which the lookup
// must ignore); bit counts and scans of those boards; between and line towards every square.
TEST(Bitboard, TablesMatchSlowWalks) {
    std::mt19937_64 rng(0x5eed);
    EXPECT_EQ(popCount(0) + popCountSparse(0), 0);
    for (int s = 0; s < 64; ++s) {
        for (const bool rook : {true, false}) {
            Bitboard (*const lookup)(int, Bitboard) = rook ? rookAttacks : bishopAttacks;
            const Bitboard mask = slowRays(s, 0, rook, true);
            Bitboard sub = 0;
            do {
                ASSERT_EQ(lookup(s, sub), slowRays(s, sub, rook)) << "at " << s << " occ " << sub;
            } while ((sub = (sub - mask) & mask));
            for (int i = 0; i < 500; ++i) {
                // Also every lowest bit and every count from 1 to 64.
                const Bitboard random = rng();
                const Bitboard occ = i == 0   ? bit(s)
                                     : i == 1 ? ~Bitboard{0} << s
                                     : i % 3  ? random & rng()
                                              : random;
                ASSERT_EQ(lookup(s, occ), slowRays(s, occ, rook)) << "at " << s << " occ " << occ;
                int count = 0, lowest = -1;
                for (int t = 63; t >= 0; --t)
                    if (occ & bit(t)) ++count, lowest = t;
                ASSERT_EQ(popCount(occ), count) << occ;
                ASSERT_EQ(popCountSparse(occ), count) << occ;
                ASSERT_EQ(lsbIndex(occ), lowest) << occ;
            }
        }
        for (int b = 0; b < 64; ++b) {
            const bool straight = slowRays(s, 0, true) & bit(b);
            const bool aligned = straight || (slowRays(s, 0, false) & bit(b));
            const Bitboard expBetween =
                aligned ? slowRays(s, bit(b), straight) & slowRays(b, bit(s), straight) : 0;
            const Bitboard expLine =
                s == b    ? 0x0101010101010101ULL << fileOf(s)
                : aligned ? (slowRays(s, 0, straight) & slowRays(b, 0, straight)) | bit(s) | bit(b)
                          : 0;
            ASSERT_EQ(between[s][b], expBetween) << s << " " << b;
            ASSERT_EQ(line[s][b], expLine) << s << " " << b;
        }
    }
}

// The square of the pawn: where the defending king catches it. e2 = 12, e3 = 20, e6 = 44,
// e7 = 52. (Pawn attacks show in every perft count.)
TEST(Bitboard, PawnSquares) {
    const std::pair<Bitboard, Bitboard> cases[] = {
        // A king on ranks 3..8 catches a pawn on e3; the double step makes e2 the same.
        {pawnSquare[WHITE][20], 0xFFFFFFFFFFFF0000ULL},
        {pawnSquare[WHITE][12], 0xFFFFFFFFFFFF0000ULL},
        {pawnSquare[WHITE][52], 0x3838000000000000ULL},  // e7: d7-f7 and d8-f8
        {pawnSquare[BLACK][44], 0x0000FFFFFFFFFFFFULL},  // e6 and e7: ranks 1..6
        {pawnSquare[BLACK][52], 0x0000FFFFFFFFFFFFULL},
    };
    for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(cases[i].first, cases[i].second) << i;
}

}  // namespace quarn::test
