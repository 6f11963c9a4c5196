#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "board/perft.h"
#include "support.h"

namespace quarn::test {

namespace {

// Counts above this are left to the optimised build.
constexpr uint64_t kSlowBuildLimit = 2'500'000;

// The fixed fields (skipping the padding after the state) and the move history up to ply.
bool sameRecord(const Position& a, const Position& b) {
    constexpr size_t stateEnd = offsetof(Position, state) + offsetof(UndoState, epSquare) + 1;
    constexpr size_t tail = offsetof(Position, moveHistory) - offsetof(Position, sideToMove);
    return std::memcmp(&a, &b, stateEnd) == 0 &&
           std::memcmp(&a.sideToMove, &b.sideToMove, tail) == 0 &&
           std::memcmp(a.moveHistory, b.moveHistory, (a.ply + 1) * sizeof(Move)) == 0;
}

}  // namespace

TEST(Perft, EpdCounts) {
    int positions = 0, runs = 0;
    for (const EpdEntry& e : loadEpd("perft.epd")) {
        SCOPED_TRACE(e.fen);
        Position pos = positionFrom(e.fen);
        const Position root = pos;
        ++positions;
        // Depth 0 and below count the legal moves, like depth 1.
        EXPECT_EQ(perft(pos, 0), e.counts[0]);
        EXPECT_EQ(perft(pos, -1), e.counts[0]);
        for (size_t d = 1; d <= e.counts.size(); ++d) {
            if (kSlowBuild && e.counts[d - 1] > kSlowBuildLimit) break;
            EXPECT_EQ(perft(pos, static_cast<int>(d)), e.counts[d - 1]) << "depth " << d;
            EXPECT_TRUE(sameRecord(pos, root)) << "changed by perft " << d;
            ++runs;
        }
    }
    EXPECT_EQ(positions, 6);
    EXPECT_EQ(runs, kSlowBuild ? 23 : 33);
    Position stalemate = positionFrom("7k/5Q2/6K1/8/8/8/8/8 b - -");
    for (int d : {0, 1, 2}) EXPECT_EQ(perft(stalemate, d), 0u) << d;
}

// The root moves of divide add up to perft, one line per legal move in the fixed layout.
TEST(Perft, DivideLinesSumToPerft) {
    std::vector<EpdEntry> entries = loadEpd("perft.epd");
    entries.push_back({"7k/5Q2/6K1/8/8/8/8/8 b - - 0 1", {0, 0, 0}});
    ASSERT_EQ(entries.size(), 7u);
    for (const EpdEntry& e : entries) {
        for (int depth : {1, 3}) {
            SCOPED_TRACE(e.fen + " depth " + std::to_string(depth));
            Position pos = positionFrom(e.fen);
            const Position root = pos;
            FILE* f = std::tmpfile();
            ASSERT_NE(f, nullptr);
            divide(pos, depth, f);
            EXPECT_TRUE(sameRecord(pos, root));
            std::rewind(f);
            char buf[128], text[32];
            double count = 0, sum = 0, total = -1;
            uint64_t lines = 0;
            ASSERT_TRUE(std::fgets(buf, sizeof buf, f));
            EXPECT_STREQ(buf, "----divide---\n");
            while (std::fgets(buf, sizeof buf, f) && buf[0] != '-') {
                ASSERT_EQ(std::sscanf(buf, "%31s %lf", text, &count), 2) << buf;
                EXPECT_EQ(std::strlen(buf), 20u) << buf;  // "%-8s %10.0f\n"
                EXPECT_TRUE(depth > 1 || count == 1.0) << buf;
                sum += count;
                ++lines;
            }
            EXPECT_STREQ(buf, "-------------------\n");
            ASSERT_TRUE(std::fgets(buf, sizeof buf, f));
            EXPECT_EQ(std::sscanf(buf, "total    %lf", &total), 1) << buf;
            EXPECT_EQ(std::strlen(buf), 20u) << buf;
            std::fclose(f);
            EXPECT_EQ(lines, e.counts[0]);
            EXPECT_EQ(sum, static_cast<double>(e.counts[depth - 1]));
            EXPECT_EQ(total, sum);
        }
    }
}

}  // namespace quarn::test
