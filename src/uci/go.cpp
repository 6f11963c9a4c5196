// The "go" command: search parameters into the time control, then the search.
#include <cstdlib>
#include <cstring>

#include "board/movetext.h"
#include "search/pool.h"
#include "search/timecontrol.h"
#include "shell/log.h"
#include "uci/uci.h"

namespace quarn {

namespace {

constexpr int kReserveShare = 8;

struct GoParameters {
    int wtime = -1, btime = -1, winc = 0, binc = 0;
    int depth = 0, nodes = 0, movetime = -1, movestogo = 0, mate = 0;
    bool infinite = false, ponder = false;
    Move searchMoves[kMaxMoves];
    int searchMoveCount = 0;
};

// The numeric parameters by name; a missing or empty value leaves the default.
struct NumericParameter {
    const char* name;
    int GoParameters::*field;
};
constexpr NumericParameter kNumeric[] = {
    {"wtime", &GoParameters::wtime}, {"btime", &GoParameters::btime},   {"winc", &GoParameters::winc},
    {"binc", &GoParameters::binc},   {"depth", &GoParameters::depth},   {"nodes", &GoParameters::nodes},
    {"movetime", &GoParameters::movetime}, {"movestogo", &GoParameters::movestogo},
    {"mate", &GoParameters::mate},
};

// A word that starts another go parameter, and so ends a searchmoves list.
bool isGoWord(const SharedString& word) {
    for (const NumericParameter& n : kNumeric)
        if (word.equals(n.name)) return true;
    return word.equals("infinite") || word.equals("ponder") || word.equals("searchmoves");
}

// The time limits of a go: a fixed move time wins over the clocks. Returns whether either
// was given.
bool timeLimits(SearchLimits& limits, const GoParameters& p, bool white, int reserveMs, int overheadMs) {
    if (p.movetime >= 0) {
        logMessage("got hard moves/millis=%i/%i\n", p.movestogo, p.movetime);
        limits.moveTimeMs = p.movetime;
        return true;
    }
    const int clock = white ? p.wtime : p.btime, increment = white ? p.winc : p.binc;
    if (clock < 0) return false;
    logMessage("got wb moves/millis=%i/%i\n", p.movestogo, clock);
    // The reserve is kept back from the clock, but on a short clock only an eighth of it plus
    // the move overhead (the time a stop takes to land and the GUI or the network loses): a 3 s
    // reserve on a 2 s clock would leave every move a fixed 100 ms and lose on time. The
    // overhead itself is never spent, however long the clock.
    const int shortReserve = clock / kReserveShare + overheadMs;
    const int reserve = reserveMs < shortReserve ? reserveMs : shortReserve;
    limits.reserveMs = reserve > overheadMs ? reserve : overheadMs;
    limits.clockMs = clock;
    limits.incrementMs = increment;
    return true;
}

}  // namespace

void Uci::onGo() {
    if (verbose_) logProtocol("go()...", nullptr);
    // 2. The first search of a game marks where the book ended.
    if (!outOfBookPly_) {
        outOfBookPly_ = position_->ply + 1;
        outOfBookKey_ = position_->hashKey;
        logMessage("Uci:First search out of book is at %u ply\n", outOfBookPly_);
    }
    // 3. Parameters.
    GoParameters p;
    UciStatus next = SEARCHING;
    SharedString pending;  // a word that ended a searchmoves list, to be read as a parameter
    while (pending.length() >= 2 || arguments_.length() >= 2) {
        SharedString word = pending.length() >= 2 ? pending : nextWord(arguments_);
        pending = SharedString();
        if (word.length() < 2) break;
        if (word.equals("searchmoves")) {
            pending = readSearchMoves(p.searchMoves, p.searchMoveCount);
            continue;
        }
        bool known = false;
        for (const NumericParameter& n : kNumeric) {
            if (!word.equals(n.name)) continue;
            known = true;
            SharedString value = nextWord(arguments_);
            if (value.length() >= 2) p.*n.field = static_cast<int>(std::strtol(value.chars(), nullptr, 10));
        }
        if (known) continue;
        if (word.equals("infinite")) {
            p.infinite = true;
        } else if (word.equals("ponder")) {
            logMessage("START pondering\n");
            next = PONDERING;
            p.ponder = p.infinite = true;
        }
    }
    // 4. A go belongs after a position. One search at a time, and every go answered once: a
    // running search ends and answers (it finds the status POSITION), a held answer is sent.
    HeldAnswer held;
    const UciStatus old = exchangeStatus(POSITION, &held);
    if (old != POSITION) std::fprintf(stderr, "Expected current status==POSITION, got %i\n", old);
    if (old == SEARCHING || old == PONDERING) stopSearch();
    if (held != HELD_NONE) sendHeld(held, true);
    // The last search may have answered and still be closing (its statistics read the clock
    // of the time control set up below): it finishes first.
    waitIdle();
    {
        std::lock_guard<std::mutex> lock(statusMutex_);
        status_ = next;
        infiniteGo_ = p.infinite && !p.ponder;
    }
    // 5. Limits.
    SearchLimits limits;
    limits.infinite = p.infinite;
    limits.nodes = p.nodes;
    limits.depth = p.depth;
    limits.movesToGo = p.movestogo;
    limits.mateMoves = p.mate > 0 ? p.mate : 0;
    // 6. Moves since the book.
    const int recorded = static_cast<int>(outOfBookPly_), ply = static_cast<int>(position_->ply);
    if (recorded - 1 <= ply) {
        limits.outOfBookMoves = (ply - recorded + 1) / 2 + 1;
        logMessage("out of book=%i\n", limits.outOfBookMoves);
    }
    // 7. Time: a fixed move time wins over the clocks.
    const bool timed = timeLimits(limits, p, position_->sideToMove == WHITE, reserveMs_, moveOverheadMs_);
    timeControl.apply(limits);
    // 8. Nothing limits the search: only "stop" will end it.
    if (!p.nodes && !p.depth && !p.infinite && !timed && !p.mate) {
        std::fputs("go(): no time/depth/node limit\n", stderr);
    }
    logMessage("Nominal search time is %3.2f seconds, infinite=%i, nodes=%i\n",
               static_cast<float>(timeControl.normalBudgetMs()) / 1000.0, timeControl.infinite,
               static_cast<int>(timeControl.nodeLimitNow));
    // 10. Go.
    clearThrottle();
    pool.interruptible.store(!uciMode_);  // a "go" typed at the console, Ctrl-C may stop
    startSearch(*position_, this, p.searchMoves, p.searchMoveCount);
    if (verbose_) logProtocol("go() ok", nullptr);
}

SharedString Uci::readSearchMoves(Move* moves, int& count) {
    for (;;) {
        if (arguments_.length() < 2) return SharedString();
        SharedString word = nextWord(arguments_);
        if (word.length() < 2 || isGoWord(word)) return word;
        const Move m = parseMove(*position_, word.chars());
        if (!m) {
            std::fprintf(stderr, "go: searchmoves: '%s' is no legal move here; left out\n", word.chars());
            continue;
        }
        bool listed = false;
        for (int i = 0; i < count; ++i) listed |= moves[i] == m;
        if (!listed && count < kMaxMoves) moves[count++] = m;
    }
}

}  // namespace quarn
