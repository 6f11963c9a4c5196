// The UCI protocol as a GUI sees it: whole sessions fed at once for what needs no timing, live
// sessions on pipes for everything timed, and hostile input.
#include <chrono>
#include <fstream>
#include <map>

#include "support.h"

namespace quarn::test {
namespace {

using Clock = std::chrono::steady_clock;
using Line = std::optional<std::string>;
constexpr int kScale = kSlowBuild ? 4 : 1;  // the sanitizer build searches several times slower
constexpr int kWaitMs = 10000 * kScale;     // deadline of anything that must come
constexpr char kErrorLog[] = "quarn-0.3a-error.log";

int msSince(Clock::time_point t) {
    using std::chrono::milliseconds;
    return static_cast<int>(std::chrono::duration_cast<milliseconds>(Clock::now() - t).count());
}

// The number after " name " in an info line, -1 when the field is missing.
long field(const std::string& line, const std::string& name) {
    const size_t at = line.find(" " + name + " ");
    return at == std::string::npos ? -1 : std::strtol(&line[at + name.size() + 2], nullptr, 10);
}

bool isInfo(const std::string& l) { return l.rfind("info ", 0) == 0; }
bool isPvLine(const std::string& l) { return isInfo(l) && l.find(" pv ") != std::string::npos; }

// The moves of a "bestmove X [ponder Y]" line, each legal after the one before from `fen`.
Lines bestmoveOf(const Line& line, const std::string& fen) {
    const Lines w = line ? words(*line) : Lines{};
    EXPECT_TRUE(w.size() == 2 || (w.size() == 4 && w[2] == "ponder")) << line.value_or("none");
    Position pos = positionFrom(fen);
    Lines moves;
    for (size_t i = 1; i < w.size(); i += 2) {
        const Move m = parseMove(pos, w[i].c_str());
        EXPECT_NE(m, kNullMove) << *line;
        if (!m) break;
        makeMove(pos, m);
        computeAttackInfo(pos);
        moves.push_back(w[i]);
    }
    return moves;
}

// A live engine after "uci" and a position.
struct UciEngine : EngineSession {
    explicit UciEngine(const std::string& position = "position startpos") {
        send("uci");
        EXPECT_TRUE(line("uciok", kWaitMs));
        send(position);
    }
};

// Answers that need no search, move lists of "position" (shown by the console's "fen"), and the
// error log, which is appended to.
TEST(UciSession, GoldenAnswersWithoutSearch) {
    TempDir dir;
    std::ofstream(dir.file(kErrorLog)) << "earlier run\n";
    const EngineRun run = runEngine(readFile(dataPath("uci/session.in")), {}, dir.path());
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(afterStartup(run.out), readFile(dataPath("uci/session.out")));
    EXPECT_EQ(readFile(dir.file(kErrorLog)),
              "earlier run\n" + readFile(dataPath("uci/session.err")));
    EXPECT_EQ(run.err, "");
}

// words.in: every setoption form, go words with and without a limit (the error log says which
// have none), each go followed by "stop" and a marker. Run with and without a log file: the
// log shows what the words set, and after "uciok" stdout holds protocol lines only.
class UciWords : public ::testing::TestWithParam<bool> {};

TEST_P(UciWords, OptionsLimitsAndCleanStdout) {
    TempDir dir;
    const Lines args = GetParam() ? Lines{"--logdir", dir.file("logs")} : Lines{};
    const EngineRun run = runEngine(readFile(dataPath("uci/words.in")), args, dir.path());
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(readFile(dir.file(kErrorLog)), readFile(dataPath("uci/words.err")));
    const size_t at = run.out.find("\nuciok\n");
    ASSERT_NE(at, std::string::npos) << run.out;
    std::istringstream after(run.out.substr(at + 7));
    int bestmoves = 0;
    for (std::string l; std::getline(after, l); bestmoves += l.rfind("bestmove ", 0) == 0)
        EXPECT_TRUE(l.empty() || l == "readyok" || isInfo(l) || l.rfind("bestmove ", 0) == 0) << l;
    EXPECT_EQ(bestmoves, 16);  // one per "go": a "stop" after the answer sends nothing
    // SendPv is off: the final line of each search, without a move list, is all that is shown.
    EXPECT_NE(run.out.find("\ninfo depth "), std::string::npos);
    EXPECT_EQ(run.out.find(" pv "), std::string::npos);
    EXPECT_EQ(run.out.find("currmove"), std::string::npos);
    if (!GetParam()) return;
    const std::string log = readFile(dir.file("logs/quarn-0000.log"));
    size_t from = 0;  // each text comes after the one before
    for (const char* text :
         {":isready\n", ":<--readyok\n", "resizing hash to 64Mb\n", "resizing hash to 32Mb\n",
          ":tt cleared\n", "canponder=1\n", "canponder=0\n", "sendpv=0\n", "usebook=1\n",
          "Opponent=GM Tester, human, elo=2800\n",
          "First search out of book is at 3 ply\nout of book=1\n",
          "got hard moves/millis=0/40\nNominal search time is 0.04 seconds, infinite=0, nodes=0\n",
          "out of book=6\n", "got wb moves/millis=20/60000\n",
          "First search out of book is at 2 ply\n", "got wb moves/millis=0/1000\n",
          // 1000 ms less a reserve of an eighth and the Move Overhead of 500 ms, over 44 moves,
          // doubled out of book, twice in the normal phase: 32 ms.
          "moveoverhead=500\n", "Nominal search time is 0.03 seconds"}) {
        from = log.find(text, from);
        ASSERT_NE(from, std::string::npos) << text << "\n" << log;
    }
    EXPECT_EQ(log.find("got wb moves/millis=0/5000"), std::string::npos);
}
INSTANTIATE_TEST_SUITE_P(LogFile, UciWords, ::testing::Bool());

// Searches without an end of their own: "isready" is answered at once, and only "stop" ends
// them, with the best move and the move to ponder on.
class UciUnbounded : public ::testing::TestWithParam<const char*> {};

TEST_P(UciUnbounded, IsReadyAtOnceAndStopEnds) {
    UciEngine engine;
    std::string lastPv;
    const auto upTo = [&lastPv](const char* prefix) {
        return [&lastPv, prefix](const std::string& l) {
            if (isPvLine(l)) lastPv = l;
            return l.rfind(prefix, 0) == 0;
        };
    };
    engine.send(GetParam());
    ASSERT_TRUE(engine.line(upTo("info depth 5 "), kWaitMs));
    engine.send("isready");
    // Answered while the search goes on, not after it.
    const Line ready = engine.line([&](const std::string& l) {
        return upTo("readyok")(l) || l.rfind("bestmove", 0) == 0;
    }, kWaitMs);
    ASSERT_EQ(ready, "readyok");
    EXPECT_FALSE(engine.line(upTo("bestmove"), 300));
    engine.send("stop");
    // The move is the last variation's first; its second is the ponder move, absent when a
    // stop lands where the variation is one move long (a table hit cut it short).
    const Line answer = engine.line(upTo("bestmove"), kWaitMs);
    ASSERT_TRUE(answer && isPvLine(lastPv)) << lastPv;
    const Lines moves = bestmoveOf(answer, kStartFen);
    ASSERT_FALSE(moves.empty()) << *answer;
    EXPECT_EQ(moves[0], words(lastPv.substr(lastPv.find(" pv ") + 4))[0]) << lastPv;
}
INSTANTIATE_TEST_SUITE_P(Go, UciUnbounded,
                         ::testing::Values("go infinite", "go", "go ponder",
                                           "go ponder wtime 60000 btime 60000"));

// A ponder or infinite search that ends by itself (its depth ran out) keeps its move until the
// GUI decides, and every "go" is answered exactly once: the command that releases the move sends
// it (with the ponder move, except "stop" after "go ponder"), and a "stop" or "ponderhit" after
// the answer sends nothing, since a GUI would read it as the answer to its next "go".
TEST(UciLive, FinishedSearchWaitsForTheGuiAndAnswersOnce) {
    const struct {
        const char *go, *release;
        bool withPonder;
    } cases[] = {
        {"go ponder depth 3", "ponderhit", true},
        {"go ponder depth 3", "stop", false},
        {"go ponder depth 3", "position startpos", true},
        {"go infinite depth 3", "stop", true},
        {"go infinite depth 3", "position startpos", true},
        {"go infinite depth 3", "go depth 1", true},
    };
    UciEngine engine;
    for (const auto& c : cases) {
        engine.send("position startpos");
        engine.send(c.go);
        std::string lastPv;
        ASSERT_TRUE(engine.line([&](const std::string& l) {
            if (isPvLine(l)) lastPv = l;
            return isInfo(l) && !isPvLine(l) && l.find("currmove") == std::string::npos;
        }, kWaitMs)) << c.go;
        const bool infinite = std::string(c.go).find("infinite") != std::string::npos;
        if (infinite) engine.send("ponderhit");  // no release for an infinite search
        EXPECT_FALSE(engine.line("bestmove", 300)) << c.go;
        const Lines pv = words(lastPv.substr(lastPv.find(" pv ") + 4));
        ASSERT_GE(pv.size(), 2u) << lastPv;
        engine.send(c.release);
        EXPECT_EQ(engine.line("bestmove", kWaitMs),
                  "bestmove " + pv[0] + (c.withPonder ? " ponder " + pv[1] : ""))
            << c.go << ", " << c.release;
        if (std::string(c.release).rfind("go", 0) == 0) {
            ASSERT_TRUE(engine.line("bestmove", kWaitMs));
        }
        // After "position" the status table's "bestmove 0000" for "stop"; nothing else.
        engine.send("stop\nponderhit\nisready");
        const auto next = [&] {
            return engine.line([](const std::string& l) { return !isInfo(l); }, kWaitMs);
        };
        if (std::string(c.release).rfind("position", 0) == 0) {
            EXPECT_EQ(next(), "bestmove 0000");
        }
        EXPECT_EQ(next(), "readyok") << c.go << ", " << c.release;
    }
}

// A search that finished long ago, by its limit, is not answered again by "stop"; a "stop" right
// after "position" still answers "bestmove 0000" as the status table gives.
TEST(UciLive, StopAfterTheAnswerSendsNothing) {
    UciEngine engine;
    engine.send("go nodes 500");
    bestmoveOf(engine.line("bestmove", kWaitMs), kStartFen);
    engine.send("stop\nisready");
    EXPECT_EQ(engine.line([](const std::string& l) { return !isInfo(l); }, kWaitMs), "readyok");
    engine.send("position startpos\nstop\nisready");
    EXPECT_EQ(engine.line([](const std::string& l) { return !isInfo(l); }, kWaitMs), "bestmove 0000");
    EXPECT_EQ(engine.line([](const std::string& l) { return !isInfo(l); }, kWaitMs), "readyok");
}

// A GUI may say "uci" while a search started at the console runs: the console's lines stop
// at once, the search goes on and is ended as usual. (Under ThreadSanitizer, a search that
// read the console's lines without care for that switch is reported here.)
TEST(UciLive, UciDuringAConsoleSearch) {
    EngineSession engine;
    engine.send("go infinite");
    ASSERT_TRUE(engine.line("info depth 3 ", kWaitMs));
    engine.send("uci");
    ASSERT_TRUE(engine.line("uciok", kWaitMs));
    ASSERT_TRUE(engine.line("info depth 6 ", kWaitMs));
    engine.send("quit");
    EXPECT_EQ(engine.waitExit(kWaitMs), 0);
}

// "go infinite" on a forced mate runs out of depth at once, and still says nothing until "stop";
// the answer then carries the forced reply (Kxh7 is the only legal move) as its ponder move.
TEST(UciLive, InfiniteSearchOutOfDepthWaitsForStop) {
    UciEngine engine("position fen r1bq2rk/pp3pbp/2p1p1pQ/7P/3P4/2PB1N2/PP3PPR/2KR4 w - -");
    engine.send("go infinite");
    ASSERT_TRUE(engine.line("info depth 120 ", kWaitMs));
    EXPECT_FALSE(engine.line("bestmove", 500));
    engine.send("stop\nstop\nisready");
    EXPECT_EQ(engine.line([](const std::string& l) { return !isInfo(l); }, kWaitMs), "bestmove h6h7 ponder h8h7");
    EXPECT_EQ(engine.line([](const std::string& l) { return !isInfo(l); }, kWaitMs), "readyok");
}

TEST(UciLive, PonderhitPutsTheClockInForce) {
    UciEngine engine;
    engine.send("go ponder wtime 10000 btime 10000");
    ASSERT_TRUE(engine.line("info ", kWaitMs));
    EXPECT_FALSE(engine.line("bestmove", 400));
    const auto hit = Clock::now();
    engine.send("ponderhit");
    // 10000 ms less a reserve of an eighth and 30 ms, over 44 moves, doubled out of book, 8
    // times at most: 3168 ms; the rest is room for a loaded machine.
    bestmoveOf(engine.line("bestmove", 3168 + 2000 * kScale), kStartFen);
    EXPECT_LT(msSince(hit), 3168 + 2000 * kScale);
}

// "position" stops a search, which answers; the next "go" finds the status moved on. "quit"
// during a search ends the process at once, without a "bestmove".
TEST(UciLive, PositionAndQuitDuringSearch) {
    UciEngine engine;
    engine.send("go infinite");
    // A stop before the first root move is searched would rightly answer "bestmove 0000".
    ASSERT_TRUE(engine.line("info depth 3 ", kWaitMs));
    engine.send("position startpos moves e2e4");
    // This early a new best move may have a one-move variation, and so no ponder move.
    EXPECT_FALSE(bestmoveOf(engine.line("bestmove", kWaitMs), kStartFen).empty());
    engine.send("go depth 2");  // from the new position
    bestmoveOf(engine.line("bestmove", kWaitMs),
               "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq - 0 1");
    engine.send("go infinite");
    ASSERT_TRUE(engine.line("info depth 3 ", kWaitMs));
    engine.send("quit");
    EXPECT_EQ(engine.waitExit(kWaitMs), 0);
    EXPECT_FALSE(engine.line("bestmove", 0));
    EXPECT_EQ(readFile(engine.dir.file(kErrorLog)),
              "uci::position(): search still running? status=2\n"
              "Expected current status==POSITION, got 0\n"
              "Expected current status==POSITION, got 0\n");
}

// Four threads and three lines through the protocol: each line numbered, among the moves asked
// for, best first; the answer is line 1's move. "go mate 1" ends as soon as the mate is found.
TEST(UciLive, ThreadsLinesSearchmovesAndMate) {
    UciEngine engine;
    engine.send("setoption name Threads value 4\nsetoption name MultiPV value 3");
    engine.send("go depth 7 searchmoves e2e4 d2d4 nonsense g1f3");
    std::map<int, std::string> lines;  // multipv index -> last line
    const Line best = engine.line([&](const std::string& l) {
        if (isPvLine(l)) lines[static_cast<int>(field(l, "multipv"))] = l;
        return l.rfind("bestmove", 0) == 0;
    }, kWaitMs);
    ASSERT_EQ(lines.size(), 3u) << best.value_or("no bestmove");
    long last = 100000;
    for (const auto& [index, l] : lines) {
        const std::string first = words(l.substr(l.find(" pv ") + 4))[0];
        EXPECT_TRUE(first == "e2e4" || first == "d2d4" || first == "g1f3") << l;
        EXPECT_LE(field(l, "cp"), last) << l;
        last = field(l, "cp");
        if (index == 1) {
            EXPECT_EQ(bestmoveOf(best, kStartFen)[0], first);
        }
    }
    engine.send("setoption name MultiPV value 1");
    engine.send("position fen 6k1/5ppp/8/8/8/8/5PPP/R5K1 w - -\ngo mate 1");
    EXPECT_EQ(engine.line("bestmove", kWaitMs), "bestmove a1a8");
    EXPECT_EQ(readFile(engine.dir.file(kErrorLog)),
              "illegal char in move nonsense: 115\n"
              "go: searchmoves: 'nonsense' is no legal move here; left out\n");
}

// A search that ends by its limits: its info lines, the final one last, its bestmove line in
// words, and the time from "go" to "bestmove".
struct Finished {
    Lines info, best;
    int ms = 0;
};

Finished searchToEnd(const std::string& setup, const std::string& go) {
    UciEngine engine(setup);
    const auto sent = Clock::now();
    engine.send(go);
    Finished f;
    const Line best = engine.line([&](const std::string& l) {
        if (isInfo(l)) f.info.push_back(l);
        return l.rfind("bestmove", 0) == 0;
    }, kWaitMs);
    f.ms = msSince(sent);
    f.best = words(best.value_or(""));
    EXPECT_TRUE(best && !f.info.empty() && !isPvLine(f.info.back())) << go;
    if (f.info.empty()) f.info.push_back("");
    return f;
}

// Node limits (a budget is overrun by a few hundred nodes at most, quiescence nodes included;
// 100000 over 20 + 4 moves, doubled out of book: past 4999 nodes, phase 1, no new iteration
// starts, and no phase allows more than 8 x 8332), mate scores, and 1100 plies of knight
// shuffles past the history's 1024 entries: the history keeps its recent part, so nothing is
// written out of bounds (the sanitizer build runs this).
TEST(UciLimited, NodesMatesAndLongGame) {
    std::string shuffles = "position startpos moves";
    for (int i = 0; i < 1100 / 4; ++i) shuffles += " g1f3 g8f6 f3g1 f6g8";
    const struct { std::string setup; const char *go, *field; long low, high; const char* best; }
        cases[] = {
        {"position startpos", "go nodes 20000", "nodes", 20000, 20500, ""},
        {"position startpos", "go nodes 100000 movestogo 20", "nodes", 5000, 66656, ""},
        {"position fen 6k1/5ppp/8/8/8/8/8/R5K1 w - -", "go depth 4", "mate", 1, 1, "a1a8"},
        {"position fen k7/8/1K6/8/8/8/8/7R b - -", "go depth 4", "mate", -1, -1,
         "a8b8 ponder h1h8"},
        {shuffles, "go depth 10", "depth", 10, 10, ""},
    };
    for (const auto& c : cases) {
        const Finished f = searchToEnd(c.setup, c.go);
        const long value = field(f.info.back(), c.field);
        EXPECT_TRUE(value >= c.low && value <= c.high) << c.go << ": " << f.info.back();
        EXPECT_TRUE(!*c.best || f.best == words("bestmove " + std::string(c.best))) << c.go;
    }
}

// A new game starts from an empty table: a game that shuffled 92 plies in a won ending (rook
// and bishop: a lone rook's mates come from tables the search reads before its own table)
// leaves it full of draws by repetition and by the fifty-move count, which the same position
// at the start of the next game must not inherit (the old table scored it 0 at depth 6).
TEST(UciLimited, NewGameForgetsTheLastGamesDraws) {
    const std::string fen = "position fen 8/8/8/3k4/8/8/8/RB2K3 w - - 0 1";
    std::string shuffles = fen + " moves";
    for (int i = 0; i < 23; ++i) shuffles += " e1e2 d5d6 e2e1 d6d5";
    UciEngine engine(shuffles);
    const auto lastScore = [&engine](const char* go) {
        engine.send(go);
        std::string last;
        engine.line([&](const std::string& l) {
            if (isPvLine(l)) last = l;
            return l.rfind("bestmove", 0) == 0;
        }, kWaitMs);
        return field(last, "cp");
    };
    EXPECT_EQ(lastScore("go depth 16"), 0);  // the history's repetitions make it a draw
    engine.send("ucinewgame");
    engine.send(fen);
    EXPECT_GT(lastScore("go depth 6"), 1000);
}

// Promotion letters: upper case by default, lower case in every move the protocol sends with
// --lowercase-promotions (pv and bestmove); "position ... moves" takes either form. The rook on
// d8 must be taken with promotion.
TEST(UciLimited, PromotionLetterCase) {
    const std::string fen = "3r4/4P3/8/8/8/8/k7/4K3 w - -";
    for (const bool lower : {false, true}) {
        EngineSession engine(lower ? Lines{"--lowercase-promotions"} : Lines{});
        engine.send("uci\nposition fen " + fen + "\ngo depth 5");
        EXPECT_EQ(engine.line("bestmove", kWaitMs).value_or("").substr(0, 14),
                  lower ? "bestmove e7d8q" : "bestmove e7d8Q");
        engine.send("position fen " + fen + " moves e7d8" + (lower ? "q" : "Q") + "\nfen");
        EXPECT_TRUE(engine.line("3Q4/8/8/8/8/8/k7/4K3 b - -", kWaitMs));
        EXPECT_NE(engine.out.find(lower ? " pv e7d8q" : " pv e7d8Q"), std::string::npos);
        EXPECT_EQ(engine.out.find(lower ? "e7d8Q" : "e7d8q"), std::string::npos);
    }
}

// The move time, and the info lines: speed only from 100 ms of search on, current moves past
// the first at least 100 ms apart.
TEST(UciLimited, MoveTimeAndInfoThrottle) {
    // Never short of the time; how far past it is hash-bench's to measure, not a test's.
    // Root moves past the first are shown only once the iteration's first move has run 100 ms,
    // which in the first second happens in one or two iterations: two seconds (three for a slow
    // build) give the throttle at least two gaps to keep.
    const int ms = kSlowBuild ? 3000 : 2000;
    const Finished f = searchToEnd("position startpos", "go movetime " + std::to_string(ms));
    EXPECT_GE(f.ms, ms - 5);
    EXPECT_GE(field(f.info.back(), "time"), ms);
    int early = 0, late = 0, spaced = 0;
    long lastCurrent = -1;
    for (const std::string& l : f.info) {
        const long t = field(l, "time");
        EXPECT_EQ(field(l, "nps") >= 0, t > 99) << l;
        ++(t > 99 ? late : early);
        if (field(l, "currmovenumber") < 0) continue;
        if (field(l, "currmovenumber") > 1 && lastCurrent >= 0) {
            EXPECT_GE(t - lastCurrent, 99) << l;
            ++spaced;
        }
        lastCurrent = t;
    }
    EXPECT_GT(early, 0);
    EXPECT_GT(late, 0);
    EXPECT_GE(spaced, 2);
}

// Storms of stop and ponderhit, go twice, odd hash sizes, 10000 garbage moves, a 1 MB line,
// NUL bytes and CR LF: every "isready" is answered, and each "go" once, with a legal move of
// its position.
TEST(Abuse, ProtocolStormsAndGarbage) {
    std::string garbage = "position startpos moves";
    for (int i = 0; i < 10000; ++i) garbage += " z" + std::to_string(i);
    // "quit" leaves a running search unanswered, so the last "go" is stopped first: a depth-2
    // search that a busy machine has not finished by then must still be answered once.
    const std::string input = "uci\nposition startpos\ngo depth 3\ngo depth 3\nisready\n"
                              "stop\nstop\nponderhit\nponderhit\nstop\n"
                              "setoption name Hash value 0\nsetoption name Hash value -5\n"
                              "setoption name Hash value 99999999\nisready\n" +
                              garbage + "\n" + std::string(1 << 20, 'x') + "\n" +
                              std::string("go\0depth\0 2\n", 12) +
                              "position startpos moves e2e4\r\ngo depth 2\r\nisready\nstop\nquit\n";
    const EngineRun run = runEngine(input);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(countOf(run.out, "readyok\n"), 3);
    Lines answers;
    std::istringstream out(run.out);
    for (std::string l; std::getline(out, l);)
        if (l.rfind("bestmove ", 0) == 0) answers.push_back(l);
    ASSERT_EQ(answers.size(), 4u) << run.out.substr(run.out.find("uciok"), 2000);
    const char* after = "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq - 0 1";
    for (size_t i = 0; i < answers.size(); ++i)
        EXPECT_FALSE(bestmoveOf(answers[i], i < 3 ? kStartFen : after).empty()) << answers[i];
}

// Impossible positions are refused with a reason in the error log; "go" then searches the
// position kept.
TEST(Abuse, ImpossiblePositionsAreRefused) {
    const std::pair<const char*, const char*> cases[] = {
        {"8/8/8/8/8/8/8/7k", "no white king"},
        {"K7/8/8/8/8/8/8/K6k", "more than one white king"},
        {"k7/8/8/8/8/8/8/R6K", "not to move is in check"},
        {"k7/8/8/8/8/8/8/P6K", "pawn on the first or eighth rank"},
        {"QQQQQQQQ/QQ6/8/8/8/8/8/k6K", "too many white pieces"},
    };
    std::string input = "uci\n";
    for (const auto& [fen, why] : cases)
        input += "position fen " + std::string(fen) + " w - - 0 1\ngo depth 8\nisready\n";
    TempDir dir;
    const EngineRun run = runEngine(input + "stop\nquit\n", {}, dir.path());
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(countOf(run.out, "readyok\n"), 5);
    EXPECT_EQ(countOf(run.out, "bestmove "), 5);
    EXPECT_EQ(run.out.find("bestmove 0000"), std::string::npos);
    const std::string log = readFile(dir.file(kErrorLog));
    for (const auto& [fen, why] : cases) EXPECT_NE(log.find(why), std::string::npos) << fen;
}

}  // namespace
}  // namespace quarn::test
