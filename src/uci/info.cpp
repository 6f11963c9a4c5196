// The search's reports as "info" lines, throttled so fast iterations do not flood the GUI.
#include <cstdio>
#include <cstring>

#include "search/pool.h"
#include "search/search.h"
#include "search/timecontrol.h"
#include "search/tt.h"
#include "shell/clock.h"
#include "uci/uci.h"

namespace quarn {

namespace {

constexpr uint32_t kInfoInterval = 100;  // ms between throttled lines
constexpr uint32_t kNpsMinimumMs = 99;   // no speed figure for shorter searches
constexpr int kRepeatDepthGap = 9;       // a PV repeated over this many plies is throttled
constexpr int kLineBuffer = 2048;
constexpr int kMoveRoom = 12;            // the PV stops when less room than this is left

}  // namespace

void Uci::clearThrottle() {
    nextInfoTime_ = 0;
    lastPvDepth_ = 0;
    lastPvScore_ = 0;
    lastPvMove_ = 0;
    repeatFlag_ = 0;
}

uint32_t Uci::searchTime() const { return clockMs() - timeControl.startMs; }

int Uci::writeStatistics(char* buf, int size) const {
    const uint32_t time = searchTime();
    const uint64_t nodes = budgetNodes(*pool.threads[0]);  // reports run on the master
    int n = std::snprintf(buf, static_cast<size_t>(size), " time %i nodes %0.0f", static_cast<int>(time),
                          static_cast<double>(nodes));
    if (time > kNpsMinimumMs)
        n += std::snprintf(buf + n, static_cast<size_t>(size - n), " nps %u",
                           static_cast<uint32_t>(nodes * 1000 / time));
    const uint32_t entries = tt.entryCount();
    const TtCounters& counters = Tt::counters();  // the master search thread's, which reports
    const uint64_t filled = counters.replacements - counters.liveReplacements;
    n += std::snprintf(buf + n, static_cast<size_t>(size - n), " hashfull %u",
                       entries ? static_cast<uint32_t>(static_cast<double>(filled) / entries * 1000.0) : 0u);
    return n;
}

void Uci::sendPvLine(const PvReport& report) {
    const int score = report.score;
    const Move* pv = report.pv;
    char buf[kLineBuffer];
    int n = std::snprintf(buf, sizeof buf, "info depth %u seldepth %u", static_cast<uint32_t>(report.depth),
                          static_cast<uint32_t>(report.selDepth));
    // Lines are numbered when several are shown.
    if (pool.multiPv > 1 && pv) n += std::snprintf(buf + n, sizeof buf - n, " multipv %i", report.index);
    // The two mate formulas are not mirror images; both are the protocol's text.
    if (score > kMateFound)
        n += std::snprintf(buf + n, sizeof buf - n, " score mate %i", movesToMate(score));
    else if (score < -kMateFound)
        n += std::snprintf(buf + n, sizeof buf - n, " score mate -%i", movesToBeMated(score));
    else
        n += std::snprintf(buf + n, sizeof buf - n, " score cp %i", score);
    n += writeStatistics(buf + n, kLineBuffer - n);
    if (pv && pv[0]) {
        n += std::snprintf(buf + n, sizeof buf - n, " pv");
        for (int i = 0; pv[i] && kLineBuffer - n > kMoveRoom; ++i) {
            buf[n++] = ' ';
            n = static_cast<int>(writeUciMove(buf + n, pv[i]) - buf);
        }
    }
    std::snprintf(buf + n, sizeof buf - n, "\n");
    out_.putString(buf);
    out_.flush();
}

void Uci::reportCurrentMove(uint32_t depth, uint32_t moveIndex, Move move) {
    if (!sendPv_) return;
    const uint32_t now = searchTime();
    if (moveIndex == 0 ? (repeatFlag_ && nextInfoTime_ > now) : nextInfoTime_ > now) return;
    nextInfoTime_ = now + kInfoInterval;
    char buf[512];
    int n = std::snprintf(buf, sizeof buf, "info depth %u currmovenumber %u currmove ", depth, moveIndex + 1);
    n = static_cast<int>(writeUciMove(buf + n, move) - buf);
    n += writeStatistics(buf + n, static_cast<int>(sizeof buf) - n);
    std::snprintf(buf + n, sizeof buf - n, "\n");
    out_.putString(buf);
    out_.flush();
}

void Uci::reportPv(const PvReport& report) {
    if (!sendPv_) return;
    const int depth = report.depth, score = report.score;
    const Move move = report.pv ? report.pv[0] : 0;
    repeatFlag_ = score == lastPvScore_ && move == lastPvMove_ && depth - lastPvDepth_ >= kRepeatDepthGap;
    if (repeatFlag_ && nextInfoTime_ > searchTime()) return;
    sendPvLine(report);
    if (score != lastPvScore_ || move != lastPvMove_) {
        lastPvDepth_ = depth;
        lastPvScore_ = score;
        lastPvMove_ = move;
    }
}

}  // namespace quarn
