#include "search/tt.h"

#include <unistd.h>

#include <cstring>
#include <fstream>

#include "board/movegen.h"
#include "support.h"

namespace quarn::test {

namespace {

const char* const kFen = "r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R w KQkq - 2 3";

// A 256 KB table of its own for each test, the position above and its legal moves.
class TtTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(table.resize(1), 262144u);
        generateMoves(pos, legal);
    }
    void TearDown() override { table.release(); }
    void put(int depth, TtBound bound, int score = 0, Move move = 0, int staticEval = 0) {
        table.store(pos, TtEntry{0, move, int16_t(score), int16_t(depth), int16_t(staticEval), 0,
                                 bound, 0});
    }
    bool hit(const Position& p) { return table.probe(p, e); }

    Tt table;
    Position pos = positionFrom(kFen);
    Move legal[kMaxMoves] = {};
    TtEntry e{};
};

TEST(TtSizes, PowerOfTwoKilobytesWithAFloor) {
    const struct { uint32_t kilobytes, bytes; } cases[] = {{1, 262144}, {100, 262144},
        {256, 262144}, {511, 262144}, {512, 524288}, {3000, 2097152}, {32768, 33554432}};
    const Position pos = positionFrom(kFen);
    for (const auto& c : cases) {
        Tt t;
        EXPECT_EQ(t.resize(c.kilobytes), c.bytes) << c.kilobytes;
        EXPECT_EQ(t.entryCount() * 16, c.bytes);
        // Each bucket is one cache line.
        EXPECT_EQ(reinterpret_cast<uintptr_t>(t.wayAddress(pos, t.homeIndex(pos) & 3)) % 64, 0u);
        t.release();
    }
}

