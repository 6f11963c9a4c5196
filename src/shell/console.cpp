#include "shell/console.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "board/fen.h"
#include "board/movegen.h"
#include "board/movetext.h"
#include "board/perft.h"
#include "search/pool.h"
#include "search/score.h"
#include "search/searchthread.h"
#include "search/timecontrol.h"
#include "search/tt.h"
#include "shell/clock.h"
#include "uci/uci.h"

namespace quarn {

namespace {

Position game;

constexpr char kHelp[] =
    "commands (the UCI protocol's commands work here too):\n"
    "  fen <FEN>      set the position (the fields after the placement may be left out)\n"
    "  <placement>    the same from a FEN placement alone, e.g. 8/8/8/8/8/8/8/K6k\n"
    "  <move>         play a move: e4, Nf3, e2e4, exd5, O-O, e7e8=Q\n"
    "  %              pass: a null move for the side to move\n"
    "  m              list the legal moves with their exchange values in pawns\n"
    "  perft <n>      count the leaf nodes n plies deep, with the time taken\n"
    "  divide <n>     the perft count of every move, and the total\n"
    "  g [tt]         search the position (tt: keep the table); Ctrl-C stops the search\n"
    "  md <n>         depth limit of g (0: none); md alone shows it\n"
    "  mn <n>         node limit of g (0: none)\n"
    "  mt <s>         time limit of g in seconds\n"
    "  help           this list\n"
    "  quit           leave (end of input does too)\n"
    "  (empty line)   print the board\n";

// The longest time limit `mt` takes, in seconds: the limit is kept in 32-bit milliseconds.
constexpr long kLongestSeconds = std::numeric_limits<int32_t>::max() / 1000;

// What "g" found: the move and its score, or why there is none. Printed on the search thread
// when the search ends, before the statistics.
class ConsoleResult : public SearchReporter {
public:
    void reportCurrentMove(uint32_t, uint32_t, Move) override {}
    void reportPv(const PvReport&) override {}
    void reportFinished(const PvReport& report, Move best, Move) override {
        const int score = report.score;
        if (!best) {
            std::puts(inCheck(game) ? "no move: checkmate" : "no move: stalemate");
            return;
        }
        char move[kMoveTextSize];
        writeMoveLong(game, move, best);
        if (score >= kMateFound)
            std::printf("best move %s, mate in %i\n", move, movesToMate(score));
        else if (score <= -kMateFound)
            std::printf("best move %s, mated in %i\n", move, movesToBeMated(score));
        else
            std::printf("best move %s, score %i\n", move, score);
    }
};

ConsoleResult consoleResult;

// The limits of "g", set by md, mn and mt: about five seconds a search at start.
SearchLimits consoleLimits = [] {
    SearchLimits limits;
    limits.moveTimeMs = kDefaultMoveTimeMs;
    return limits;
}();

// Ctrl-C stops a search started at the console as "stop" would; at any other time it ends the
// engine as it always has. Only atomic loads and stores here.
void onInterrupt(int) {
    if (pool.running.load() && pool.interruptible.load()) {
        interruptSearch();
        return;
    }
    std::signal(SIGINT, SIG_DFL);
    std::raise(SIGINT);
}

// Characters of typed move text and of typed FEN placement.
constexpr char kMoveChars[] = "NBRQKabcdefgh12345678x-=+oO";
constexpr char kFenChars[] = "PNBRQKpnbrqk12345678/";

bool inSet(const char* set, char c) { return c != 0 && std::strchr(set, c) != nullptr; }

// A long game keeps its recent history, leaving room for a search below the game.
void makeRoom(Position& pos) {
    if (pos.ply + 1 >= static_cast<uint32_t>(kHistorySize - kMaxPly)) trimHistory(pos);
}

// A depth argument: absent means 1; text that is no number reads as 0, and so does a number
// beyond the int range, which would otherwise wrap round to some other depth.
int depthArgument() {
    const char* word = std::strtok(nullptr, " ");
    if (!word) return 1;
    const long depth = std::strtol(word, nullptr, 10);
    if (depth < std::numeric_limits<int>::min() || depth > std::numeric_limits<int>::max()) {
        std::fprintf(stderr, "console: depth %s out of range\n", word);
        return 0;
    }
    return static_cast<int>(depth);
}

// The next blank-separated word when it is not empty.
const char* nextArgument(bool hadBlank) {
    const char* word = hadBlank ? std::strtok(nullptr, " ") : nullptr;
    return word && word[0] ? word : nullptr;
}

// Perft and divide make one move per level above the last, so the plies they play must fit
// in the room left in the history.
bool depthFits(const Position& pos, int depth, int64_t plies) {
    if (plies < kHistorySize - static_cast<int64_t>(pos.ply)) return true;
    std::fprintf(stderr, "console: depth %i too deep\n", depth);
    return false;
}

void runPerft(int depth) {
    const double startMs = wallMs();
    const uint64_t startTicks = cycleCount();
    const uint64_t nodes = perft(game, depth);
    const uint64_t ticks = cycleCount() - startTicks;
    const double ms = wallMs() - startMs;
    char label[32];
    std::snprintf(label, sizeof label, "perft %i", depth);
    const double n = static_cast<double>(nodes);
    std::printf("%-20s  %10.0f ops in %5.3f seconds  ops/ms=%7.0f,  ticks/op=%6.1f\n", label, n,
                ms / 1000.0, n / ms, static_cast<double>(ticks) / n);
}

// Sets the game position from FEN text, keeping the old one when the text is refused.
void setGameFen(const char* text) {
    static Position scratch;
    if (setFen(scratch, text)) copyPosition(game, scratch);
}

// The whole line is move characters; only the separator after the first word (now the
// word's terminator) may differ.
bool looksLikeMoveText(const char* input, size_t length, size_t separator) {
    if (length < 2) return false;
    for (size_t i = 0; i < length; ++i)
        if (!inSet(kMoveChars, input[i]) && !(i == separator && input[i] == 0)) return false;
    return true;
}

bool looksLikeFen(const char* word) {
    if (!word[0] || word[0] == ' ') return false;
    int slashes = 0, whiteKings = 0, blackKings = 0;
    for (const char* p = word; *p; ++p) {
        if (!inSet(kFenChars, *p)) return false;
        slashes += *p == '/';
        whiteKings += *p == 'K';
        blackKings += *p == 'k';
    }
    return slashes >= 1 && whiteKings == 1 && blackKings == 1;
}

void playMoveText(const char* word) {
    const Move m = parseMove(game, word);
    if (!m) {
        std::printf("not a move: '%s'\n", word);
        return;
    }
    makeRoom(game);
    makeMove(game, m);
    computeAttackInfo(game);
    printBoard(game, stdout, false);
}

}  // namespace

Position& gamePosition() { return game; }

void installInterruptHandler() {
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    action.sa_flags = SA_RESTART;  // reading the next line goes on after a stopped search
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
}

LineOutcome consoleCommand(char* input, size_t length) {
    // The word is everything before the terminator strtok wrote, leading blanks included.
    const char* word = input;
    const size_t cut = std::strlen(input);
    const bool hadBlank = cut < length;

    if (!std::strcmp(word, "fen")) {
        const char* text = hadBlank ? std::strtok(nullptr, "") : nullptr;
        if (text) setGameFen(text);
        printBoard(game, stdout, false);
    } else if (!std::strcmp(word, "g")) {
        const char* next = hadBlank ? std::strtok(nullptr, " ") : nullptr;
        if (!next || std::strcmp(next, "tt") != 0) {
            tt.clear();
            clearSearchHistory();
        }
        pool.interruptible.store(true);
        timeControl.apply(consoleLimits);
        startSearch(game, &consoleResult);
        waitIdle();
    } else if (!std::strcmp(word, "%")) {
        // Passing in check would leave the king to be taken.
        computeAttackInfo(game);
        if (inCheck(game)) {
            std::fputs("console: no null move while in check\n", stderr);
        } else {
            makeRoom(game);
            makeNullMove(game);
        }
    } else if (!std::strcmp(word, "help")) {
        std::fputs(kHelp, stdout);
    } else if (!std::strcmp(word, "quit")) {
        return LineOutcome::QUIT;
    } else if (!std::strcmp(word, "divide")) {
        const int depth = hadBlank ? depthArgument() : 1;
        if (depth && depthFits(game, depth, depth > 2 ? int64_t{depth} - 1 : 1)) divide(game, depth);
    } else if (!std::strcmp(word, "perft")) {
        const int depth = hadBlank ? depthArgument() : 1;
        if (depth && depthFits(game, depth, int64_t{depth} - 1)) runPerft(depth);
    } else if (!std::strcmp(word, "m")) {
        listMoves(game);
    } else if (!std::strcmp(word, "md")) {
        if (const char* arg = nextArgument(hadBlank)) consoleLimits.depth = static_cast<int>(std::strtol(arg, nullptr, 10));
        std::printf("maxdepth=%i\n", consoleLimits.depth);
    } else if (!std::strcmp(word, "mn")) {
        if (const char* arg = nextArgument(hadBlank)) consoleLimits.nodes = std::strtol(arg, nullptr, 10);
        std::printf("maxnodes=%i\n", static_cast<int>(static_cast<uint32_t>(consoleLimits.nodes)));
    } else if (!std::strcmp(word, "mt")) {
        if (const char* arg = nextArgument(hadBlank)) {
            const long seconds = std::strtol(arg, nullptr, 10);
            if (seconds < 0 || seconds > kLongestSeconds)
                std::fprintf(stderr, "console: time %s out of range\n", arg);
            else
                consoleLimits.moveTimeMs = static_cast<int64_t>(seconds) * 1000;
        }
        std::printf("maxtime=%3.2fs\n", static_cast<double>(consoleLimits.moveTimeMs) / 1000.0);
    } else if (looksLikeMoveText(input, length, cut)) {
        playMoveText(word);
    } else if (looksLikeFen(word)) {
        setGameFen(word);
        printBoard(game, stdout, false);
    } else {
        std::printf("unknown command: '%s'\n", word);
    }
    return LineOutcome::CONTINUE;
}

LineOutcome handleLine(char* input) {
    if (!input[0]) {
        if (!uci().uciMode()) printBoard(game, stdout, false);
        return LineOutcome::CONTINUE;
    }
    // strtok skips leading blanks when it cuts the first word, but the word is read from the
    // start of the line, so "  go" stays "  go".
    const size_t length = std::strlen(input);
    std::strtok(input, " ");
    const size_t cut = std::strlen(input);
    // The protocol handler has the first say; the arguments are the rest of the line.
    if (uci().dispatch(input, cut < length ? input + cut + 1 : "")) return LineOutcome::CONTINUE;
    return consoleCommand(input, length);
}

}  // namespace quarn
