#include <gtest/gtest.h>

#include <iterator>
#include <random>
#include <utility>

#include "board/bitboard.h"
#include "support.h"

namespace quarn::test {

namespace {

constexpr int kRookDirs[4][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
constexpr int kBishopDirs[4][2] = {{1, 1}, {1, -1}, {-1, 1}, {-1, -1}};

Bitboard bit(int s) { return Bitboard{1} << s; }
bool onBoard(int f, int r) { return f >= 0 && f < 8 && r >= 0 && r < 8; }

// Walks the four rays one square at a time, stopping after the first occupied square. With
// `inner` the last square of every ray is dropped: the squares a blocker can matter on.
Bitboard slowRays(int s, Bitboard occ, const int (*dirs)[2], bool inner = false) {
    Bitboard all = 0;
    for (int d = 0; d < 4; ++d) {
        Bitboard ray = 0;
        int last = -1;
        for (int f = fileOf(s) + dirs[d][0], r = rankOf(s) + dirs[d][1]; onBoard(f, r);
             f += dirs[d][0], r += dirs[d][1]) {
            last = makeSquare(f, r);
            ray |= bit(last);
            if (occ & bit(last)) break;
        }
        if (inner && last >= 0) ray &= ~bit(last);
        all |= ray;
    }
    return all;
}

}  // namespace

// Every blocker arrangement on the relevant squares, then random boards with any squares set
// (also the slider's own square and the edges, which the lookup must ignore).
TEST(Bitboard, SliderAttacksMatchRayWalk) {
    std::mt19937_64 rng(0x5eed);
    for (int s = 0; s < 64; ++s) {
        for (const bool rook : {true, false}) {
            const int(*dirs)[2] = rook ? kRookDirs : kBishopDirs;
            auto lookup = [&](Bitboard o) {
                return rook ? rookAttacks(s, o) : bishopAttacks(s, o);
            };
            const Bitboard mask = slowRays(s, 0, dirs, true);
            Bitboard sub = 0;
            do {
                ASSERT_EQ(lookup(sub), slowRays(s, sub, dirs)) << "square " << s << " occ " << sub;
                sub = (sub - mask) & mask;
            } while (sub);
            for (int i = 0; i < 500; ++i) {
                const Bitboard occ = i % 3 ? rng() & rng() : rng();
                ASSERT_EQ(lookup(occ), slowRays(s, occ, dirs)) << "square " << s << " occ " << occ;
            }
        }
    }
}

TEST(Bitboard, CountsAndScansMatchLoops) {
    std::mt19937_64 rng(42);
    for (int i = 0; i < 4000; ++i) {
        const Bitboard b = i == 0    ? 0
                           : i < 65  ? bit(i - 1)
                           : i < 129 ? ~Bitboard{0} << (i - 65)
                           : i % 2   ? rng() & rng() & rng()
                                     : rng();
        int count = 0, lowest = -1;
        for (int s = 63; s >= 0; --s)
            if (b & bit(s)) ++count, lowest = s;
        EXPECT_EQ(popCount(b), count) << b;
        EXPECT_EQ(popCountSparse(b), count) << b;
        EXPECT_EQ(b ? lsbIndex(b) : -1, lowest) << b;
    }
}

// between and line of every pair of squares against ray walks.
TEST(Bitboard, LineTablesMatchRayWalk) {
    for (int a = 0; a < 64; ++a) {
        for (int b = 0; b < 64; ++b) {
            const bool straight = slowRays(a, 0, kRookDirs) & bit(b);
            const bool diagonal = slowRays(a, 0, kBishopDirs) & bit(b);
            const int(*dirs)[2] = straight ? kRookDirs : kBishopDirs;
            const bool aligned = straight || diagonal;
            const Bitboard expBetween =
                aligned ? slowRays(a, bit(b), dirs) & slowRays(b, bit(a), dirs) : 0;
            const Bitboard expLine =
                a == b    ? 0x0101010101010101ULL << fileOf(a)
                : aligned ? (slowRays(a, 0, dirs) & slowRays(b, 0, dirs)) | bit(a) | bit(b)
                          : 0;
            ASSERT_EQ(between[a][b], expBetween) << a << " " << b;
            ASSERT_EQ(line[a][b], expLine) << a << " " << b;
        }
    }
}

TEST(Bitboard, TableEdgeCases) {
    // a1 = 0, b2 = 9, b3 = 17, c3 = 18, e2 = 12, e3 = 20, e4 = 28, e5 = 36, e6 = 44, e7 = 52,
    // h2 = 15, g3 = 22, a8 = 56, h8 = 63.
    const std::pair<Bitboard, Bitboard> cases[] = {
        {rookAttacks(56, 0), 0xFE01010101010101ULL},  // a-file and rank 8 but a8
        {between[0][63], 0x0040201008040200ULL},      // b2 c3 d4 e5 f6 g7
        {between[0][17], 0},
        {between[28][36], 0},
        {line[0][18], 0x8040201008040201ULL},
        {line[0][17], 0},
        {pawnAttacks[WHITE][15], bit(22)},
        {pawnAttacks[WHITE][56], 0},
        {pawnAttacks[BLACK][0], 0},
        // A king on ranks 3..8 catches a pawn on e3; the double step makes e2 the same.
        {pawnSquare[WHITE][20], 0xFFFFFFFFFFFF0000ULL},
        {pawnSquare[WHITE][12], 0xFFFFFFFFFFFF0000ULL},
        {pawnSquare[WHITE][52], 0x3838000000000000ULL},  // e7: d7-f7 and d8-f8
        {pawnSquare[BLACK][44], 0x0000FFFFFFFFFFFFULL},  // e6 and e7: ranks 1..6
        {pawnSquare[BLACK][52], 0x0000FFFFFFFFFFFFULL},
    };
    for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(cases[i].first, cases[i].second) << i;
    EXPECT_EQ(popCount(rookAttacks(56, 0)), 14);
    EXPECT_EQ(64 - rookMagics[56].shift, 11u);
}

}  // namespace quarn::test
