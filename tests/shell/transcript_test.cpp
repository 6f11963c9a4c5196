// Golden console transcripts: NAME.in is fed to the engine and what it prints after its start-up
// lines must equal NAME.out byte for byte (standard error must equal NAME.err, or be empty).
// GCC 12 with the sanitizers reports a false "maybe uninitialized" inside <regex>.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>

#include "board/fen.h"
#include "support.h"

namespace quarn::test {
namespace {

// The last start-up line. Start-up may grow, so the goldens only hold what follows it.
constexpr char kStartupEnd[] = "\ninitialized\n";

std::string readTranscript(const std::string& name, bool* found = nullptr) {
    std::ifstream in(dataPath("transcripts/" + name), std::ios::binary);
    if (found) *found = in.is_open();
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::string afterStartup(const std::string& out) {
    const size_t at = out.find(kStartupEnd);
    if (at == std::string::npos) return "<start-up not finished>\n" + out;
    return out.substr(at + sizeof kStartupEnd - 1);
}

TEST(Transcript, StartupBannerThenPrompt) {
    const EngineRun run = runEngine("");
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(std::regex_search(run.out, std::regex("^quarn-0\\.3a\n[^\n]+\n\n"))) << run.out;
    EXPECT_EQ(afterStartup(run.out), "% ");
}

class GoldenTranscript : public ::testing::TestWithParam<const char*> {};

TEST_P(GoldenTranscript, MatchesByteForByte) {
    const std::string name = GetParam();
    bool haveInput = false, haveErr = false;
    const std::string input = readTranscript(name + ".in", &haveInput);
    ASSERT_TRUE(haveInput) << name;
    const std::string expectedErr = readTranscript(name + ".err", &haveErr);
    const EngineRun run = runEngine(input);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(afterStartup(run.out), readTranscript(name + ".out"));
    EXPECT_EQ(run.err, haveErr ? expectedErr : "");
}

// start: the start position, divide 1 and 2, move list. castling: rights given out of order,
// both castlings, Black's long castling listed as "O-O". enpassant: a FEN en-passant square and
// the capture. enpassant_console: a double step that sets it, the null move that clears it.
// promotion: promotions with and without capture, under-promotion, evasions after a checking
// promotion. check: every kind of evasion. mate_stalemate: no legal move. game: a capture,
// castling both ways, en passant, promotion and a null move in the move list. history_window:
// the last 24 plies only. history_moved_on: a history move whose piece has left both squares.
INSTANTIATE_TEST_SUITE_P(Console, GoldenTranscript,
                         ::testing::Values("start", "castling", "enpassant", "enpassant_console",
                                           "promotion", "check", "mate_stalemate", "game",
                                           "history_window", "history_moved_on"),
                         [](const auto& c) { return std::string(c.param); });

TEST(Transcript, DebugBoardPrintsPieceCodes) {
    const Position pos =
        positionFrom("rnbqkbnr/ppp1p1pp/8/3pPp2/8/8/PPPP1PPP/RNBQKBNR w KQkq f6 0 3");
    printBoard(pos, nullptr, true);  // no stream: nothing to do
    FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    printBoard(pos, file, true);
    std::string text(static_cast<size_t>(std::ftell(file)), '\0');
    std::rewind(file);
    const size_t got = std::fread(text.data(), 1, text.size(), file);
    std::fclose(file);
    EXPECT_EQ(got, text.size());
    EXPECT_EQ(text, readTranscript("debug_board.out"));
}

// "%-20s  %10.0f ops in %5.3f seconds  ops/ms=%7.0f,  ticks/op=%6.1f\n"
TEST(Transcript, PerftTimingLine) {
    const EngineRun run = runEngine("perft 3\nquit\n");
    EXPECT_EQ(run.status, 0);
    const std::regex format(
        "% perft 3 {21}8902 ops in ( *[0-9]+\\.[0-9]{3}) seconds  "
        "ops/ms=((?=[ 0-9]{7}) *[0-9]+| {4}inf),  ticks/op=(?=[ .0-9]{6}) *[0-9]+\\.[0-9]\n% exit\\(\\)!\n");
    std::smatch m;
    const std::string out = afterStartup(run.out);
    ASSERT_TRUE(std::regex_match(out, m, format)) << out;
    // Whole milliseconds elapsed; no time at all gives an infinite rate.
    const double ms = std::stod(m[1].str()) * 1000.0;
    if (ms < 0.5) {
        EXPECT_EQ(m[2].str(), "    inf");
    } else {
        EXPECT_NEAR(std::stod(m[2].str()), 8902.0 / ms, 0.5) << out;
    }
}

}  // namespace
}  // namespace quarn::test
