#include "search/tt.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "board/fen.h"
#include "board/movegen.h"
#include "support.h"

namespace quarn::test {

namespace {

constexpr uint32_t kSmallKb = 1;  // the floor: 262144 bytes, 16384 entries
constexpr uint32_t kSmallMask = 16383;

// A table of its own for each test, freed at the end.
class TtTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(table.resize(kSmallKb), 262144u); }
    void TearDown() override { table.release(); }

    void put(const Position& pos, int depth, TtBound bound, int score = 0, Move move = 0,
             int staticEval = 0) {
        TtEntry e{};
        e.move = move;
        e.score = static_cast<int16_t>(score);
        e.depth = static_cast<int16_t>(depth);
        e.staticEval = static_cast<int16_t>(staticEval);
        e.bound = bound;
        table.store(pos, e);
    }
    bool hit(const Position& pos) {
        TtEntry e;
        return table.probe(pos, e);
    }

    Tt table;
};

const char* const kFen = "r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R w KQkq - 2 3";

std::vector<Move> legalMoves(Position& pos) {
    Move moves[kMaxMoves];
    return {moves, generateMoves(pos, moves)};
}

// Placement text with one '1' per empty square, which the FEN reader adds up.
std::string fenWith(const char* pieces, const int* squares, int count) {
    std::string fen;
    for (int rank = 7; rank >= 0; --rank) {
        for (int file = 0; file < 8; ++file) {
            char c = '1';
            for (int i = 0; i < count; ++i)
                if (squares[i] == rank * 8 + file) c = pieces[i];
            fen += c;
        }
        fen += rank ? "/" : " w - - 0 1";
    }
    return fen;
}

// `count` positions, White to move, whose home index in a 16384-entry table is the same: the
// white king on ranks 1-4 and a knight of each colour on ranks 1-5 against a king on h8 (never
// in check), searched by their Zobrist keys and then set up from FEN.
std::vector<Position> bucketMates(int count) {
    const char pieces[] = "KNnk";
    const int codes[] = {pieceCode(WHITE, KING), pieceCode(WHITE, KNIGHT),
                         pieceCode(BLACK, KNIGHT), pieceCode(BLACK, KING)};
    std::vector<std::vector<int>> byIndex(kSmallMask + 1);
    for (int k = 0; k < 32; ++k)
        for (int n1 = 0; n1 < 40; ++n1)
            for (int n2 = 0; n2 < 40; ++n2) {
                if (k == n1 || k == n2 || n1 == n2) continue;
                const uint64_t key = pieceKey(codes[0], k) ^ pieceKey(codes[1], n1) ^
                                     pieceKey(codes[2], n2) ^ pieceKey(codes[3], 63);
                std::vector<int>& bin = byIndex[key & kSmallMask];
                bin.push_back((k << 16) | (n1 << 8) | n2);
                if (static_cast<int>(bin.size()) < count) continue;
                std::vector<Position> out;
                for (const int packed : bin) {
                    const int squares[] = {packed >> 16, (packed >> 8) & 0xFF, packed & 0xFF, 63};
                    out.push_back(positionFrom(fenWith(pieces, squares, 4)));
                }
                return out;
            }
    return {};
}

TEST(TtSizes, PowerOfTwoKilobytesWithAFloor) {
    const struct {
        uint32_t kilobytes, bytes;
    } cases[] = {
        {0, 262144},   {1, 262144},   {100, 262144},     {255, 262144},      {256, 262144},
        {511, 262144}, {512, 524288}, {3000, 2097152},   {32768, 33554432},
    };
    const Position pos = positionFrom(kFen);
    for (const auto& c : cases) {
        Tt t;
        EXPECT_EQ(t.resize(c.kilobytes), c.bytes) << c.kilobytes;
        EXPECT_EQ(t.sizeBytes(), c.bytes);
        EXPECT_EQ(t.entryCount(), c.bytes / 16);
        EXPECT_EQ(t.generation(), 1);
        // Each bucket is one cache line.
        const auto line = reinterpret_cast<uintptr_t>(&t.way(pos, t.homeIndex(pos) & 3));
        EXPECT_EQ(line % 64, 0u);
        t.release();
    }
}

TEST_F(TtTest, ResizeToTheSameSizeKeepsEntries) {
    const Position pos = positionFrom(kFen);
    table.newSearch();
    put(pos, 3, BOUND_EXACT);
    EXPECT_EQ(table.resize(100), 262144u);
    EXPECT_TRUE(hit(pos));
    EXPECT_EQ(table.generation(), 2);
    EXPECT_EQ(table.resize(512), 524288u);
    EXPECT_FALSE(hit(pos));
    EXPECT_EQ(table.generation(), 1);
    put(pos, 3, BOUND_EXACT);
    table.newSearch();
    table.clear();
    EXPECT_FALSE(hit(pos));
    EXPECT_EQ(table.generation(), 1);
}

