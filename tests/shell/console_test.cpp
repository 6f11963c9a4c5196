// The console through the binary: golden transcripts, hostile and long input, and the line
// reader on a pipe and on a terminal with its history file.
// GCC 12 with the sanitizers reports a false "maybe uninitialized" inside <regex>.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <csignal>
#include <cmath>
#include <fstream>
#include <regex>

#include "support.h"

namespace quarn::test {
namespace {

using namespace std::string_literals;

std::string transcript(const std::string& f) { return readFile(dataPath("transcripts/" + f)); }

// The FEN line of the last board printed (the line above its hash line).
std::string lastFen(const std::string& out) {
    const size_t hash = out.rfind("\n hash=");
    if (hash == std::string::npos) return "";
    const size_t start = out.rfind('\n', hash - 1);
    return out.substr(start + 1, hash - start - 1);
}

// Whether a line holds `text`.
std::function<bool(const std::string&)> has(const std::string& text) {
    return [text](const std::string& line) { return line.find(text) != std::string::npos; };
}

// NAME.in is fed to the engine; what it prints after its start-up lines must equal NAME.out
// byte for byte, and its standard error NAME.err (or nothing).
class GoldenTranscript : public ::testing::TestWithParam<const char*> {};

TEST_P(GoldenTranscript, MatchesByteForByte) {
    const std::string name = GetParam(), input = transcript(name + ".in");
    ASSERT_FALSE(input.empty()) << name;
    const EngineRun run = runEngine(input);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(afterStartup(run.out), transcript(name + ".out"));
    EXPECT_EQ(run.err, transcript(name + ".err"));
}

// castling: rights out of order. enpassant(_console): a FEN square, a double step setting one,
// the null move clearing it; CR LF line ends. game: every kind of move and a null move in the
// move list. history_*: the last 24 plies, a piece that left both squares. routing: unknown
// words, depth arguments, move and FEN text. fen_messages: every refusal, the position kept.
INSTANTIATE_TEST_SUITE_P(Console, GoldenTranscript,
                         ::testing::Values("start", "castling", "enpassant", "enpassant_console",
                                           "promotion", "check", "mate_stalemate", "game",
                                           "history_window", "history_moved_on", "routing",
                                           "fen_messages"),
                         [](const auto& c) { return std::string(c.param); });

TEST(Transcript, StartUpAndDebugBoard) {
    const EngineRun run = runEngine("");
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(std::regex_search(run.out, std::regex("^quarn-0\\.3a\n[^\n]+\n\n"))) << run.out;
    EXPECT_EQ(afterStartup(run.out), "% ");
    EXPECT_EQ(run.out.find("inifile="), std::string::npos);
    TempDir dir;
    std::ofstream(dir.file("quarn.ini")).flush();  // an empty file is read too
    const std::string withIni = runEngine("", {}, dir.path()).out;
    EXPECT_LT(withIni.find("inifile=quarn.ini\n"), withIni.find("initialized")) << withIni;
    const Position pos =
        positionFrom("rnbqkbnr/ppp1p1pp/8/3pPp2/8/8/PPPP1PPP/RNBQKBNR w KQkq f6 0 3");
    EXPECT_EQ(printed([&](FILE* out) { printBoard(pos, out, true); }),
              transcript("debug_board.out"));
}

// "%-20s  %10.0f ops in %5.3f seconds  ops/ms=%7.0f,  ticks/op=%6.1f\n"
TEST(Transcript, PerftTimingLine) {
    const std::string out = afterStartup(runEngine("perft 4\n").out);
    const std::regex format(
        "% perft 4 {19}197281 ops in ( *[0-9]+\\.[0-9]{3}) seconds  "
        "ops/ms=((?=[ 0-9]{7}) *[0-9]+| {4}inf),  ticks/op=(?=[ .0-9]{6}) *[0-9]+\\.[0-9]\n% ");
    std::smatch m;
    ASSERT_TRUE(std::regex_match(out, m, format)) << out;
    // Whole milliseconds elapsed; no time at all gives an infinite rate.
    const double ms = std::stod(m[1].str()) * 1000.0;
    EXPECT_TRUE(ms < 0.5 ? m[2] == "    inf" : std::abs(std::stod(m[2]) - 197281.0 / ms) <= 0.5)
        << out;
}

TEST(ConsoleInput, GarbageNeverCrashes) {
    constexpr size_t kLong = size_t{100} * 1024;
    std::string moveChars, fenCommand = "fen ";
    while (moveChars.size() < kLong) moveChars += "e4xd5=Q+";
    while (fenCommand.size() < kLong) fenCommand += "8/";
    const std::string input = "\x01\x02\x7f garbage\n\xc3\xa9\xff\xfe\x80\nfen \xff\xfe\n"s +
                              "fen 8/8\0/8/8/8/8/8/K6k\n\0\0\0\nzz\0e4\n"s +
                              std::string(kLong, 'x') + "\n" + moveChars + "\nK" +
                              std::string(kLong, '1') + "k/8\n" + fenCommand + "\n\nperft\n";
    const EngineRun run = runEngine(input);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(lastFen(run.out), "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 0");
    const std::string perft1 = "% perft 1" + std::string(23, ' ') + "20 ops in ";
    EXPECT_NE(run.out.find(perft1, run.out.size() - 120), std::string::npos);  // depth 1 at last
}

// 1100 plies of knight shuffles, past the history's 1024 entries: from ply 896 on a game keeps
// its last 128 plies (896 moves bring the ply to 129, 204 more to 333), leaving room for a
// search, which runs to its depth (the sanitizer build runs this).
TEST(ConsoleInput, LongGamesKeepTheirRecentHistory) {
    std::string input;
    for (int i = 0; i < 1100 / 4; ++i) input += "Nf3\nNf6\nNg1\nNg8\n";
    const EngineRun run = runEngine(input + "e4\ndivide 1\nmd 10\ng\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(lastFen(run.out), "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq - 0 334");
    EXPECT_NE(run.out.find("\ntotal            20\n% "), std::string::npos);
    EXPECT_NE(run.out.find("\n [10/"), std::string::npos);
}

// Ctrl-C during "g" or a "go" typed at the console stops the search, which gives its result,
// and the console reads on; with no search running it ends the engine as it always has.
TEST(ConsoleInput, InterruptStopsASearchOnly) {
    EngineSession engine;
    engine.send("mt 1000\ng");
    ASSERT_TRUE(engine.line(has("[7/"), 20000)) << engine.out;
    engine.interrupt();
    EXPECT_TRUE(engine.line(has("best move "), 5000)) << engine.out;
    engine.send("go infinite");
    ASSERT_TRUE(engine.line(has("info depth 7"), 20000)) << engine.out;
    engine.interrupt();
    EXPECT_TRUE(engine.line(has("bestmove "), 5000)) << engine.out;
    EXPECT_TRUE(engine.line(has("reduce :"), 5000));  // the statistics follow the search
    engine.send("help");
    EXPECT_TRUE(engine.line(has("time limit of g in seconds"), 5000));
    engine.interrupt();
    EXPECT_EQ(engine.waitExit(5000), 128 + SIGINT);
}

TEST(LineInput, PipedLinesAreNeverEchoedAndGoStraightIntoTheHistory) {
    EngineSession engine;
    engine.send("zq-unique-1");
    EXPECT_TRUE(engine.line(has("unknown command: 'zq-unique-1'"), 20000)) << engine.out;
    // Written before the line is handled, while the session goes on.
    EXPECT_EQ(readFile(engine.dir.file(".quarnhistory")), "zq-unique-1\n");
    engine.send("zq-unique-2 zq-tail\nfen 8/8/8/8/8/8/8/K6k w - - 0 1\n%\n8/8/8/7k/8/8/8/K7\nquit");
    EXPECT_EQ(engine.waitExit(20000), 0);
    const std::string& seen = engine.out;
    // A prompt, then straight away the reply: nothing of the line in between.
    EXPECT_NE(seen.find("% unknown command: 'zq-unique-1'\n% unknown command: 'zq-unique-2'\n% "),
              std::string::npos);
    EXPECT_EQ(countOf(seen, "%"), 6);  // one prompt per line read
    for (const char* echo : {"fen 8/8/8/8/8/8/8/K6k", "%\n", "8/8/8/7k/8/8/8/K7\n", "quit\n"})
        EXPECT_EQ(seen.find(echo), std::string::npos) << echo << " in\n" << seen;
}

TEST(LineInput, TerminalShowsThePromptAndTakesTypedLines) {
    EngineSession engine({}, true);
    engine.send("zq-tty");
    EXPECT_TRUE(engine.line(has("unknown command: 'zq-tty'"), 20000)) << engine.out;
    engine.send("quit");
    EXPECT_EQ(engine.waitExit(20000), 0) << engine.out;
    EXPECT_NE(engine.out.find("% "), std::string::npos) << engine.out;
    EXPECT_EQ(readFile(engine.dir.file(".quarnhistory")), "zq-tty\nquit\n");
}

TEST(LineInput, HistoryFileKeepsTheLastHundredLines) {
    TempDir dir;
    std::string input, kept;
    for (int i = 1; i <= 150; ++i) input += "zq-h" + std::to_string(i) + (i % 10 ? "\n" : "\n\n");
    for (int i = 52; i <= 150; ++i) kept += "zq-h" + std::to_string(i) + "\n";  // no empty lines
    EXPECT_EQ(runEngine(input + "quit\n", {}, dir.path()).status, 0);
    EXPECT_EQ(readFile(dir.file(".quarnhistory")), kept + "quit\n");
    runEngine("zq-next\nquit\n", {}, dir.path());  // the next session starts from that history
    EXPECT_EQ(readFile(dir.file(".quarnhistory")),
              kept.substr(kept.find("zq-h54")) + "quit\nzq-next\nquit\n");
}

}  // namespace
}  // namespace quarn::test
