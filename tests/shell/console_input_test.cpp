// Bad console input: refused FEN text keeps the position, odd lines are routed as documented,
// and nothing typed makes the engine crash or stop answering.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support.h"

namespace quarn::test {
namespace {

using namespace std::string_literals;

constexpr char kBefore[] = "4k3/8/8/8/8/8/8/R3K2R w KQ - 0 1";
constexpr char kKept[] = "4k3/8/8/8/8/8/8/R3K2R w KQ - 0 0";
constexpr char kStart[] = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 0";

// The FEN line of the last board printed (the line above its hash line).
std::string lastFen(const std::string& out) {
    const size_t hash = out.rfind("\n hash=");
    if (hash == std::string::npos) return "";
    const size_t start = out.rfind('\n', hash - 1);
    return out.substr(start + 1, hash - start - 1);
}

struct FenCase {
    const char* name;
    std::string fen;
    std::string err;         // standard error, exactly; see exactErr
    std::string board;       // FEN of the board printed after the command
    std::string stdoutLine;  // printed before that board, if any
    bool exactErr = true;    // false: err need only contain the text
};

void PrintTo(const FenCase& c, std::ostream* os) { *os << c.name; }

class ConsoleFen : public ::testing::TestWithParam<FenCase> {};

TEST_P(ConsoleFen, MessagesAndResultingBoard) {
    const FenCase& c = GetParam();
    const EngineRun run = runEngine("fen "s + kBefore + "\nfen " + c.fen + "\nquit\n");
    EXPECT_EQ(run.status, 0);
    if (c.exactErr) {
        EXPECT_EQ(run.err, c.err);
    } else {
        EXPECT_NE(run.err.find(c.err), std::string::npos) << run.err;
    }
    EXPECT_EQ(lastFen(run.out), c.board);
    const std::string reply = "% " + c.stdoutLine + "\n   +---";
    EXPECT_NE(run.out.find(reply), std::string::npos) << run.out;
}

const FenCase kFenCases[] = {
    {"TooManyRanks", "8/8/8/8/8/8/8/K6k/8", "fen too long\n", kKept, ""},
    {"RankEightTooLong", "rnbqkbnrr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w - -", "fen too long\n",
     kKept, ""},
    {"RankOneTooLong", "8/8/8/8/8/8/8/K6k88888888R", "fen too long\n", kKept, ""},
    {"ManyEmptySquares", "K" + std::string(3000, '1') + "k/8", "fen too long\n", kKept, ""},
    // The character reported is the one after the offending one.
    {"CharAfterBadOne", "rnbqkbnr/ppppXppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -",
     "invalid char in fen: p\n", kKept, ""},
    {"DigitZero", "4k3/8/8/8/8/0/8/4K2R w", "invalid char in fen: /\n", kKept, ""},
    {"BadCharAtEnd", "4k3/8/8/8/8/8/8/4K2R9", "invalid char in fen: \0\n"s, kKept, ""},
    {"BadSide", "4k3/8/8/8/8/8/8/4K2R xy - -", "fen: invalid stm: y\n", kKept, ""},
    {"BadCastlingChar", "4k3/8/8/8/8/8/8/4K2R w KXq -", "setFen(): illegal castling char: q\n",
     kKept, ""},
    {"EpOnA1", "4k3/8/8/8/8/8/8/4K2R w K a1", "setFen() invalid ep square\n", kKept, ""},
    {"EpBelowBoard", "4k3/8/8/8/8/8/8/4K2R w K a0 0 1", "setFen() invalid ep square\n", kKept, ""},
    {"NoBlackKing", "8/8/8/8/8/8/8/K7 w - -", "setFen()", kKept, "", false},
    {"TwoWhiteKings", "k7/8/8/8/8/8/8/KK6 w - -", "setFen()", kKept, "", false},
    {"TwoBlackKings", "kk6/8/8/8/8/8/8/K7 b - -", "setFen()", kKept, "", false},
    // Accepted: a castling letter without its king and rook is dropped and parsing goes on.
    {"CastlingRightDropped", "r3k2r/8/8/8/4Pp2/8/8/R3K3 b KQkq e3 0 1", "castling K invalid\n",
     "r3k2r/8/8/8/4Pp2/8/8/R3K3 b Qkq e4 0 0", ""},
    {"AllRightsDropped", "1r2k1r1/8/8/8/8/8/8/1R2K1R1 w KQkq -",
     "castling K invalid\ncastling Q invalid\ncastling k invalid\ncastling q invalid\n",
     "1r2k1r1/8/8/8/8/8/8/1R2K1R1 w - - 0 0", ""},
    {"Unparsed", "4k3/8/8/8/8/8/8/4K2R w K - 0 1 extra words", "",
     "4k3/8/8/8/8/8/8/4K2R w K - 0 0", "unparsed: extra words\n"},
    {"PlacementOnly", "4k3/8/8/8/8/8/8/4K2R", "", "4k3/8/8/8/8/8/8/4K2R w - - 0 0", ""},
    {"LoneDashAtEnd", "4k3/8/8/8/8/8/8/4K2R b K -", "", "4k3/8/8/8/8/8/8/4K2R b K - 0 0", ""},
};
INSTANTIATE_TEST_SUITE_P(Console, ConsoleFen, ::testing::ValuesIn(kFenCases));

struct RouteCase {
    const char* name;
    std::string input;
    std::vector<std::string> has;  // pieces of standard output after the start-up lines
    std::string board;             // FEN of the last board printed, "" for none
    bool exact = false;            // has[0] is the whole output after start-up
    bool err = false;              // something is reported on standard error
};

void PrintTo(const RouteCase& c, std::ostream* os) { *os << c.name; }

class ConsoleRoute : public ::testing::TestWithParam<RouteCase> {};

TEST_P(ConsoleRoute, LineGoesWhereItShould) {
    const RouteCase& c = GetParam();
    const EngineRun run = runEngine(c.input);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(!run.err.empty(), c.err) << run.err;
    // Everything from the first prompt on, whatever start-up printed before it.
    const size_t prompt = run.out.find("\n% ");
    ASSERT_NE(prompt, std::string::npos) << run.out;
    const std::string out = run.out.substr(prompt + 1);
    if (c.exact) {
        EXPECT_EQ(out, c.has[0]);
    }
    for (const std::string& piece : c.has) EXPECT_NE(out.find(piece), std::string::npos) << out;
    EXPECT_EQ(lastFen(out), c.board);
}

const std::string kPerft1 = "perft 1" + std::string(23, ' ') + "20 ops in ";

const RouteCase kRouteCases[] = {
    // "quit" is the protocol's command too: its farewell goes to the log, which is stdout here.
    {"ZeroDepth", "perft 0\nperft x\ndivide 0\ndivide x\nquit\n", {"% % % % % exit()!\n"}, "", true},
    {"DefaultDepth", "perft\ndivide\nquit\n", {"% " + kPerft1, "\ntotal            20\n% "}, ""},
    {"MoveText", "e4\nd5\nexd5\nNf6\nNf3\nO-O\nNf3\nexd5\nquit\n",
     {"% not a move: 'O-O'\n% not a move: 'Nf3'\n% not a move: 'exd5'\n% "},
     "rnbqkb1r/ppp1pppp/5n2/3P4/8/5N2/PPPP1PPP/RNBQKB1R b KQkq - 2 5"},
    {"OneCharacter", "a\n", {"% unknown command: 'a'\n% "}, "", true},
    {"FenText", "8/8/8/8/8/8/8/K6k\n", {}, "8/8/8/8/8/8/8/K6k w - - 0 0"},
    {"FenTextWithSide", "8/8/8/8/8/8/8/K6k b\n", {}, "8/8/8/8/8/8/8/K6k w - - 0 0"},
    {"TwoWhiteKings", "8/8/8/8/8/8/8/KK5k\n", {"% unknown command: '8/8/8/8/8/8/8/KK5k'\n% "}, "",
     true},
    {"LeadingBlanks", "  go\n", {"% unknown command: '  go'\n% "}, "", true},
    {"Quit", "quit\nperft 1\n", {"% exit()!\n"}, "", true},
    {"EndOfInput", "perft 0\n", {"% % "}, "", true},
    // The move history holds 1024 plies: deep counts are refused, not run off its end.
    {"TooDeep", "perft 5000\ndivide 5000\nperft 1\nquit\n", {"% % % " + kPerft1}, "", false, true},
};
INSTANTIATE_TEST_SUITE_P(Console, ConsoleRoute, ::testing::ValuesIn(kRouteCases));

TEST(ConsoleInput, GarbageNeverCrashes) {
    const std::string longLine(100 * 1024, 'x');
    std::string moveChars, fenChars = "K", fenCommand = "fen ";
    while (moveChars.size() < 100 * 1024) moveChars += "e4xd5=Q+";
    fenChars += std::string(100 * 1024, '1') + "k/8";
    while (fenCommand.size() < 100 * 1024) fenCommand += "8/";
    const std::string input = "\x01\x02\x7f garbage\n\xc3\xa9\xff\xfe\x80\nfen \xff\xfe\n"s +
                              "fen 8/8\0/8/8/8/8/8/K6k\n\0\0\0\nzz\0e4\n"s + longLine + "\n" +
                              moveChars + "\n" + fenChars + "\n" + fenCommand + "\n\nperft 1\n";
    const EngineRun run = runEngine(input);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(lastFen(run.out), kStart);
    const std::string tail = "% " + kPerft1;
    EXPECT_NE(run.out.find(tail, run.out.size() - 120), std::string::npos);
}

TEST(ConsoleInput, NullMovesStopWhenTheHistoryIsFull) {
    std::string input;
    for (int i = 0; i < 1100; ++i) input += "%\n";
    input += "e4\ndivide 1\n\nfen rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1\n"
             "perft 1\n";
    const EngineRun run = runEngine(input);
    EXPECT_EQ(run.status, 0);
    EXPECT_FALSE(run.err.empty());
    EXPECT_EQ(run.out.find("----divide---"), std::string::npos);
    EXPECT_NE(run.out.find("RNBQKBNR b KQkq - 0 1023\n"), std::string::npos);
    EXPECT_EQ(lastFen(run.out), kStart);
    EXPECT_NE(run.out.find("% " + kPerft1), std::string::npos);
}

}  // namespace
}  // namespace quarn::test
