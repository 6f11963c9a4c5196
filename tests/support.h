// Shared helpers for the tests: positions and moves, data files, captured output, the search
// set up for one run, and the engine binary on a file or on live pipes.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "board/fen.h"
#include "board/movegen.h"
#include "board/movetext.h"

namespace quarn::test {

using Lines = std::vector<std::string>;

// One line of an EPD file: the FEN and the perft counts ";D1 n ;D2 n ..." (counts[d - 1]).
struct EpdEntry {
    std::string fen;
    std::vector<uint64_t> counts;
};

std::string dataPath(const std::string& name);    // a file under tests/data
std::string readFile(const std::string& path);    // "" when it cannot be read
std::vector<EpdEntry> loadEpd(const std::string& name);
std::vector<std::string> loadFens(const std::string& name);  // first four fields of each line
Lines words(const std::string& text);                        // blank-separated
int countOf(const std::string& text, const std::string& piece);
// What `write` prints to a stream, and what the engine logs while `run` runs.
std::string printed(const std::function<void(FILE*)>& write);
std::string logged(const std::function<void()>& run);

// A position set from FEN; fails the calling test when the FEN is refused.
Position positionFrom(const std::string& fen);
std::string fenOf(const Position& pos);
std::vector<Move> legalMoves(Position& pos);
std::string moveText(const Position& pos, Move m);  // the long form, "Ng1f3"
int squareAt(const char* name);                     // "e4" -> 28

// An idle engine with a cleared table, searching to `depth` (0: no limit) within `ms` and
// `nodes` (0: no limit), its console lines silenced.
void prepareSearch(int depth, uint32_t ms = 0xFFFFFFFFu, int64_t nodes = 0);

// The engine binary run to its end with `input` on standard input, in `workDir` or else in a
// fresh temporary directory (it writes its history file where it runs).
struct EngineRun {
    std::string out, err;
    int status = -1;
};
EngineRun runEngine(const std::string& input, const Lines& args = {},
                    const std::string& workDir = "");
// What the engine prints after its start-up lines.
std::string afterStartup(const std::string& out);

// A fresh directory under /tmp, removed with everything in it when this object goes.
struct TempDir {
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    std::string path_;
};

// The engine on pipes (with `terminal`, on a pseudo-terminal that is its controlling terminal;
// with `input`, reading that text from a file) in a fresh directory or `workDir`, standard error
// going to "stderr.txt" in the fresh one. Every wait has a deadline and the process is killed
// when the object goes: no test can hang on it.
class EngineSession {
public:
    explicit EngineSession(const Lines& args = {}, bool terminal = false,
                           const std::string* input = nullptr, const std::string& workDir = "");
    ~EngineSession();
    void send(const std::string& text);  // a line end is added
    // The next unread output line that `match` accepts (lines passed over count as read); none
    // at the end of the output or after `ms`.
    std::optional<std::string> line(const std::function<bool(const std::string&)>& match, int ms);
    std::optional<std::string> line(const std::string& prefix, int ms);
    // Reads to the end, then the exit status (128 + the signal that ended it); -1 after `ms`.
    int waitExit(int ms);
    void interrupt();  // SIGINT, as Ctrl-C at a terminal sends

    TempDir dir;
    std::string out;  // the output so far

private:
    bool readUntil(const std::function<bool()>& done, int ms);
    pid_t pid_ = -1;
    int toEngine_ = -1, fromEngine_ = -1;
    bool ended_ = false;  // end of the output seen
    size_t next_ = 0;     // where the first unread line starts in `out`
};

// Sanitizers or no optimisation: deep perft is skipped and timings get more room.
constexpr bool kSlowBuild =
#if defined(QUARN_SANITIZED) || !defined(NDEBUG)
    true;
#else
    false;
#endif

}  // namespace quarn::test