// Resident memory of this process in bytes.
uint64_t residentBytes() {
    std::ifstream statm("/proc/self/statm");
    uint64_t size = 0, resident = 0;
    statm >> size >> resident;
    return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

// After prefault the table's pages are in memory, not faulted in one by one by the first
// searches (the Hash option prefaults before a GUI's "readyok" can be answered); it stays empty.
TEST(TtSizes, PrefaultMapsTheWholeTable) {
    Tt t;
    ASSERT_EQ(t.resize(64 * 1024), 64u << 20);
    const uint64_t before = residentBytes();
    t.prefault();
    EXPECT_GE(residentBytes(), before + (60u << 20));
    TtEntry e;
    EXPECT_FALSE(t.probe(positionFrom(kFen), e));
    t.release();
}

// The side to move picks the neighbouring bucket; only another size empties the table.
TEST_F(TtTest, BucketsResizeAndClear) {
    const Position black =
        positionFrom("r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R b KQkq - 2 3");
    ASSERT_EQ(pos.hashKey, black.hashKey);
    table.newSearch();
    put(3, BOUND_EXACT);
    EXPECT_FALSE(hit(black) || table.remove(black));
    EXPECT_EQ(table.resize(100), 262144u);
    EXPECT_TRUE(hit(pos));
    EXPECT_EQ(table.generation(), 2);
    EXPECT_EQ(table.resize(512), 524288u);
    EXPECT_FALSE(hit(pos));
    EXPECT_EQ(table.generation(), 1);
    table.newSearch();
    table.clear();
    EXPECT_EQ(table.generation(), 1);
}

// Depth 6, score 10 and eval 111 stored first; a second store of the same position follows.
TEST_F(TtTest, ShallowerStoresKeepOnlyTighterBounds) {
    const struct { int oldBound, depth, bound, score; bool kept; } cases[] = {
        {BOUND_EXACT, 5, BOUND_LOWER, 50, true},   {BOUND_EXACT, 6, BOUND_UPPER, -50, false},
        {BOUND_LOWER, 5, BOUND_LOWER, 11, false},  {BOUND_LOWER, 5, BOUND_LOWER, 10, true},
        {BOUND_LOWER, 0, BOUND_EXACT, 9, true},    {BOUND_LOWER, 7, BOUND_UPPER, -99, false},
        {BOUND_UPPER, 5, BOUND_UPPER, 9, false},   {BOUND_UPPER, 5, BOUND_UPPER, 10, true},
        {BOUND_UPPER, 5, BOUND_LOWER, -20, false}, {BOUND_UPPER, 1, BOUND_EXACT, 30, true},
    };
    for (const auto& c : cases) {
        table.clear();
        Tt::resetCounters();
        put(6, TtBound(c.oldBound), 10, 0, 111);
        put(c.depth, TtBound(c.bound), c.score, 0, 222);
        ASSERT_TRUE(hit(pos));
        EXPECT_TRUE(c.kept ? e.staticEval == 111 && e.score == 10 && Tt::counters().updates == 0
                           : e.staticEval == 222 && e.score == c.score && Tt::counters().updates == 1)
            << c.oldBound << " then " << c.depth << " " << c.bound << " " << c.score;
        EXPECT_EQ(Tt::counters().replacements, 1u);
    }
}

// Moves by index: 0 none, 1 and 2 two legal moves. The first store is at depth 4, if any.
TEST_F(TtTest, UpperBoundsStoreNoMoveButInheritOne) {
    const struct { TtBound first; int firstMove; TtBound second; int secondMove, got; } cases[] = {
        {BOUND_NONE, 0, BOUND_UPPER, 2, 0},  {BOUND_EXACT, 1, BOUND_UPPER, 2, 1},
        {BOUND_LOWER, 1, BOUND_UPPER, 0, 1}, {BOUND_UPPER, 1, BOUND_UPPER, 2, 0},
        {BOUND_LOWER, 1, BOUND_LOWER, 2, 2}, {BOUND_LOWER, 1, BOUND_EXACT, 0, 1},
    };
    const Move moves[] = {0, legal[0], legal[5]};
    for (const auto& c : cases) {
        table.clear();
        if (c.first != BOUND_NONE) put(4, c.first, 0, moves[c.firstMove]);
        put(5, c.second, -5, moves[c.secondMove]);
        ASSERT_TRUE(hit(pos));
        EXPECT_EQ(e.move, moves[c.got]) << int(c.first) << " " << int(c.second);
    }
}

// Ways written by hand, as a key collision or a torn write leaves them: two ways with the
// position's check. Moves by index: 0 none, 1 legal, 2 a black pawn's move with White to move.
TEST_F(TtTest, ProbeSkipsWaysWithImpossibleMoves) {
    const struct { int first, second; bool hit; int found; } cases[] = {
        {2, 1, true, 1}, {2, 0, true, 0}, {2, 2, false, 0}, {1, 2, true, 1}, {0, 1, true, 0},
    };
    const Move moves[] = {0, legal[3], makeMoveWord(51, 35, 0) | kDoubleStepFlag};
    ASSERT_FALSE(isValidMove(pos, moves[2]));
    const uint32_t check = ttCheck(pos.hashKey);
    for (const auto& c : cases) {
        table.clear();
        table.setWay(pos, 0, TtEntry{check, moves[c.first], 7, 3, 0, 1, BOUND_EXACT, 0});
        table.setWay(pos, 2, TtEntry{check, moves[c.second], 8, 3, 0, 1, BOUND_EXACT, 0});
        EXPECT_EQ(hit(pos), c.hit) << c.first << " " << c.second;
        EXPECT_TRUE(!c.hit || e.move == moves[c.found]) << c.first << " " << c.second;
    }
    // remove clears the matching ways only.
    table.setWay(pos, 1, TtEntry{check ^ 1, 0, 9, 3, 0, 1, BOUND_EXACT, 0});
    EXPECT_TRUE(table.remove(pos));
    EXPECT_EQ(table.way(pos, 0).check | table.way(pos, 2).check, 0u);
    EXPECT_EQ(table.way(pos, 1).score, 9);
    EXPECT_FALSE(table.remove(pos));
}

// A bucket full of other positions: the new one replaces the way of lowest depth, less 8192 for
// an entry of an earlier search, the home way's value capped at 8192, ties keeping the earlier.
TEST_F(TtTest, ReplacementPrefersShallowAndOldEntries) {
    const struct { int depth[4]; bool old[4]; int victim; } cases[] = {
        {{5, 3, 7, 4}, {}, 1},  {{3, 3, 3, 3}, {}, 0},  {{9000, 8500, 8600, 8700}, {}, 0},
        {{40, 1, 2, 3}, {1, 0, 0, 0}, 0},      {{1, 2, 3, 8000}, {0, 0, 0, 1}, 3},
        {{9, 30, 20, 10}, {0, 1, 1, 0}, 2},    {{20, 10, 30, 40}, {1, 1, 1, 1}, 1},
    };
    const uint32_t check = ttCheck(pos.hashKey);
    table.newSearch();
    for (const auto& c : cases) {
        Tt::resetCounters();
        for (uint32_t i = 0; i < 4; ++i)
            table.setWay(pos, i, TtEntry{check + 1 + i, 0, 0, int16_t(c.depth[i]), 0,
                                        uint8_t(c.old[i] ? 1 : 2), BOUND_LOWER, 0});
        put(6, BOUND_LOWER);
        for (uint32_t i = 0; i < 4; ++i)
            EXPECT_EQ(table.way(pos, i).check, i == uint32_t(c.victim) ? check : check + 1 + i)
                << "victim " << c.victim;
        EXPECT_EQ(Tt::counters().liveReplacements, c.old[c.victim] ? 0u : 1u);
    }
}

// Threads write entries without locks, so a reader can find the first half of one write and
// the second half of another in a way: such a torn entry fails the check, whichever halves.
TEST_F(TtTest, TornEntriesFailTheCheck) {
    const uint32_t check = ttCheck(pos.hashKey);
    auto* raw = reinterpret_cast<unsigned char*>(const_cast<TtEntry*>(table.wayAddress(pos, 0)));
    unsigned char written[2][16];
    const TtEntry entries[2] = {TtEntry{check, legal[0], 40, 6, 12, 1, BOUND_LOWER, 0},
                                TtEntry{check, legal[4], -75, 9, -3, 1, BOUND_EXACT, 1}};
    for (int i = 0; i < 2; ++i) {
        table.setWay(pos, 0, entries[i]);
        ASSERT_TRUE(hit(pos));
        EXPECT_EQ(e.move, entries[i].move);
        std::memcpy(written[i], raw, 16);
    }
    for (int first = 0; first < 2; ++first) {
        std::memcpy(raw, written[first], 8);
        std::memcpy(raw + 8, written[first ^ 1], 8);
        EXPECT_FALSE(hit(pos)) << "first half of write " << first;
    }
}

// Mate scores are stored relative to the node, and any score beyond the band read back as one;
// a lopsided static score (two queens against a bare king is about 3700) is no mate and reads
// back unchanged whatever the plies between store and probe.
TEST_F(TtTest, MateScoresAreStoredRelativeToTheNode) {
    const struct { int score, ply, stored; } cases[] = {{100, 5, 100}, {3738, 7, 3738},
        {-3738, 7, -3738}, {20001, 7, 20008}, {-20001, 7, -20008}, {29990, 10, 30000}};
    for (const auto& c : cases) {
        table.clear();
        table.storeLowerBound(e, pos, 4, c.ply, c.score, 0, 12);
        ASSERT_TRUE(hit(pos));
        EXPECT_TRUE(e.score == c.stored && e.bound == BOUND_LOWER && e.depth == 4 &&
                    e.staticEval == 12 && scoreFromTt(c.stored, c.ply) == c.score)
            << c.score << " at " << c.ply;
    }
    EXPECT_EQ(scoreFromTt(3738, 2), 3738);
    EXPECT_EQ(scoreFromTt(-29990, 10), -29980);
}

}  // namespace
}  // namespace quarn::test
