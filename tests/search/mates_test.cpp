// Forced mates in one to four moves. A plain brute-force mate search checks every position of
// the data file first (its annotations are not taken on trust); then the engine must find a
// mating first move with the exact mate score.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "board/movegen.h"
#include "board/movetext.h"
#include "search/pool.h"
#include "search/timecontrol.h"
#include "search/tt.h"
#include "support.h"

namespace quarn::test {

namespace {

struct MateCase {
    std::string fen, firstMove, id;
    int moves;  // mate in this many moves of the side to move
};
void PrintTo(const MateCase& c, std::ostream* os) { *os << c.id << ": " << c.fen; }

// Lines "<fen> bm <move>; dm <n>; id "<name>";", check signs dropped from the move.
std::vector<MateCase> loadMates() {
    static const std::regex epd(R"re(^(.*) bm ([^;+#]+)[+#]*; dm (\d+); id "([^"]+)";)re");
    std::vector<MateCase> cases;
    std::ifstream in(dataPath("mates.epd"));
    std::smatch m;
    for (std::string line; std::getline(in, line);)
        if (std::regex_search(line, m, epd)) cases.push_back({m[1], m[2], m[4], std::stoi(m[3])});
    return cases;
}

bool matesWithin(Position& pos, int n);

// The defender to move is mated now (n = 0) or within n more attacking moves whatever it plays.
bool defenderLost(Position& pos, int n) {
    Move moves[kMaxMoves];
    Move* const end = generateMoves(pos, moves);
    if (end == moves) return inCheck(pos);
    bool lost = n > 0;
    for (Move* m = moves; m != end && lost; ++m) {
        const UndoState saved = pos.state;
        makeMove(pos, *m);
        lost = matesWithin(pos, n);
        unmakeMove(pos, *m, saved);
    }
    return lost;
}

// The side to move mates within n moves. Checks are tried first: they mate more often, and
// only a check can mate at once.
bool matesWithin(Position& pos, int n) {
    Move moves[kMaxMoves];
    Move* const end = generateMoves(pos, moves);
    for (int pass = 0; pass < (n > 1 ? 2 : 1); ++pass) {
        for (Move* m = moves; m != end; ++m) {
            const UndoState saved = pos.state;
            makeMove(pos, *m);
            computeAttackInfo(pos);
            const bool mates = inCheck(pos) == (pass == 0) && defenderLost(pos, n - 1);
            unmakeMove(pos, *m, saved);
            if (mates) return true;
        }
    }
    return false;
}

// The move mates in n at most, and the position has no mate in n - 1.
bool forcesMateIn(Position& pos, Move m, int n) {
    if (n > 1 && matesWithin(pos, n - 1)) return false;
    const UndoState saved = pos.state;
    makeMove(pos, m);
    const bool lost = defenderLost(pos, n - 1);
    unmakeMove(pos, m, saved);
    return lost;
}

class Mates : public ::testing::TestWithParam<MateCase> {};

}  // namespace

TEST(MatesData, FivePositionsForEachLengthFromOneToFour) {
    const std::vector<MateCase> cases = loadMates();
    ASSERT_EQ(cases.size(), 20u);
    for (int n = 1; n <= 4; ++n)
        EXPECT_EQ(std::count_if(cases.begin(), cases.end(), [n](auto& c) { return c.moves == n; }),
                  5);
}

TEST_P(Mates, FoundWithTheExactScore) {
    const MateCase& c = GetParam();
    Position pos = positionFrom(c.fen);
    const Move given = parseMove(pos, c.firstMove.c_str());
    ASSERT_TRUE(given && forcesMateIn(pos, given, c.moves)) << "wrong data: " << c.firstMove;

    tt.resize(16384);
    initThreads();
    setQuiet(true);
    tt.clear();
    timeControl.infinite = 0;
    timeControl.depthLimit = 2 * c.moves + 1;
    timeControl.setNodeLimit(0);
    timeControl.setMoveTime(0xFFFFFFFFu);
    startSearch(pos, nullptr);
    waitIdle();

    const RootMove& best = pool.root.rootMoves[0];
    EXPECT_EQ(best.score, 30000 - (2 * c.moves - 1));
    // Another first move is right too when it also mates in n.
    EXPECT_TRUE(best.move == given || forcesMateIn(pos, best.move, c.moves)) << best.move;
}

INSTANTIATE_TEST_SUITE_P(Epd, Mates, ::testing::ValuesIn(loadMates()), [](const auto& param) {
    std::string name = param.param.id;
    for (char& ch : name) ch = std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
    return name;
});

}  // namespace quarn::test
