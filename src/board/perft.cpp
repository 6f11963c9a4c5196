#include "board/perft.h"

#include "board/movegen.h"
#include "board/movetext.h"
// The one include of the evaluation from the board: the console's move list beside perft shows
// each move's exchange value.
#include "eval/see.h"

namespace quarn {

uint64_t perft(Position& pos, int depth) {
    Move moves[kMaxMoves];
    Move* end = generateMoves(pos, moves);
    if (depth < 2) return static_cast<uint64_t>(end - moves);
    const UndoState saved = pos.state;
    uint64_t nodes = 0;
    for (Move* it = moves; it != end; ++it) {
        makeMove(pos, *it);
        nodes += perft(pos, depth - 1);
        unmakeMove(pos, *it, saved);
    }
    return nodes;
}

void divide(Position& pos, int depth, FILE* out) {
    std::fputs("----divide---\n", out);
    Move moves[kMaxMoves];
    Move* end = generateMoves(pos, moves);
    const UndoState saved = pos.state;
    uint64_t total = 0;
    for (Move* it = moves; it != end; ++it) {
        makeMove(pos, *it);
        const uint64_t count = depth < 2 ? 1 : perft(pos, depth - 1);
        unmakeMove(pos, *it, saved);
        char text[kMoveTextSize];
        writeMoveLong(pos, text, *it);
        std::fprintf(out, "%-8s %10.0f\n", text, static_cast<double>(count));
        total += count;
    }
    std::fputs("-------------------\n", out);
    std::fprintf(out, "total    %10.0f\n", static_cast<double>(total));
}

void listMoves(Position& pos, FILE* out) {
    Move moves[kMaxMoves];
    Move* end = generateMoves(pos, moves);
    SanWriter writer{pos, {}};
    for (Move* it = moves; it != end; ++it)
        std::fprintf(out, "%s/%i ", writeMoveSan(writer, *it), see(pos, *it));
    std::fprintf(out, "\n%i moves\n", static_cast<int>(end - moves));
}

}  // namespace quarn
