// The option lines "uci" announces and the "setoption" command.
#include <cstdlib>
#include <cstring>

#include "search/pool.h"
#include "search/timecontrol.h"
#include "search/tt.h"
#include "shell/log.h"
#include "shell/version.h"
#include "uci/uci.h"

namespace quarn {

namespace {

constexpr int kDefaultHashMb = 32;
// The table's byte size is a 32-bit number: 2048 MB is the most it can hold.
constexpr long kLargestHashMb = 2048;

// The option lines, blanks as the protocol text has them.
constexpr char kOptionLines[] =
    "option name Hash    type spin  default 32 min 1 max 4096\n"
    "option name Ponder  type check default false\n"
    "option name SendPv  type check default true\n"
    "option name UCI_Opponent    type string\n";

}  // namespace

bool Uci::searchRunning() {
    const UciStatus s = status();
    return s == SEARCHING || s == PONDERING;
}

void Uci::writeOptions() {
    std::fwrite(kOptionLines, 1, sizeof kOptionLines - 1, out_.file());
    out_.print("option name UCI_EngineAbout type string default %s by %s\n", kEngineName, kAuthor);
    out_.print("option name Move Overhead type spin default %i min 0 max %i\n",
               kDefaultMoveOverheadMs, kLargestMoveOverheadMs);
    out_.print("option name Threads type spin default 1 min 1 max %i\n", kMaxThreads);
    out_.print("option name MultiPV type spin default 1 min 1 max %i\n", kMaxPvLines);
}

// "setoption name MultiPV value N", 1 to 64: the best N moves are searched in full, each with
// its own line. Anything else is refused and the count kept.
void Uci::setMultiPv() {
    SharedString value = nextWord(arguments_);
    if (value.equals("value")) value = nextWord(arguments_);
    char* end = nullptr;
    const long n = std::strtol(value.chars(), &end, 10);
    const int now = pool.multiPv > 1 ? pool.multiPv : 1;
    if (value.length() < 2 || *end || n < 1 || n > kMaxPvLines) {
        std::fprintf(stderr, "setoption: MultiPV takes 1 to %i, not '%s'; kept at %i\n", kMaxPvLines,
                     value.chars(), now);
        return;
    }
    pool.multiPv = static_cast<int>(n);
    logMessage("multipv=%i\n", pool.multiPv);
}

// "setoption name Threads value N", 1 to 64: N search threads from the next search on. While
// a search runs the count stays; anything else is refused and the count kept.
void Uci::setThreadCount() {
    SharedString value = nextWord(arguments_);
    if (value.equals("value")) value = nextWord(arguments_);
    char* end = nullptr;
    const long n = std::strtol(value.chars(), &end, 10);
    if (value.length() < 2 || *end || n < 1 || n > kMaxThreads) {
        std::fprintf(stderr, "setoption: Threads takes 1 to %i, not '%s'; kept at %i\n", kMaxThreads,
                     value.chars(), pool.threadCount);
        return;
    }
    setThreads(static_cast<int>(n));
    logMessage("threads=%i\n", pool.threadCount);
}

// "setoption name Move Overhead value N": N milliseconds, 0 to 5000; anything else is refused
// and the setting kept.
void Uci::setMoveOverhead() {
    SharedString value = nextWord(arguments_);
    if (value.equals("value")) value = nextWord(arguments_);
    char* end = nullptr;
    const long ms = std::strtol(value.chars(), &end, 10);
    if (value.length() < 2 || *end || ms < 0 || ms > kLargestMoveOverheadMs) {
        std::fprintf(stderr, "setoption: Move Overhead takes 0 to %i ms, not '%s'; kept at %i\n",
                     kLargestMoveOverheadMs, value.chars(), moveOverheadMs_);
        return;
    }
    moveOverheadMs_ = static_cast<int>(ms);
    logMessage("moveoverhead=%i\n", moveOverheadMs_);
}

void Uci::onSetOption() {
    SharedString name = nextWord(arguments_);
    if (name.equals("name")) name = nextWord(arguments_);
    // A check option's value: "true" turns it on, anything else off; "value" may be left out.
    auto checkValue = [&]() {
        SharedString value = nextWord(arguments_);
        if (value.equals("value")) value = nextWord(arguments_);
        return value.equals("true");
    };
    if (name.equals("UCI_Opponent")) {
        nextWord(arguments_);
        opponentTitle_ = nextWord(arguments_);
        SharedString rating = nextWord(arguments_);
        opponentRating_ = static_cast<int>(std::strtol(rating.chars(), nullptr, 10));
        opponentKind_ = nextWord(arguments_);
        opponentName_ = nextWord(arguments_);
        logMessage("Opponent=%s %s, %s, elo=%i\n", opponentTitle_.chars(), opponentName_.chars(),
                   opponentKind_.chars(), opponentRating_);
    } else if ((name.equals("Hash") || name.equals("Clear") || name.equals("Threads") ||
                name.equals("MultiPV")) &&
               searchRunning()) {
        // The table and the threads belong to the search while it runs.
        std::fprintf(stderr, "setoption: %s ignored while a search runs\n", name.chars());
    } else if (name.equals("Threads")) {
        setThreadCount();
    } else if (name.equals("MultiPV")) {
        setMultiPv();
    } else if (name.equals("Move")) {
        SharedString second = nextWord(arguments_);
        if (second.equals("Overhead")) {
            setMoveOverhead();
        } else {
            std::fprintf(stderr, "Option not supported: Move %s\n", second.chars());
        }
    } else if (name.equals("Hash")) {
        // A finished search may still be writing its statistics, which read the table.
        waitIdle();
        nextWord(arguments_);
        SharedString value = nextWord(arguments_);
        long mb = value.length() > 1 ? std::strtol(value.chars(), nullptr, 10) : kDefaultHashMb;
        if (mb < 0 || mb > kLargestHashMb) {
            std::fprintf(stderr, "setoption: Hash %ld MB out of range, using %ld\n", mb,
                         mb < 0 ? 0L : kLargestHashMb);
            mb = mb < 0 ? 0 : kLargestHashMb;
        }
        logMessage("resizing hash to %uMb\n", static_cast<unsigned>(mb));
        tt.resize(static_cast<uint32_t>(mb) << 10);
        tt.prefault();  // before "readyok" can be answered, not in the first searches
    } else if (name.equals("Clear")) {
        waitIdle();
        tt.clear();
        logProtocol("tt cleared", nullptr);
    } else if (name.equals("Ponder")) {
        timeControl.canPonder = checkValue();
        logMessage("canponder=%u\n", timeControl.canPonder);
    } else if (name.equals("SendPv")) {
        sendPv_ = checkValue();
        logMessage("sendpv=%u\n", sendPv_.load() ? 1u : 0u);
    } else if (name.equals("OwnBook")) {
        useBook_ = checkValue();
        logMessage("usebook=%u\n", useBook_ ? 1u : 0u);
    } else {
        std::fprintf(stderr, "Option not supported: %s\n", name.chars());
    }
}

}  // namespace quarn
