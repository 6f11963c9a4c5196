// Hostile input through the protocol: nothing crashes, every "isready" is answered, the
// status machine stays consistent, impossible positions are refused.
#include <gtest/gtest.h>

#include <string>

#include "support.h"

namespace quarn::test {

namespace {

int count(const std::string& text, const std::string& piece) {
    int n = 0;
    for (size_t p = text.find(piece); p != std::string::npos; p = text.find(piece, p + 1)) ++n;
    return n;
}

}  // namespace

TEST(Abuse, ProtocolStormsAndGarbage) {
    std::string garbage = "position startpos moves";
    for (int i = 0; i < 10000; ++i) garbage += " z" + std::to_string(i);
    const std::string input = "uci\nposition startpos\ngo depth 3\ngo depth 3\nisready\n"
                              "stop\nstop\nponderhit\nponderhit\nstop\n"
                              "setoption name Hash value 0\nsetoption name Hash value -5\n"
                              "setoption name Hash value 99999999\nisready\n" +
                              garbage + "\n" + std::string(1 << 20, 'x') + "\n" +
                              std::string("go\0depth\0 2\n", 12) +
                              "position startpos moves e2e4\r\ngo depth 2\r\nisready\nquit\n";
    const EngineRun run = runEngine(input);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(count(run.out, "readyok\n"), 3);
    // Every bestmove line carries a move, never garbage.
    for (size_t p = run.out.find("bestmove "); p != std::string::npos; p = run.out.find("bestmove ", p + 1))
        EXPECT_NE(run.out.substr(p + 9, 4), "") << run.out.substr(p, 30);
}

// Impossible positions are refused with a message; the search then runs on the position kept.
TEST(Abuse, ImpossiblePositionsAreRefused) {
    const char* fens[] = {
        "8/8/8/8/8/8/8/7k w - - 0 1",                       // no white king
        "K7/8/8/8/8/8/8/K6k w - - 0 1",                     // two white kings
        "k7/8/8/8/8/8/8/R6K w - - 0 1",                     // the side not to move in check
        "k7/8/8/8/8/8/8/P6K w - - 0 1",                     // a pawn on the first rank
        "QQQQQQQQ/QQ6/8/8/8/8/8/k6K w - - 0 1",             // ten queens
    };
    std::string input = "uci\n";
    for (const char* fen : fens) input += std::string("position fen ") + fen + "\ngo depth 8\nisready\n";
    input += "stop\nquit\n";
    TempDir dir;
    const EngineRun run = runEngine(input, {}, dir.path());
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(count(run.out, "readyok\n"), 5);
    EXPECT_EQ(count(run.out, "bestmove "), 5);
    EXPECT_EQ(run.out.find("bestmove 0000"), std::string::npos);
    const std::string log = readFile(dir.file("quarn-0.3a-error.log"));
    for (const char* why : {"no white king", "more than one white king", "not to move is in check",
                            "pawn on the first or eighth rank", "too many white pieces"})
        EXPECT_NE(log.find(why), std::string::npos) << why;
}

}  // namespace quarn::test

namespace quarn::test {

// 1100 plies of knight shuffles, past the history's 1024 entries, then a search: the history
// keeps its recent part, so nothing is written out of bounds (the sanitizer build runs this).
TEST(Abuse, LongGamesFitTheHistory) {
    std::string uciMoves, consoleMoves;
    const char* uciCycle[] = {"g1f3", "g8f6", "f3g1", "f6g8"};
    const char* consoleCycle[] = {"Nf3", "Nf6", "Ng1", "Ng8"};
    for (int i = 0; i < 1100; ++i) {
        uciMoves += std::string(" ") + uciCycle[i % 4];
        consoleMoves += std::string(consoleCycle[i % 4]) + "\n";
    }
    const EngineRun uciRun = runEngine("uci\nposition startpos moves" + uciMoves + "\ngo depth 10\nisready\n");
    EXPECT_EQ(uciRun.status, 0);
    EXPECT_NE(uciRun.out.find("readyok"), std::string::npos);
    const EngineRun consoleRun = runEngine(consoleMoves + "md 10\ng\nquit\n");
    EXPECT_EQ(consoleRun.status, 0);
    EXPECT_NE(consoleRun.out.find("[10/"), std::string::npos);
}

}  // namespace quarn::test
