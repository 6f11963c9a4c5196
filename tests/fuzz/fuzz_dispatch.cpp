// Fuzz target: the input as lines for the engine's line handler, the console and the protocol
// together, as the main loop hands them over. Every input starts from the same state (start
// position, a fresh protocol handler, default limits, an empty table) and no search outlives
// it. The oracle is the sanitizers: no crash, no report, no hang.
#ifdef QUARN_FUZZ_TARGET

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "fuzz_support.h"
#include "search/pool.h"
#include "search/timecontrol.h"
#include "search/tt.h"
#include "shell/console.h"
#include "shell/log.h"
#include "shell/searchlines.h"
#include "uci/uci.h"

namespace {

using namespace quarn;

constexpr uint32_t kFuzzHashKb = 1024;
constexpr long kLargestHashMb = 64;
constexpr long kLargestDepth = 3;
constexpr int kDeepCountsPerInput = 4;  // perft/divide lines at the largest depth
constexpr uint32_t kFuzzMoveTimeMs = 20;

// The descriptor stderr had when the first input ran (libFuzzer may have pointed it at
// /dev/null by then).
int originalStderr = -1;

// Lines are dropped that would end the process ("quit") or only cost time: the console search
// "g", perft and divide deeper than 3 (and more than a few at depth 3), and a hash table
// larger than 64 MB. The word runs to the first blank: a line starting with one is no command.
bool keepLine(const std::string& text, int& deepCounts) {
    const size_t blank = text.find(' ');
    const std::string word = text.substr(0, blank);
    if (word == "quit" || word == "g") return false;
    if (word == "perft" || word == "divide") {
        const long depth = blank == std::string::npos ? 1 : std::strtol(&text[blank], nullptr, 10);
        if (depth > kLargestDepth) return false;
        if (depth == kLargestDepth && ++deepCounts > kDeepCountsPerInput) return false;
    }
    // The Hash value may stand anywhere after the name: any number above the cap drops the line.
    std::istringstream in(text);
    for (std::string w; word == "setoption" && text.find("Hash") != text.npos && in >> w;)
        if (std::strtol(w.c_str(), nullptr, 10) > kLargestHashMb) return false;
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
    if (quarn::test::initTarget()) return 1;
    initThreads();
    resetEngine();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (originalStderr < 0) originalStderr = dup(STDERR_FILENO);
    int deepCounts = 0;
    for (const std::string_view piece :
         quarn::test::splitLines({reinterpret_cast<const char*>(data), size})) {
        // The reader takes line ends off; a NUL byte ends the text as it would there.
        std::string text(piece.substr(0, piece.find('\0')));
        while (!text.empty() && text.back() == '\r') text.pop_back();
        if (!keepLine(text, deepCounts)) continue;
        handleLine(text.data());
        // After "uci" stderr appends to the error log; keep it where it was.
        if (originalStderr >= 0) dup2(originalStderr, STDERR_FILENO);
    }
    resetEngine();
    return 0;
}

#endif  // QUARN_FUZZ_TARGET
