#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>

#include "support.h"

namespace quarn::test {
namespace {

using Lines = std::vector<std::string>;

// Whether a line holds `text`.
std::function<bool(const std::string&)> has(const std::string& text) {
    return [text](const std::string& line) { return line.find(text) != std::string::npos; };
}

Lines fileLines(const std::string& path) {
    Lines lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

TEST(LineInput, PipedLinesAreNeverEchoedAndGoStraightIntoTheHistory) {
    EngineSession engine;
    engine.send("zq-unique-1");
    EXPECT_TRUE(engine.line(has("unknown command: 'zq-unique-1'"), 20000)) << engine.out;
    // Written before the line is handled, while the session goes on.
    EXPECT_EQ(fileLines(engine.dir.file(".quarnhistory")), Lines{"zq-unique-1"});
    engine.send("zq-unique-2 zq-tail\nfen 8/8/8/8/8/8/8/K6k w - - 0 1\n%\n8/8/8/7k/8/8/8/K7\nquit");
    EXPECT_EQ(engine.waitExit(20000), 0);
    const std::string& seen = engine.out;
    // A prompt, then straight away the reply: nothing of the line in between.
    EXPECT_NE(seen.find("% unknown command: 'zq-unique-1'\n% unknown command: 'zq-unique-2'\n% "),
              std::string::npos);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), '%'), 6);  // one prompt per line read
    for (const char* echo : {"fen 8/8/8/8/8/8/8/K6k w - - 0 1\n", "%\n", "8/8/8/7k/8/8/8/K7\n",
                             "quit\n"})
        EXPECT_EQ(seen.find(echo), std::string::npos) << echo << " in\n" << seen;
}

TEST(LineInput, TerminalShowsThePromptAndTakesTypedLines) {
    EngineSession engine({}, true);
    engine.send("zq-tty");
    EXPECT_TRUE(engine.line(has("unknown command: 'zq-tty'"), 20000)) << engine.out;
    engine.send("quit");
    EXPECT_EQ(engine.waitExit(20000), 0) << engine.out;
    EXPECT_NE(engine.out.find("% "), std::string::npos) << engine.out;
    EXPECT_EQ(fileLines(engine.dir.file(".quarnhistory")), (Lines{"zq-tty", "quit"}));
}

// (Carriage returns before line feeds: the transcript "enpassant_console" has them.)
TEST(LineInput, HistoryFileKeepsTheLastHundredLines) {
    TempDir dir;
    std::string input;
    Lines kept;
    for (int i = 1; i <= 150; ++i) input += "zq-h" + std::to_string(i) + (i % 10 ? "\n" : "\n\n");
    for (int i = 52; i <= 150; ++i) kept.push_back("zq-h" + std::to_string(i));  // no empty lines
    kept.push_back("quit");
    EXPECT_EQ(runEngine(input + "quit\n", {}, dir.path()).status, 0);
    EXPECT_EQ(fileLines(dir.file(".quarnhistory")), kept);
    runEngine("zq-next\nquit\n", {}, dir.path());  // the next session starts from that history
    kept.erase(kept.begin(), kept.begin() + 2);
    kept.insert(kept.end(), {"zq-next", "quit"});
    EXPECT_EQ(fileLines(dir.file(".quarnhistory")), kept);
}

}  // namespace
}  // namespace quarn::test
