#include "shell/searchlines.h"

#include <cstdio>

#include "board/movegen.h"
#include "board/movetext.h"
#include "search/pool.h"
#include "search/score.h"
#include "search/timecontrol.h"
#include "shell/clock.h"
#include "shell/log.h"

namespace quarn {

namespace {

// The moves of a line in long form, made one by one on a copy of the start position so every
// piece letter is right. Returns the length written.
size_t writeLine(const Position& start, const Move* line, char* out, size_t size) {
    Position pos;
    copyPosition(pos, start);
    size_t used = 0;
    out[0] = 0;
    for (int made = 0; line[made] && made < kMaxPly - 1 && pos.ply + 1 < static_cast<uint32_t>(kHistorySize) &&
                       used + kMoveTextSize + 1 < size;
         ++made) {
        const Move m = legalMove(pos, line[made]);
        if (!m) break;
        if (used) out[used++] = ' ';
        used = static_cast<size_t>(writeMoveLong(pos, out + used, m) - out);
        makeMove(pos, m);  // the next generation computes the attack words
    }
    return used;
}

// "[depth/seldepth] time nodes score" and the text: the depth right-aligned in three
// characters with its bracket, the time in seconds under a minute and as h:mm:ss after, the
// nodes scaled by 1024 with a suffix, and a mate as "+N#" / "-N#" in moves.
void printSearchLine(const RootSearch& root, int score, const char* text) {
    char buf[1200];
    const int depth = root.depth.load();
    int n = std::snprintf(buf, sizeof buf, "%s[%i/%i] %s", depth < 10 ? "  " : depth < 100 ? " " : "",
                          depth, root.thread->maxPly, root.thread->maxPly < 10 ? " " : "");
    const uint32_t ms = clockMs() - timeControl.startMs;
    if (ms < 60000) {
        n += std::snprintf(buf + n, sizeof buf - n, "%8.3f", ms / 1000.0);
    } else {
        const unsigned s = ms / 1000;
        n += std::snprintf(buf + n, sizeof buf - n, "%2u:%02u:%02u", s / 3600, s / 60 % 60, s % 60);
    }
    char suffix;
    const uint64_t nodes = scaleCount(budgetNodes(*root.thread), suffix, 2);
    n += std::snprintf(buf + n, sizeof buf - n, "%8i%c", static_cast<int>(nodes), suffix);
    if (score >= kMateFound)
        n += std::snprintf(buf + n, sizeof buf - n, "     %+3i#", movesToMate(score));
    else if (score <= -kMateFound)
        n += std::snprintf(buf + n, sizeof buf - n, "     %+3i#", -movesToBeMated(score));
    else
        n += std::snprintf(buf + n, sizeof buf - n, "%8i ", score);
    if (text) std::snprintf(buf + n, sizeof buf - n, " %s", text);
    std::fputs(buf, stdout);
}

class ConsoleSearchLines : public SearchLines {
public:
    void bestLine(const RootSearch& root, int score) override {
        char text[1024];
        const size_t length = writeLine(root.start, root.rootPv, text, sizeof text - 2);
        text[length] = '\n';
        text[length + 1] = 0;
        printSearchLine(root, score, text);
    }
    void rootMoveLine(const RootSearch& root, int score, const char* prefix, Move m) override {
        char text[64];
        char move[kMoveTextSize];
        writeMoveLong(root.start, move, m);
        std::snprintf(text, sizeof text, "%s%s\n", prefix, move);
        printSearchLine(root, score, text);
    }
    void iterationLine(const RootSearch& root, int score, const char* text) override {
        printSearchLine(root, score, text);
    }
};

ConsoleSearchLines consoleLines;

}  // namespace

SearchLines* consoleSearchLines() { return &consoleLines; }

void setQuiet(bool on) {
    setSearchLines(on ? nullptr : &consoleLines);
    setLogLevel(on ? kLogQuiet : kLogNormal);
}

}  // namespace quarn
