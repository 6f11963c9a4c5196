// Forced mates in one to four moves, each first proved by a plain brute-force mate search (the
// data file is not taken on trust); the engine must find a mating move with the exact score.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <string>

#include "board/movegen.h"
#include "board/movetext.h"
#include "search/pool.h"
#include "search/timecontrol.h"
#include "search/tt.h"
#include "support.h"

namespace quarn::test {

namespace {

// Whether `test` holds after the move m; the position is restored.
template <class Test>
bool after(Position& pos, Move m, Test test) {
    const UndoState saved = pos.state;
    makeMove(pos, m);
    computeAttackInfo(pos);
    const bool result = test();
    unmakeMove(pos, m, saved);
    return result;
}

bool matesWithin(Position& pos, int n);

// The side to move is mated now, or (n > 0) within n more attacking moves whatever it plays.
bool lost(Position& pos, int n) {
    Move moves[kMaxMoves];
    Move* const end = generateMoves(pos, moves);
    if (end == moves) return inCheck(pos);
    for (Move* m = moves; m != end && n > 0; ++m)
        if (!after(pos, *m, [&] { return matesWithin(pos, n); })) return false;
    return n > 0;
}

// The side to move mates within n moves. Checks go first: they mate more often, and only a
// check can mate at once.
bool matesWithin(Position& pos, int n) {
    Move moves[kMaxMoves];
    Move* const end = generateMoves(pos, moves);
    for (int pass = 0; pass < (n > 1 ? 2 : 1); ++pass)
        for (Move* m = moves; m != end; ++m)
            if (after(pos, *m, [&] { return inCheck(pos) == !pass && lost(pos, n - 1); }))
                return true;
    return false;
}

}  // namespace

// Lines "<fen> bm <move>; dm <n>; id "<name>";", check signs dropped from the move: five
// positions for each length from one to four moves.
TEST(Mates, FoundWithTheExactScore) {
    static const std::regex epd(R"re(^(.*) bm ([^;+#]+)[+#]*; dm (\d+); id "([^"]+)";)re");
    std::ifstream in(dataPath("mates.epd"));
    int count[5] = {};
    std::smatch f;
    for (std::string line; std::getline(in, line);) {
        if (!std::regex_search(line, f, epd)) continue;
        SCOPED_TRACE(f[4].str());
        const int n = std::stoi(f[3]);
        ++count[n > 4 ? 0 : n];
        Position pos = positionFrom(f[1]);
        // The move mates in n, and the position has no shorter mate.
        const auto forcesMate = [&](Move m) {
            return m && !(n > 1 && matesWithin(pos, n - 1)) &&
                   after(pos, m, [&] { return lost(pos, n - 1); });
        };
        ASSERT_TRUE(forcesMate(parseMove(pos, f[2].str().c_str()))) << "wrong data: " << f[2];

        tt.resize(16384);
        initThreads();
        setQuiet(true);
        tt.clear();
        timeControl.infinite = 0;
        timeControl.depthLimit = 2 * n + 1;
        timeControl.setNodeLimit(0);
        timeControl.setMoveTime(0xFFFFFFFFu);
        startSearch(pos, nullptr);
        waitIdle();
        const RootMove& best = pool.root.rootMoves[0];
        EXPECT_EQ(best.score, 30000 - (2 * n - 1));
        EXPECT_TRUE(forcesMate(best.move)) << best.move;  // any mate in n is right
    }
    for (int n = 0; n <= 4; ++n) EXPECT_EQ(count[n], n ? 5 : 0) << n;
}

}  // namespace quarn::test
