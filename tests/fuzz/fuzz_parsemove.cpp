// Fuzz target: move text. The first byte picks a position; the text runs from the second byte
// to the first NUL byte (or the end). Bytes after that NUL pick moves played first, one byte
// per move, so the checks also run in positions further down a game.
//
// A move the parser returns must be one of the generated moves and must make and unmake
// cleanly; text that gives no move must leave the position alone. Every legal move written in
// SAN and in the long form must parse back to itself.
#ifdef QUARN_FUZZ_TARGET

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "board/bitboard.h"
#include "board/fen.h"
#include "board/movegen.h"
#include "board/movetext.h"
#include "board/position.h"
#include "fuzz_support.h"

namespace {

using namespace quarn;

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

[[noreturn]] void fail(const char* what, const Position& p, Move m, const char* text) {
    char move[kMoveTextSize];
    writeMoveLong(p, move, m);
    std::fprintf(stderr, "fuzz_parsemove: %s (text '%s', move %s, %08x) in %s\n", what, text,
                 move, m, getFen(p).chars());
    __builtin_trap();
}

// The board and the move counters.
bool samePosition(const Position& a, const Position& b) {
    return test::sameBoard(a, b) && a.ply == b.ply && a.state.fiftyStart == b.state.fiftyStart;
}

bool inList(const Move* begin, const Move* end, Move m) {
    for (const Move* it = begin; it != end; ++it)
        if (*it == m) return true;
    return false;
}

// Black's long castling is written "O-O" in SAN on purpose; it cannot come back as itself.
bool sanNamesItself(const Position& p, Move m) {
    return !(isCastling(m) && p.sideToMove == BLACK && fileOf(toSquare(m)) < 4);
}

void checkRoundTrips(Position& p, const Move* begin, const Move* end) {
    SanWriter writer{p, {}};
    for (const Move* it = begin; it != end; ++it) {
        char text[kMoveTextSize];
        writeMoveLong(p, text, *it);
        if (parseMove(p, text) != *it) fail("long form does not parse back", p, *it, text);
        if (!sanNamesItself(p, *it)) continue;
        const char* san = writeMoveSan(writer, *it);
        if (parseMove(p, san) != *it) fail("SAN does not parse back", p, *it, san);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    initTables();
    initCastleKeys();
    for (size_t i = 0; i < kPositionCount; ++i) {
        if (!setFen(start[i], kPositions[i])) {
            std::fprintf(stderr, "fuzz_parsemove: position %zu refused\n", i);
            return 1;
        }
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    copyPosition(pos, start[data[0] % kPositionCount]);
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    const char* move = text.c_str();

    // The walk: each byte picks one of the legal moves, modulo their number.
    const size_t nul = text.find('\0');
    Move moves[kMaxMoves];
    Move* end = generateMoves(pos, moves);
    if (nul != std::string::npos) {
        for (size_t i = nul + 1; i < text.size() && i <= nul + kMaxWalk && end != moves; ++i) {
            const auto count = static_cast<size_t>(end - moves);
            makeMove(pos, moves[static_cast<uint8_t>(text[i]) % count]);
            end = generateMoves(pos, moves);
        }
    }

    copyPosition(before, pos);
    const Move m = parseMove(pos, move);
    if (!samePosition(pos, before)) fail("parseMove changed the position", before, m, move);
    if (m) {
        if (!inList(moves, end, m)) fail("parsed move is not legal", before, m, move);
        const UndoState saved = pos.state;
        makeMove(pos, m);
        if (!positionOk(pos)) fail("inconsistent after makeMove", before, m, move);
        unmakeMove(pos, m, saved);
        if (!samePosition(pos, before)) fail("unmakeMove did not restore", before, m, move);
    }
    checkRoundTrips(pos, moves, end);
    return 0;
}

#endif  // QUARN_FUZZ_TARGET
