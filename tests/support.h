// Shared helpers for the tests: tables, positions from FEN, EPD data and running the binary.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "board/position.h"

namespace quarn::test {

// One line of an EPD file: the FEN and the perft counts given as ";D1 n ;D2 n ...".
struct EpdEntry {
    std::string fen;
    std::vector<uint64_t> counts;  // counts[d - 1] is the count at depth d
};

// Path of a file under tests/data.
std::string dataPath(const std::string& name);
// The whole file, "" when it cannot be read.
std::string readFile(const std::string& path);
std::vector<EpdEntry> loadEpd(const std::string& name);
// FEN lines of a file (the first four fields of each non-empty line).
std::vector<std::string> loadFens(const std::string& name);

// A position set from FEN; fails the calling test when the FEN is refused.
Position positionFrom(const std::string& fen);

// Output of one run of the engine binary with `input` on its standard input.
struct EngineRun {
    std::string out;
    std::string err;
    int status = -1;
};
// The engine runs in `workDir`, or, when that is empty, in a fresh temporary directory that is
// removed afterwards (the engine writes its history file into its working directory).
EngineRun runEngine(const std::string& input, const std::vector<std::string>& args = {},
                    const std::string& workDir = "");

// A fresh directory under /tmp, removed with everything in it when this object goes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// The engine on pipes (with `terminal`, on a pseudo-terminal it has as controlling terminal) in
// a fresh directory, standard error going to "stderr.txt" there (or to the terminal). Every
// wait has a deadline and the process is killed when the object goes: no test can hang on it.
class EngineSession {
public:
    explicit EngineSession(const std::vector<std::string>& args = {}, bool terminal = false);
    ~EngineSession();
    void send(const std::string& text);  // a line end is added
    // The next unread output line that `match` accepts (lines passed over count as read); none
    // at the end of the output or after `ms`.
    std::optional<std::string> line(const std::function<bool(const std::string&)>& match, int ms);
    std::optional<std::string> line(const std::string& prefix, int ms);
    // Reads to the end of the output, then the exit status; -1 when that takes over `ms`.
    int waitExit(int ms);

    TempDir dir;
    std::string out;  // the output so far

private:
    bool readUntil(const std::function<bool()>& done, int ms);
    pid_t pid_ = -1;
    int toEngine_ = -1, fromEngine_ = -1;
    bool ended_ = false;  // end of the output seen
    size_t next_ = 0;     // where the first unread line starts in `out`
};

// Whether this build is slow (sanitizers or no optimisation): deep perft is skipped there.
constexpr bool kSlowBuild =
#if defined(QUARN_SANITIZED) || !defined(NDEBUG)
    true;
#else
    false;
#endif

}  // namespace quarn::test
