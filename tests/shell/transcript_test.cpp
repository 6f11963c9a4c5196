// Golden console transcripts: NAME.in is fed to the engine and what it prints after its start-up
// lines must equal NAME.out byte for byte, and its standard error NAME.err (or nothing).
// GCC 12 with the sanitizers reports a false "maybe uninitialized" inside <regex>.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>

#include "board/fen.h"
#include "support.h"

namespace quarn::test {
namespace {

std::string transcript(const std::string& file) {
    return readFile(dataPath("transcripts/" + file));
}

// Start-up may grow, so the goldens only hold what follows its last line.
std::string afterStartup(const std::string& out) {
    const size_t at = out.find("\ninitialized\n");
    return at == std::string::npos ? "<start-up not finished>\n" + out : out.substr(at + 13);
}

class GoldenTranscript : public ::testing::TestWithParam<const char*> {};

TEST_P(GoldenTranscript, MatchesByteForByte) {
    const std::string name = GetParam(), input = transcript(name + ".in");
    ASSERT_FALSE(input.empty()) << name;
    const EngineRun run = runEngine(input);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(afterStartup(run.out), transcript(name + ".out"));
    EXPECT_EQ(run.err, transcript(name + ".err"));
}

// start: divide 1 and 2, move list. castling: rights out of order, both castlings. enpassant,
// enpassant_console: a FEN square, a double step setting one, the null move clearing it (its key
// is what a FEN without the square gives); enpassant_console.in has CR LF line ends. promotion,
// check (every evasion), mate_stalemate. game: captures, castling, en passant, promotion and a
// null move in the move list. history_window: the last 24 plies. history_moved_on: a piece that
// left both squares. routing: unknown words ("a", two white kings, leading blanks), depths 0,
// text, default and too deep, move text that is no move, FEN text and a further word, quit.
// fen_messages: every refusal message (the position stays; the character after the bad one is
// shown), castling letters dropped, e3 stored as e4, text left over.
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
    printBoard(pos, nullptr, true);  // no stream: nothing to do
    char* text = nullptr;
    size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    printBoard(pos, out, true);
    std::fclose(out);
    EXPECT_EQ(std::string(text, size), transcript("debug_board.out"));
    std::free(text);
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
    if (ms < 0.5) {
        EXPECT_EQ(m[2].str(), "    inf");
    } else {
        EXPECT_NEAR(std::stod(m[2].str()), 197281.0 / ms, 0.5) << out;
    }
}

}  // namespace
}  // namespace quarn::test
