// Fuzz target: move text. The first byte picks a position; the text runs from the second byte
// to the first NUL byte (or the end). Bytes after that NUL pick moves played first, one byte
// per move, so the checks also run in positions further down a game.
//
// A move the parser returns must be one of the generated moves and must make and unmake
// cleanly; text that gives no move must leave the position alone. (That every legal move
// written in SAN and in the long form parses back to itself is a unit test.)
#ifdef QUARN_FUZZ_TARGET

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "board/movegen.h"
#include "fuzz_support.h"

namespace {

using namespace quarn;
using namespace quarn::test;

// The start, the perft set, and positions with promotions (captures included), castling both
// ways for both sides, en passant (one capture removing a checker), and pieces of one kind
// that need a file, a rank or both to tell them apart.
constexpr const char* kPositions[] = {
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1",
    "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1",
    "r3k2r/Pppp1ppp/1b3nbN/nP6/BBP1P3/q4N2/Pp1P2PP/R2Q1RK1 w kq - 0 1",
    "rnbq1k1r/pp1Pbppp/2p5/8/2B5/8/PPP1NnPP/RNBQK2R w KQ - 1 8",
    "r4rk1/1pp1qppp/p1np1n2/2b1p1B1/2B1P1b1/P1NP1N2/1PP1QPPP/R4RK1 w - - 0 10",
    "rnbqkbnr/ppp1p1pp/8/3pPp2/8/8/PPPP1PPP/RNBQKBNR w KQkq f6 0 3",
    "r3k2r/8/8/8/8/8/1p4p1/R3K2R b KQkq - 0 1",
    "8/8/8/2k5/3Pp3/8/8/4K3 b - d3 0 1",
    "1k6/8/1N3N2/8/Q3Q3/8/1N6/Q3K3 w - - 0 1",
    "4k3/1P4P1/8/8/8/8/6p1/4K2R w K - 0 1",
};
constexpr size_t kPositionCount = sizeof kPositions / sizeof kPositions[0];
constexpr size_t kMaxWalk = 32;

Position start[kPositionCount];
Position pos, before;

void check(bool ok, const char* what, Move m, const char* text) {
    if (!ok) fail(what, "'" + std::string(text) + "', " + where(before, m));
}

// The board and the move counters.
bool samePosition(const Position& a, const Position& b) {
    return sameBoard(a, b) && a.ply == b.ply && a.state.fiftyStart == b.state.fiftyStart;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    if (initTarget()) return 1;
    for (size_t i = 0; i < kPositionCount; ++i)
        if (!setFen(start[i], kPositions[i])) return 1;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    copyPosition(pos, start[data[0] % kPositionCount]);
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);

    // The walk: each byte picks one of the legal moves, modulo their number.
    const size_t nul = text.find('\0');
    Move moves[kMaxMoves];
    Move* end = generateMoves(pos, moves);
    for (size_t i = nul + 1; nul != std::string::npos && i < text.size() && i <= nul + kMaxWalk &&
                             end != moves; ++i) {
        makeMove(pos, moves[static_cast<uint8_t>(text[i]) % static_cast<size_t>(end - moves)]);
        end = generateMoves(pos, moves);
    }

    copyPosition(before, pos);
    const Move m = parseMove(pos, text.c_str());
    check(samePosition(pos, before), "parseMove changed the position", m, text.c_str());
    if (m) {
        check(std::find(moves, end, m) != end, "parsed move is not legal", m, text.c_str());
        const UndoState saved = pos.state;
        makeMove(pos, m);
        check(positionOk(pos), "inconsistent after makeMove", m, text.c_str());
        unmakeMove(pos, m, saved);
        check(samePosition(pos, before), "unmakeMove did not restore", m, text.c_str());
    }
    return 0;
}

#endif  // QUARN_FUZZ_TARGET
