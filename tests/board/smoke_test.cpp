#include <gtest/gtest.h>

#include "board/perft.h"
#include "support.h"

namespace quarn::test {

TEST(Smoke, StartPositionPerft) {
    Position pos = positionFrom("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1");
    EXPECT_EQ(perft(pos, 3), 8902u);
    const EngineRun run = runEngine("perft 2\nquit\n");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find("perft 2"), std::string::npos);
}

}  // namespace quarn::test
