// Entry point: start-up in a fixed order, then one loop reading lines until "quit" or end of
// input.
#include <cpuid.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "board/bitboard.h"
#include "board/fen.h"
#include "board/position.h"
#include "eval/evalprint.h"
#include "eval/kpk.h"
#include "eval/loneking.h"
#include "search/pool.h"
#include "search/tt.h"
#include "shell/bench.h"
#include "shell/config.h"
#include "shell/console.h"
#include "shell/lineinput.h"
#include "shell/log.h"
#include "shell/searchlines.h"
#include "shell/version.h"
#include "uci/uci.h"

namespace {

bool hasSse2() {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx)) return false;
    return (edx >> 26) & 1;
}

// Start-up's long background work must never take a core from a search or from the reading of
// commands: where the system has an idle class, the calling thread joins it and runs only on
// what the other threads leave.
void yieldToEveryOtherThread() {
#ifdef SCHED_IDLE
    sched_param param{};
    pthread_setschedparam(pthread_self(), SCHED_IDLE, &param);
#endif
}

void unbufferStreams() {
    for (FILE* f : {stdout, stdin, stderr}) {
        std::setbuf(f, nullptr);
        std::setvbuf(f, nullptr, _IONBF, 0);
    }
}

constexpr char kUsage[] =
    "usage: quarn [--logdir DIR] [--lowercase-promotions]\n"
    "                                the engine: UCI and console on standard input;\n"
    "                                --lowercase-promotions sends e7e8q, not e7e8Q, to the GUI\n"
    "       quarn bench [depth [threads]]\n"
    "                                search the built-in positions, print nodes and speed\n"
    "       quarn eval \"<FEN>\"       print every evaluation term of a position\n"
    "       quarn --help | --version\n"
    "UCI options beyond Hash, Ponder, SendPv and UCI_Opponent:\n"
    "  Move Overhead (0 to 5000 ms, default 30): the time a GUI or a network loses per move,\n"
    "  kept off every clock budget; raise it when the engine loses on time behind a slow link\n"
    "  Threads (1 to 64, default 1): search threads sharing the hash table\n"
    "  MultiPV (1 to 64, default 1): the best N moves, each with its own line\n"
    "go also takes searchmoves <moves...> and mate <N>\n";

// Command-line options; false (after a message) when they cannot be used.
bool readOptions(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--logdir") && i + 1 < argc) {
            quarn::setLogDirectory(argv[++i]);
        } else if (!std::strcmp(argv[i], "--lowercase-promotions")) {
            quarn::setLowercasePromotions(true);
        } else {
            std::fprintf(stderr, "quarn: unknown option '%s'\n%s", argv[i], kUsage);
            return false;
        }
    }
    return true;
}

constexpr int kUsageError = 2;
// The table's size at start-up, the same as the Hash option's default (32 MB).
constexpr uint32_t kDefaultHashKb = 32768;

// `quarn eval "<FEN>"`: every evaluation term of one position, then exit.
int evalMode(const char* fen) {
    using namespace quarn;
    initTables();
    initCastleKeys();
    static Position pos;
    if (!setFen(pos, fen)) {
        std::fprintf(stderr, "quarn eval: the FEN was refused\n");
        return 1;
    }
    printEvaluation(pos, stdout);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace quarn;
    unbufferStreams();
    if (argc == 2 && !std::strcmp(argv[1], "--help")) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (argc == 2 && !std::strcmp(argv[1], "--version")) {
        std::printf("%s-%s\n", kEngineName, kEngineVersion);
        return 0;
    }
    if (argc >= 2 && !std::strcmp(argv[1], "bench")) {
        if (argc > 4) {
            std::fputs(kUsage, stderr);
            return kUsageError;
        }
        const int depth = argc >= 3 ? static_cast<int>(std::strtol(argv[2], nullptr, 10)) : 0;
        const int threads = argc == 4 ? static_cast<int>(std::strtol(argv[3], nullptr, 10)) : 1;
        return runBench(depth, threads);
    }
    if (argc >= 2 && !std::strcmp(argv[1], "eval")) {
        if (argc != 3) {
            std::fputs(kUsage, stderr);
            return kUsageError;
        }
        return evalMode(argv[2]);
    }
    if (!readOptions(argc, argv)) return kUsageError;
    std::printf("%s-%s\n%s\n\n", kEngineName, kEngineVersion, kAttribution);
    if (!hasSse2()) {
        std::fputs("Cannot start: sse2 not supported\n", stderr);
        return -1;
    }
    initTables();
    initCastleKeys();
    // The endgame tables take a few hundred milliseconds to build (seconds under a sanitizer):
    // build them beside start-up, so that no search pays for them in the middle of a game. The
    // pawn table (which the evaluation waits for) and the rook and queen mate tables take a few
    // milliseconds; the bishop and knight table, a hundred times more, is built in the idle
    // class, and the search does without it until it is ready.
    std::thread([] {
        buildKpkTable();
        buildLoneKingTable(ROOK);
        buildLoneKingTable(QUEEN);
        yieldToEveryOtherThread();
        buildLoneKingTable(BISHOP);
    }).detach();
    if (configTable().read(kConfigFileName)) std::printf("inifile=%s\n", kConfigFileName);
    std::printf("\nallocating hash...");
    const uint32_t bytes = tt.resize(kDefaultHashKb);
    std::printf("allocated %u bytes=%uMb\n", bytes, bytes >> 20);
    setFen(gamePosition(), kStartFen);
    std::puts("starting threads...");
    initThreads();
    setSearchLines(consoleSearchLines());  // until a GUI says "uci"
    waitIdle();
    std::puts("\ninitialized");
    installInterruptHandler();
    initHistory();
    initUci(&gamePosition());

    for (;;) {
        // The prompt goes once the GUI has said "uci".
        char* line = readInputLine(uci().uciMode() ? nullptr : "% ");
        if (!line) {
            // End of input ends the process like "quit": a search still running must not
            // outlive the objects it reports to.
            std::fflush(nullptr);
            flushHistory();
            _exit(0);
        }
        const LineOutcome outcome = handleLine(line);
        std::free(line);
        if (outcome == LineOutcome::QUIT) return 0;
    }
}
