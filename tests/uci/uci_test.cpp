// The UCI protocol as a GUI sees it: a golden session of the answers that need no search, the
// error log and the log file, and live sessions on pipes for everything timed.
// GCC 12 with the sanitizers reports a false "maybe uninitialized" inside <regex>.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <functional>
#include <optional>
#include <regex>
#include <sstream>

#include "board/fen.h"
#include "board/movegen.h"
#include "support.h"
#include "uci/uci.h"

namespace quarn::test {
namespace {

using Clock = std::chrono::steady_clock;
using Lines = std::vector<std::string>;
using Line = std::optional<std::string>;
constexpr int kScale = kSlowBuild ? 4 : 1;  // the sanitizer build searches several times slower
constexpr int kWaitMs = 10000 * kScale;     // deadline of anything that must come
constexpr char kErrorLog[] = "quarn-0.3a-error.log";
constexpr char kAfterE4[] = "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq - 0 1";

std::string readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

int msSince(Clock::time_point t) {
    using std::chrono::milliseconds;
    return static_cast<int>(std::chrono::duration_cast<milliseconds>(Clock::now() - t).count());
}

// The number after " name " in an info line, -1 when the field is missing.
long field(const std::string& line, const std::string& name) {
    const size_t at = line.find(" " + name + " ");
    return at == std::string::npos ? -1 : std::strtol(&line[at + name.size() + 2], nullptr, 10);
}

Lines words(const std::string& line) {
    std::istringstream in(line);
    Lines w;
    for (std::string s; in >> s;) w.push_back(s);
    return w;
}

bool isInfo(const std::string& l) { return l.rfind("info ", 0) == 0; }
bool isPvLine(const std::string& l) { return isInfo(l) && l.find(" pv ") != std::string::npos; }

// Whether the coordinate moves are legal one after the other from `fen`.
bool legalLine(const std::string& fen, const Lines& moves) {
    Position pos = positionFrom(fen);
    for (const std::string& text : moves) {
        computeAttackInfo(pos);
        Move list[kMaxMoves];
        Move* end = generateMoves(pos, list);
        const Move* m = std::find_if(list, end, [&](Move c) {
            char buf[8];
            writeUciMove(buf, c);
            return text == buf;
        });
        if (m == end) return false;
        makeMove(pos, *m);
    }
    return true;
}

// The moves of a "bestmove X [ponder Y]" line, checked for form and legality from `fen`.
Lines bestmoveOf(const Line& line, const std::string& fen) {
    if (!line) return {};
    const Lines w = words(*line);
    EXPECT_TRUE(w.size() == 2 || (w.size() == 4 && w[2] == "ponder")) << *line;
    Lines moves{w[1]};
    if (w.size() == 4) moves.push_back(w[3]);
    EXPECT_TRUE(legalLine(fen, moves)) << *line;
    return moves;
}

// The engine on pipes in a directory of its own, after "uci" and a position. Every wait has a
// deadline and the child is killed when the object goes, so no test can hang on it.
class LiveEngine {
public:
    explicit LiveEngine(const std::string& position = "position startpos") {
        signal(SIGPIPE, SIG_IGN);
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) || pipe2(out, O_CLOEXEC)) return;
        pid_ = fork();
        if (pid_ == 0) {
            const int err = open(dir_.file("stderr.txt").c_str(), O_WRONLY | O_CREAT, 0644);
            if (chdir(dir_.path().c_str()) != 0 || err < 0) _exit(126);
            dup2(in[0], 0);
            dup2(out[1], 1);
            dup2(err, 2);
            char* argv[] = {const_cast<char*>(QUARN_BINARY), nullptr};
            execv(QUARN_BINARY, argv);
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        toEngine_ = in[1];
        fromEngine_ = out[0];
        send("uci");
        EXPECT_TRUE(waitFor("uciok", kWaitMs));
        send(position);
    }
    ~LiveEngine() {
        if (pid_ > 0 && !exited_) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        close(toEngine_);
        close(fromEngine_);
    }
    void send(const std::string& line) {
        const std::string text = line + "\n";
        EXPECT_EQ(write(toEngine_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    // The next unread line that `match` accepts, reading for at most `ms`.
    Line waitFor(const std::function<bool(const std::string&)>& match, int ms) {
        const auto start = Clock::now();
        for (;;) {
            while (next_ < lines_.size())
                if (match(lines_[next_++])) return lines_[next_ - 1];
            const int left = ms - msSince(start);
            if (left <= 0 || !readSome(left)) return std::nullopt;
        }
    }
    Line waitFor(const std::string& prefix, int ms) {
        return waitFor([&](const std::string& l) { return l.rfind(prefix, 0) == 0; }, ms);
    }
    size_t mark() const { return next_; }
    // Every line read from `mark` on, the unread ones included.
    Lines since(size_t mark) const { return Lines(lines_.begin() + mark, lines_.end()); }
    // Reads to the end of the output, then the exit status; -1 when it takes longer than `ms`.
    int waitExit(int ms) {
        const auto start = Clock::now();
        while (msSince(start) < ms && readSome(ms - msSince(start))) {}
        for (int status = 0; msSince(start) < ms; usleep(2000)) {
            if (waitpid(pid_, &status, WNOHANG) != pid_) continue;
            exited_ = true;
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        return -1;
    }
    std::string errorLog() const { return readText(dir_.file(kErrorLog)); }

private:
    // False at the end of the output or when nothing comes within `ms`.
    bool readSome(int ms) {
        pollfd p{fromEngine_, POLLIN, 0};
        char buf[4096];
        const ssize_t n = poll(&p, 1, ms) > 0 ? read(fromEngine_, buf, sizeof buf) : 0;
        if (n <= 0) return false;
        pending_.append(buf, static_cast<size_t>(n));
        for (size_t nl; (nl = pending_.find('\n')) != std::string::npos; pending_.erase(0, nl + 1))
            lines_.push_back(pending_.substr(0, nl));
        return true;
    }

    TempDir dir_;
    pid_t pid_ = -1;
    int toEngine_ = -1, fromEngine_ = -1;
    bool exited_ = false;
    std::string pending_;
    Lines lines_;
    size_t next_ = 0;
};

TEST(UciSession, GoldenAnswersWithoutSearch) {
    TempDir dir;
    const EngineRun run = runEngine(readText(dataPath("uci/session.in")), {}, dir.path());
    EXPECT_EQ(run.status, 0);
    const size_t at = run.out.find("\ninitialized\n");
    ASSERT_NE(at, std::string::npos) << run.out;
    EXPECT_EQ(run.out.substr(at + 13), readText(dataPath("uci/session.out")));
    EXPECT_EQ(readText(dir.file(kErrorLog)), readText(dataPath("uci/session.err")));
    EXPECT_EQ(run.err, "");
}

// Position lines, then the FEN line the console's "fen" prints, and the error log.
class UciPosition : public ::testing::TestWithParam<std::array<const char*, 3>> {};

TEST_P(UciPosition, BoardAfterTheMoveList) {
    const auto [lines, fen, errors] = GetParam();
    TempDir dir;
    const EngineRun run = runEngine(std::string("uci\n") + lines + "\nfen\nquit\n", {}, dir.path());
    EXPECT_NE(run.out.find(std::string(fen) + " "), std::string::npos) << run.out;
    EXPECT_EQ(readText(dir.file(kErrorLog)), errors + std::string("unknown uci command: fen \n"));
}

constexpr char kAfterE4E5[] = "rnbqkbnr/pppp1ppp/8/4p3/4P3/8/PPPP1PPP/RNBQKBNR w KQkq";
INSTANTIATE_TEST_SUITE_P(
    Moves, UciPosition,
    ::testing::Values(
        std::array<const char*, 3>{"position startpos moves e2e4 .e7e5 e7e5", kAfterE4E5, ""},
        std::array<const char*, 3>{"position startpos moves e2e4\nposition moves e7e5",
                                   kAfterE4E5, ""},
        std::array<const char*, 3>{"position fen 8/8/8/8/8/8/4P3/K6k w - - 0 1 moves e2e4 h1g2",
                                   "8/8/8/8/4P3/8/6k1/K7 w", ""},
        std::array<const char*, 3>{"position startpos moves e2e5 e7e5",
                                   "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq",
                                   "WARNING invalid move from GUI: e2e5\n"}));

// Go lines after a position with White to move ("w") or Black ("b"), and whether they leave the
// search without any limit.
class UciGoLimits : public ::testing::TestWithParam<std::tuple<const char*, char, bool>> {};

TEST_P(UciGoLimits, NoLimitIsReported) {
    const auto [go, side, unlimited] = GetParam();
    TempDir dir;
    const std::string position = side == 'w' ? "startpos" : "startpos moves e2e4";
    runEngine("uci\nposition " + position + "\n" + go + "\nquit\n", {}, dir.path());
    EXPECT_EQ(readText(dir.file(kErrorLog)), unlimited ? "go(): no time/depth/node limit\n" : "");
}

INSTANTIATE_TEST_SUITE_P(
    Words, UciGoLimits,
    ::testing::Values(std::tuple{"go", 'w', true}, std::tuple{"go btime 500 binc 10", 'w', true},
                      std::tuple{"go wtime 500 winc 10", 'b', true},
                      std::tuple{"go movestogo 20", 'w', true},
                      std::tuple{"go wtime 500 winc 10", 'w', false},
                      std::tuple{"go btime 500", 'b', false}, std::tuple{"go depth 2", 'w', false},
                      std::tuple{"go nodes 500", 'w', false},
                      std::tuple{"go movetime 20", 'w', false},
                      std::tuple{"go nodes 1000 movestogo 20", 'w', false},
                      std::tuple{"go infinite", 'w', false}, std::tuple{"go ponder", 'w', false}));

TEST(UciLog, OptionsAndGoWordsAreLogged) {
    TempDir dir;
    runEngine("uci\nisready\nsetoption name Hash value 64\nsetoption name Hash value\n"
              "setoption name Clear Hash\nsetoption name Ponder value true\n"
              "setoption name Ponder false\nsetoption name SendPv value false\n"
              "setoption name OwnBook value true\n"
              "setoption name UCI_Opponent value GM 2800 human Tester\n"
              "position startpos moves e2e4 e7e5\ngo movetime 40 wtime 5000\nstop\n"
              "position startpos moves e2e4 e7e5 g1f3 b8c6 f1b5 a7a6 b5a4 g8f6 e1g1 f8e7 f1e1"
              " b7b5\n"
              "go wtime 60000 btime 1000 movestogo 20\nstop\n"
              "position startpos moves d2d4\ngo wtime 60000 btime 1000 binc 50\nstop\nquit\n",
              {"--logdir", dir.file("logs")}, dir.path());
    const std::string log = readText(dir.file("logs/quarn-0000.log"));
    for (const char* pattern :
         {"\\d{10}:isready\n\\d{10}:<--readyok\n", "resizing hash to 64Mb\n",
          "resizing hash to 32Mb\n", "\\d{10}:tt cleared\n", "canponder=1\n", "canponder=0\n",
          "sendpv=0\n", "usebook=1\n", "Opponent=GM Tester, human, elo=2800\n",
          "First search out of book is at 3 ply\nout of book=1\n",
          "got hard moves/millis=0/40\nNominal search time is 0.04 seconds, infinite=0, nodes=0\n",
          "out of book=6\n[\\s\\S]*got wb moves/millis=20/60000\n",
          "First search out of book is at 2 ply\n[\\s\\S]*got wb moves/millis=0/1000\n"})
        EXPECT_TRUE(std::regex_search(log, std::regex(pattern))) << pattern << "\n" << log;
    EXPECT_EQ(log.find("got wb moves/millis=0/5000"), std::string::npos);
}

// After "uciok" the GUI reads protocol lines only, with or without a log file.
class UciStdout : public ::testing::TestWithParam<bool> {};

TEST_P(UciStdout, OnlyProtocolLinesAfterUciok) {
    TempDir dir;
    const EngineRun run = runEngine(
        "uci\nisready\nposition startpos moves e2e4\ngo depth 5\nisready\n"
        "setoption name Hash value 16\nucinewgame\nsetoption name Ponder value true\nstop\n"
        "position startpos\ngo depth 3\nstop\nquit\n",
        GetParam() ? Lines{"--logdir", dir.file("logs")} : Lines{}, dir.path());
    const size_t at = run.out.find("\nuciok\n");
    ASSERT_NE(at, std::string::npos) << run.out;
    std::istringstream after(run.out.substr(at + 7));
    const std::regex protocol("^(id |option |uciok|readyok|info |bestmove |$)");
    int lines = 0;
    for (std::string l; std::getline(after, l); ++lines)
        EXPECT_TRUE(std::regex_search(l, protocol)) << l;
    EXPECT_GE(lines, 3);
    EXPECT_EQ(run.status, 0);
}
INSTANTIATE_TEST_SUITE_P(LogFile, UciStdout, ::testing::Bool());

// Searches without an end of their own: "isready" is answered at once, and only "stop" ends
// them, with the best move and the move to ponder on.
class UciUnbounded : public ::testing::TestWithParam<const char*> {};

TEST_P(UciUnbounded, IsReadyAtOnceAndStopEnds) {
    LiveEngine engine;
    engine.send(GetParam());
    ASSERT_TRUE(engine.waitFor("info depth 5 ", kWaitMs));
    const auto asked = Clock::now();
    engine.send("isready");
    ASSERT_TRUE(engine.waitFor("readyok", kWaitMs));
    EXPECT_LT(msSince(asked), kSlowBuild ? 150 : 50);
    EXPECT_FALSE(engine.waitFor("bestmove", 300));
    engine.send("stop");
    EXPECT_EQ(bestmoveOf(engine.waitFor("bestmove", kWaitMs), kStartFen).size(), 2u);
}
INSTANTIATE_TEST_SUITE_P(Go, UciUnbounded,
                         ::testing::Values("go infinite", "go", "go ponder",
                                           "go ponder wtime 60000 btime 60000"));

TEST(UciLive, FinishedSearchIsSentAgain) {
    LiveEngine engine;
    engine.send("go depth 3");
    const Line best = engine.waitFor("bestmove", kWaitMs);
    ASSERT_EQ(bestmoveOf(best, kStartFen).size(), 2u);
    engine.send("stop");
    EXPECT_EQ(engine.waitFor("bestmove", kWaitMs), best->substr(0, best->find(" ponder")));
    engine.send("ponderhit");
    EXPECT_EQ(engine.waitFor("bestmove", kWaitMs), best);
}

// A ponder search that ends by itself keeps its move until the GUI decides.
class UciPonderDone : public ::testing::TestWithParam<const char*> {};

TEST_P(UciPonderDone, MoveWaitsForTheGui) {
    LiveEngine engine;
    const size_t from = engine.mark();
    engine.send("go ponder depth 3");
    const auto isFinal = [](const std::string& l) {
        return isInfo(l) && !isPvLine(l) && l.find("currmove") == std::string::npos;
    };
    ASSERT_TRUE(engine.waitFor(isFinal, kWaitMs));
    EXPECT_FALSE(engine.waitFor([](const std::string&) { return true; }, 300));
    const Lines seen = engine.since(from);
    const auto lastPv = std::find_if(seen.rbegin(), seen.rend(), isPvLine);
    ASSERT_NE(lastPv, seen.rend());
    const Lines pv = words(lastPv->substr(lastPv->find(" pv ") + 4));
    ASSERT_GE(pv.size(), 2u) << *lastPv;
    engine.send(GetParam());
    const bool hit = std::string(GetParam()) == "ponderhit";
    const std::string expected = "bestmove " + pv[0] + (hit ? " ponder " + pv[1] : "");
    EXPECT_EQ(engine.waitFor("bestmove", kWaitMs), expected);
}
INSTANTIATE_TEST_SUITE_P(Answer, UciPonderDone, ::testing::Values("ponderhit", "stop"));

TEST(UciLive, PonderhitPutsTheClockInForce) {
    LiveEngine engine;
    engine.send("go ponder wtime 10000 btime 10000");
    ASSERT_TRUE(engine.waitFor("info ", kWaitMs));
    EXPECT_FALSE(engine.waitFor("bestmove", 400));
    const auto hit = Clock::now();
    engine.send("ponderhit");
    // 10000 ms less the 3000 ms reserve over 44 moves, doubled out of book, 8 times at most.
    bestmoveOf(engine.waitFor("bestmove", 2544 + 500 * kScale), kStartFen);
    EXPECT_LT(msSince(hit), 2544 + 500 * kScale);
}

TEST(UciLive, PositionDuringSearchStopsItAndGoSearchesAnyway) {
    LiveEngine engine;
    engine.send("go infinite");
    // A stop before the first root move is searched would rightly answer "bestmove 0000".
    ASSERT_TRUE(engine.waitFor("info depth 3 ", kWaitMs));
    engine.send("position startpos moves e2e4");
    EXPECT_EQ(bestmoveOf(engine.waitFor("bestmove", kWaitMs), kStartFen).size(), 2u);
    engine.send("go depth 2");
    EXPECT_FALSE(bestmoveOf(engine.waitFor("bestmove", kWaitMs), kAfterE4).empty());
    engine.send("quit");
    EXPECT_EQ(engine.waitExit(kWaitMs), 0);
    EXPECT_EQ(engine.errorLog(), "uci::position(): search still running? status=2\n"
                                 "Expected current status==POSITION, got 0\n");
}

TEST(UciLive, QuitDuringSearchExitsAtOnce) {
    LiveEngine engine;
    engine.send("go infinite");
    ASSERT_TRUE(engine.waitFor("info depth 3 ", kWaitMs));
    const size_t from = engine.mark();
    engine.send("quit");
    EXPECT_EQ(engine.waitExit(500 * kScale), 0);
    for (const std::string& l : engine.since(from)) EXPECT_NE(l.rfind("bestmove", 0), 0u) << l;
}

// A search that ends by its limits: its info lines (the final one last), its bestmove line in
// words, and the time from "go" to "bestmove".
struct Finished {
    Lines info, best;
    int ms;
};
struct LimitedCase {
    const char* name;
    const char* setup;  // option lines and the position
    const char* go;
    std::function<void(const Finished&)> check;
};
void PrintTo(const LimitedCase& c, std::ostream* os) { *os << c.go; }
class UciLimited : public ::testing::TestWithParam<LimitedCase> {};

TEST_P(UciLimited, EndsByItsLimits) {
    const LimitedCase& c = GetParam();
    LiveEngine engine(c.setup);
    const size_t from = engine.mark();
    const auto sent = Clock::now();
    engine.send(c.go);
    const Line best = engine.waitFor("bestmove", kWaitMs);
    ASSERT_TRUE(best);
    Finished f{{}, words(*best), msSince(sent)};
    for (const std::string& l : engine.since(from))
        if (isInfo(l)) f.info.push_back(l);
    ASSERT_FALSE(f.info.empty());
    EXPECT_FALSE(isPvLine(f.info.back())) << f.info.back();
    c.check(f);
}

void checkMoveTime(const Finished& f) {
    EXPECT_GE(f.ms, 295);
    EXPECT_LT(f.ms, kSlowBuild ? 1000 : 450);
    EXPECT_GE(field(f.info.back(), "time"), 300);
}

// Speed only from 100 ms of search on; current moves past the first at least 100 ms apart.
void checkThrottle(const Finished& f) {
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

void checkNodes(const Finished& f, long low, long high) {
    EXPECT_GE(field(f.info.back(), "nodes"), low);
    EXPECT_LE(field(f.info.back(), "nodes"), high);
}

void checkMate(const Finished& f, const char* score, const Lines& best) {
    EXPECT_NE(f.info.back().find(score), std::string::npos) << f.info.back();
    EXPECT_EQ(f.best, best);
}

INSTANTIATE_TEST_SUITE_P(
    Go, UciLimited,
    ::testing::Values(
        LimitedCase{"depth", "position startpos", "go depth 4",
                    [](const Finished& f) {
                        long deepest = 0;
                        for (const std::string& l : f.info)
                            deepest = std::max(deepest, field(l, "depth"));
                        EXPECT_EQ(deepest, 4);
                        EXPECT_EQ(field(f.info.back(), "depth"), 4);
                    }},
        LimitedCase{"nodes", "position startpos", "go nodes 20000",
                    [](const Finished& f) { checkNodes(f, 20000, 21000); }},
        // 100000 over 20 + 4 moves, doubled out of book: past 4999 nodes (phase 1) no new
        // iteration starts, and no phase allows more than 8 x 8332.
        LimitedCase{"node_budget", "position startpos", "go nodes 100000 movestogo 20",
                    [](const Finished& f) { checkNodes(f, 5000, 66656); }},
        LimitedCase{"movetime", "position startpos", "go movetime 300", checkMoveTime},
        LimitedCase{"movetime_wins", "position startpos",
                    "go movetime 300 wtime 600000 btime 600000 winc 1000 binc 1000",
                    checkMoveTime},
        LimitedCase{"sendpv_off", "setoption name SendPv value false\nposition startpos",
                    "go depth 4",
                    [](const Finished& f) {
                        ASSERT_EQ(f.info.size(), 1u);
                        EXPECT_EQ(field(f.info[0], "depth"), 4);
                    }},
        LimitedCase{"mate_found", "position fen 6k1/5ppp/8/8/8/8/8/R5K1 w - - 0 1", "go depth 4",
                    [](const Finished& f) {
                        checkMate(f, " score mate 1 ", {"bestmove", "a1a8"});
                    }},
        LimitedCase{"mated", "position fen k7/8/1K6/8/8/8/8/7R b - - 0 1", "go depth 4",
                    [](const Finished& f) {
                        checkMate(f, " score mate -1 ", {"bestmove", "a8b8", "ponder", "h1h8"});
                    }},
        LimitedCase{"throttle", "position startpos", "go movetime 1000", checkThrottle}),
    [](const auto& c) { return std::string(c.param.name); });

}  // namespace
}  // namespace quarn::test
