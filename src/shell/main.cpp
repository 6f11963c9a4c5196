// Entry point: start-up in a fixed order, then one loop reading lines until "quit" or end of
// input.
#include <cpuid.h>

#include <cstdio>
#include <cstdlib>

#include "board/bitboard.h"
#include "board/fen.h"
#include "board/position.h"
#include "shell/console.h"
#include "shell/lineinput.h"
#include "shell/version.h"

namespace {

bool hasSse2() {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx)) return false;
    return (edx >> 26) & 1;
}

void unbufferStreams() {
    for (FILE* f : {stdout, stdin, stderr}) {
        std::setbuf(f, nullptr);
        std::setvbuf(f, nullptr, _IONBF, 0);
    }
}

}  // namespace

int main() {
    using namespace quarn;
    unbufferStreams();
    std::printf("%s-%s\n%s\n\n", kEngineName, kEngineVersion, kAttribution);
    if (!hasSse2()) {
        std::fputs("Cannot start: sse2 not supported\n", stderr);
        return -1;
    }
    initTables();
    initCastleKeys();
    setFen(gamePosition(), kStartFen);
    std::puts("\ninitialized");

    const char* prompt = "% ";
    for (;;) {
        char* line = readInputLine(prompt);
        if (!line) return 0;
        const LineOutcome outcome = handleLine(line);
        std::free(line);
        if (outcome == LineOutcome::QUIT) return 0;
    }
}