TEST_F(TtTest, SideToMoveSelectsTheNeighbouringBucket) {
    const Position white = positionFrom(kFen);
    const Position black =
        positionFrom("r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R b KQkq - 2 3");
    ASSERT_EQ(white.hashKey, black.hashKey);
    put(white, 3, BOUND_EXACT);
    EXPECT_TRUE(hit(white));
    EXPECT_FALSE(hit(black));
    EXPECT_FALSE(table.remove(black));
    EXPECT_TRUE(table.remove(white));
    EXPECT_FALSE(hit(white));
    EXPECT_FALSE(table.remove(white));
}

// A stored depth of 6 and score 10, then a second store of the same position.
TEST_F(TtTest, ShallowerStoresKeepOnlyTighterBounds) {
    const struct {
        TtBound oldBound;
        int newDepth;
        TtBound newBound;
        int newScore;
        bool kept;
    } cases[] = {
        {BOUND_EXACT, 5, BOUND_LOWER, 50, true},   {BOUND_EXACT, 5, BOUND_EXACT, 10, true},
        {BOUND_EXACT, 6, BOUND_UPPER, -50, false}, {BOUND_LOWER, 5, BOUND_LOWER, 11, false},
        {BOUND_LOWER, 5, BOUND_LOWER, 10, true},   {BOUND_LOWER, 0, BOUND_EXACT, 9, true},
        {BOUND_LOWER, 7, BOUND_UPPER, -99, false}, {BOUND_UPPER, 5, BOUND_UPPER, 9, false},
        {BOUND_UPPER, 5, BOUND_UPPER, 10, true},   {BOUND_UPPER, 5, BOUND_LOWER, -20, false},
        {BOUND_UPPER, 1, BOUND_EXACT, 30, true},
    };
    const Position pos = positionFrom(kFen);
    for (const auto& c : cases) {
        table.clear();
        table.resetCounters();
        put(pos, 6, c.oldBound, 10, 0, 111);
        put(pos, c.newDepth, c.newBound, c.newScore, 0, 222);
        TtEntry e;
        ASSERT_TRUE(table.probe(pos, e));
        SCOPED_TRACE(testing::Message() << int(c.oldBound) << " " << c.newDepth << " "
                                        << int(c.newBound) << " " << c.newScore);
        EXPECT_EQ(e.staticEval, c.kept ? 111 : 222);
        EXPECT_EQ(e.depth, c.kept ? 6 : c.newDepth);
        EXPECT_EQ(e.bound, c.kept ? c.oldBound : c.newBound);
        EXPECT_EQ(e.score, c.kept ? 10 : c.newScore);
        EXPECT_EQ(table.updates, c.kept ? 0u : 1u);
        EXPECT_EQ(table.replacements, 1u);
    }
}

// Moves by index: 0 none, 1 and 2 two legal moves. First store at depth 4 (none if NONE).
TEST_F(TtTest, UpperBoundsStoreNoMoveButInheritOne) {
    const struct {
        TtBound firstBound;
        int firstMove, secondDepth;
        TtBound secondBound;
        int secondMove, expected;
    } cases[] = {
        {BOUND_NONE, 0, 5, BOUND_UPPER, 2, 0},  {BOUND_EXACT, 1, 5, BOUND_UPPER, 2, 1},
        {BOUND_LOWER, 1, 5, BOUND_UPPER, 0, 1}, {BOUND_UPPER, 1, 5, BOUND_UPPER, 2, 0},
        {BOUND_LOWER, 1, 5, BOUND_LOWER, 2, 2}, {BOUND_LOWER, 1, 5, BOUND_EXACT, 0, 1},
        {BOUND_EXACT, 1, 3, BOUND_UPPER, 2, 1},
    };
    Position pos = positionFrom(kFen);
    const std::vector<Move> legal = legalMoves(pos);
    const Move moves[] = {0, legal[0], legal[5]};
    for (const auto& c : cases) {
        table.clear();
        if (c.firstBound != BOUND_NONE) put(pos, 4, c.firstBound, 0, moves[c.firstMove]);
        put(pos, c.secondDepth, c.secondBound, -5, moves[c.secondMove]);
        TtEntry e;
        ASSERT_TRUE(table.probe(pos, e));
        EXPECT_EQ(e.move, moves[c.expected]) << int(c.firstBound) << " " << int(c.secondBound);
    }
}

