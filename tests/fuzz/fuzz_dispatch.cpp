// Fuzz target: the input as lines for the engine's line handler, the console and the protocol
// together, as the main loop hands them over. Every input starts from the same state (start
// position, a fresh protocol handler, default limits, an empty table) and no search outlives
// it.
//
// Lines are dropped that would end the process ("quit") or only cost time: the console search
// "g", perft and divide deeper than 3 (and more than a few at depth 3), and a hash table
// larger than 64 MB.
//
// With QUARN_FUZZ_SKIP_KNOWN set in the environment, lines that only show a fault already
// reported are dropped too, so that a long run can go past them: the null move "%" while the
// side to move is in check (the king can then be taken), "perft" at the smallest int (its
// depth - 1 overflows), and "go" with a number beyond 2^28 (the clock arithmetic overflows).
#ifdef QUARN_FUZZ_TARGET

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

#include "board/bitboard.h"
#include "board/fen.h"
#include "board/movegen.h"
#include "board/position.h"
#include "search/pool.h"
#include "search/timecontrol.h"
#include "search/tt.h"
#include "shell/console.h"
#include "shell/log.h"
#include "uci/uci.h"

namespace {

using namespace quarn;

constexpr uint32_t kFuzzHashKb = 1024;
constexpr long kLargestHashMb = 64;
constexpr int kLargestDepth = 3;
constexpr int kDeepCountsPerInput = 4;  // perft/divide lines at the largest depth
constexpr uint32_t kFuzzMoveTimeMs = 20;
constexpr long kHugeNumber = 1L << 28;

// The descriptor stderr had when the first input ran (libFuzzer may have pointed it at
// /dev/null by then).
int originalStderr = -1;
bool skipKnown = false;

bool nullMoveInCheck(std::string_view word) {
    if (word != "%") return false;
    static Position scratch;
    copyPosition(scratch, gamePosition());
    computeAttackInfo(scratch);
    return inCheck(scratch);
}

// The first word as the handler sees it: from the line's start (leading blanks included) to
// the blank after the first non-blank run.
std::string_view firstWord(std::string_view line, size_t& end) {
    end = 0;
    while (end < line.size() && line[end] == ' ') ++end;
    while (end < line.size() && line[end] != ' ') ++end;
    return line.substr(0, end);
}

// The depth argument of perft and divide, read as the console reads it.
int depthOf(std::string_view line, size_t wordEnd) {
    if (wordEnd >= line.size()) return 1;  // no blank: depth 1
    std::string rest(line.substr(wordEnd + 1));
    char* save = nullptr;
    const char* word = strtok_r(rest.data(), " ", &save);
    return word ? static_cast<int>(std::strtol(word, nullptr, 10)) : 1;
}

// Whether a blank- or tab-separated word of the line reads as a number above `high` or below
// `low`.
bool numberOutside(std::string_view line, long low, long high) {
    std::string copy(line);
    char* save = nullptr;
    for (char* w = strtok_r(copy.data(), " \t", &save); w; w = strtok_r(nullptr, " \t", &save)) {
        const long n = std::strtol(w, nullptr, 10);
        if (n > high || n < low) return true;
    }
    return false;
}

bool keepLine(std::string_view line, int& deepCounts) {
    size_t end = 0;
    const std::string_view word = firstWord(line, end);
    if (word == "quit" || word == "g") return false;
    if (word == "perft" || word == "divide") {
        const int depth = depthOf(line, end);
        if (depth > kLargestDepth) return false;
        if (depth == kLargestDepth && ++deepCounts > kDeepCountsPerInput) return false;
        if (skipKnown && word == "perft" && depth == std::numeric_limits<int>::min()) return false;
    }
    // The Hash value may stand anywhere after the name: any number above the cap drops the line.
    if (word == "setoption" && line.find("Hash") != std::string_view::npos &&
        numberOutside(line, std::numeric_limits<long>::min(), kLargestHashMb))
        return false;
    if (skipKnown && nullMoveInCheck(word)) return false;
    if (skipKnown && word == "go" && numberOutside(line, -kHugeNumber, kHugeNumber)) return false;
    return true;
}

void resetEngine() {
    stopSearch();
    waitIdle();
    setLogStream(stdout);
    setQuiet(false);
    timeControl = TimeControl();
    timeControl.setMoveTime(kFuzzMoveTimeMs);
    tt.resize(kFuzzHashKb);
    tt.clear();
    setFen(gamePosition(), kStartFen);
    initUci(&gamePosition());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Board diagrams, "info" lines and the log go to stdout: out of the fuzzer's way.
    if (!std::freopen("/dev/null", "w", stdout)) return 1;
    initTables();
    initCastleKeys();
    tt.resize(kFuzzHashKb);
    setFen(gamePosition(), kStartFen);
    initThreads();
    waitIdle();
    initUci(&gamePosition());
    timeControl.setMoveTime(kFuzzMoveTimeMs);
    skipKnown = std::getenv("QUARN_FUZZ_SKIP_KNOWN") != nullptr;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (originalStderr < 0) originalStderr = dup(STDERR_FILENO);
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    int deepCounts = 0;
    for (size_t start = 0; start < input.size();) {
        size_t stop = input.find('\n', start);
        if (stop == std::string_view::npos) stop = input.size();
        std::string text(input.substr(start, stop - start));
        start = stop + 1;
        // The reader takes line ends off; a NUL byte ends the text as it would there.
        text.resize(std::strlen(text.c_str()));
        while (!text.empty() && (text.back() == '\r' || text.back() == '\n')) text.pop_back();
        if (!keepLine(text, deepCounts)) continue;
        handleLine(text.data());
        // After "uci" stderr appends to the error log; keep it where it was.
        if (originalStderr >= 0) dup2(originalStderr, STDERR_FILENO);
    }
    resetEngine();
    return 0;
}

#endif  // QUARN_FUZZ_TARGET
