// Nothing typed makes the engine crash or stop answering, and a long game goes on. (Refused FEN
// text and odd lines: the transcripts "fen_messages" and "routing".)
#include <gtest/gtest.h>

#include <string>

#include "support.h"

namespace quarn::test {
namespace {

using namespace std::string_literals;

constexpr char kStart[] = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 0";
const std::string kPerft1 = "% perft 1" + std::string(23, ' ') + "20 ops in ";

// The FEN line of the last board printed (the line above its hash line).
std::string lastFen(const std::string& out) {
    const size_t hash = out.rfind("\n hash=");
    if (hash == std::string::npos) return "";
    const size_t start = out.rfind('\n', hash - 1);
    return out.substr(start + 1, hash - start - 1);
}

TEST(ConsoleInput, GarbageNeverCrashes) {
    std::string moveChars, fenCommand = "fen ";
    while (moveChars.size() < 100 * 1024) moveChars += "e4xd5=Q+";
    while (fenCommand.size() < 100 * 1024) fenCommand += "8/";
    const std::string input = "\x01\x02\x7f garbage\n\xc3\xa9\xff\xfe\x80\nfen \xff\xfe\n"s +
                              "fen 8/8\0/8/8/8/8/8/K6k\n\0\0\0\nzz\0e4\n"s +
                              std::string(100 * 1024, 'x') + "\n" + moveChars + "\nK" +
                              std::string(100 * 1024, '1') + "k/8\n" + fenCommand + "\n\nperft\n";
    const EngineRun run = runEngine(input);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(lastFen(run.out), kStart);
    EXPECT_NE(run.out.find(kPerft1, run.out.size() - 120), std::string::npos);  // depth 1 at last
}

// From ply 896 on a game keeps its last 128 plies, leaving room in the history for a search.
TEST(ConsoleInput, LongGamesKeepTheirRecentHistory) {
    std::string input;
    for (int i = 0; i < 1100; ++i) input += "%\n";  // 896 of them bring the ply to 129
    const EngineRun run = runEngine(input + "e4\ndivide 1\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(lastFen(run.out), "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq - 0 334");
    EXPECT_NE(run.out.find("\ntotal            20\n% "), std::string::npos);
}

}  // namespace
}  // namespace quarn::test