// Ways written by hand, as a key collision or a torn write leaves them: two ways with the
// position's check. Moves by index: 0 none, 1 legal, 2 a black pawn's move with White to move.
TEST_F(TtTest, ProbeSkipsWaysWithImpossibleMoves) {
    const struct {
        int first, second;
        bool hit;
        int found;
    } cases[] = {
        {2, 1, true, 1}, {2, 0, true, 0}, {2, 2, false, 0}, {1, 2, true, 1}, {0, 1, true, 0},
    };
    Position pos = positionFrom(kFen);
    const Move moves[] = {0, legalMoves(pos)[3], makeMoveWord(51, 35, 0) | kDoubleStepFlag};
    ASSERT_FALSE(isValidMove(pos, moves[2]));
    const uint32_t check = ttCheck(pos.hashKey);
    for (const auto& c : cases) {
        table.clear();
        table.way(pos, 0) = TtEntry{check, moves[c.first], 7, 3, 0, 1, BOUND_EXACT};
        table.way(pos, 2) = TtEntry{check, moves[c.second], 8, 3, 0, 1, BOUND_EXACT};
        TtEntry e;
        EXPECT_EQ(table.probe(pos, e), c.hit) << c.first << " " << c.second;
        if (c.hit) {
            EXPECT_EQ(e.move, moves[c.found]);
        }
    }
    table.way(pos, 1) = TtEntry{check ^ 1, 0, 9, 3, 0, 1, BOUND_EXACT};
    EXPECT_TRUE(table.remove(pos));
    EXPECT_EQ(table.way(pos, 0).check, 0u);
    EXPECT_EQ(table.way(pos, 2).check, 0u);
    EXPECT_EQ(table.way(pos, 1).score, 9);
    EXPECT_FALSE(table.remove(pos));
}

// Four positions of one bucket fill its ways in order; a fifth then replaces the way with the
// lowest depth, less 8192 for an entry of an earlier search, the home way's value capped at
// 8192, ties keeping the earlier way.
TEST_F(TtTest, ReplacementPrefersShallowAndOldEntries) {
    const struct {
        int depth[4];
        bool old[4];
        int victim;
    } cases[] = {
        {{5, 3, 7, 4}, {}, 1},
        {{3, 3, 3, 3}, {}, 0},
        {{40, 1, 2, 3}, {true, false, false, false}, 0},
        {{1, 2, 3, 8000}, {false, false, false, true}, 3},
        {{9, 30, 20, 10}, {false, true, true, false}, 2},
        {{9000, 8500, 8600, 8700}, {}, 0},
        {{20, 10, 30, 40}, {true, true, true, true}, 1},
    };
    const std::vector<Position> mates = bucketMates(5);
    ASSERT_EQ(mates.size(), 5u);
    for (const Position& p : mates) {
        ASSERT_EQ((p.hashKey + p.sideToMove * 4) & kSmallMask, mates[0].hashKey & kSmallMask);
        ASSERT_EQ(p.sideToMove, 0u);
    }
    for (const auto& c : cases) {
        table.clear();
        table.resetCounters();
        for (int i = 0; i < 4; ++i) put(mates[i], c.depth[i], BOUND_LOWER);
        for (int i = 0; i < 4; ++i)
            ASSERT_EQ(table.way(mates[0], i).check, ttCheck(mates[i].hashKey));
        EXPECT_EQ(table.replacements, 4u);
        EXPECT_EQ(table.liveReplacements, 0u);
        table.newSearch();
        for (int i = 0; i < 4; ++i)
            if (!c.old[i]) put(mates[i], c.depth[i], BOUND_LOWER);
        put(mates[4], 6, BOUND_LOWER);
        SCOPED_TRACE(testing::Message() << "victim " << c.victim);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(hit(mates[i]), i != c.victim) << i;
        EXPECT_TRUE(hit(mates[4]));
        EXPECT_EQ(table.replacements, 5u);
        EXPECT_EQ(table.liveReplacements, c.old[c.victim] ? 0u : 1u);
    }
}

TEST_F(TtTest, MateScoresAreStoredRelativeToTheNode) {
    const struct {
        int score, ply, stored;
    } cases[] = {
        {100, 5, 100},     {3000, 7, 3000},    {3001, 7, 3008},      {-3000, 7, -3000},
        {-3001, 7, -3008}, {29990, 10, 30000}, {-29990, 10, -30000}, {0, 0, 0},
    };
    const Position pos = positionFrom(kFen);
    for (const auto& c : cases) {
        EXPECT_EQ(scoreToTt(c.score, c.ply), c.stored) << c.score << " at " << c.ply;
        EXPECT_EQ(scoreFromTt(c.stored, c.ply), c.score) << c.stored << " at " << c.ply;
        table.clear();
        TtEntry written{};
        table.storeLowerBound(written, pos, 4, c.ply, c.score, 0, 12);
        TtEntry e;
        ASSERT_TRUE(table.probe(pos, e));
        EXPECT_EQ(e.score, c.stored);
        EXPECT_EQ(e.bound, BOUND_LOWER);
        EXPECT_EQ(e.depth, 4);
        EXPECT_EQ(e.staticEval, 12);
        EXPECT_EQ(e.generation, 1);
    }
    // Any stored score beyond the band counts as a mate score on the way back.
    EXPECT_EQ(scoreFromTt(3004, 10), 2994);
    EXPECT_EQ(scoreFromTt(-3004, 10), -2994);
}

}  // namespace

}  // namespace quarn::test
