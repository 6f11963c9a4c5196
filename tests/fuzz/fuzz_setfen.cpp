// Fuzz target: the input as FEN text. A position the reader accepts must be consistent, every
// generated move must make and unmake back to the same record, and the FEN we write must be
// read back to the same position, before and after every move.
//
// With QUARN_FUZZ_SKIP_KNOWN set in the environment, inputs that only show a fault already
// reported are skipped, so that a long run can go past them: piece counts overflowing the
// material word, and an en-passant pawn that stands between the king to move and an enemy
// bishop or queen (a position no game reaches, whose en-passant evasion leaves the king in
// check).
#ifdef QUARN_FUZZ_TARGET

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "board/bitboard.h"
#include "board/fen.h"
#include "board/movegen.h"
#include "board/movetext.h"
#include "board/position.h"
#include "fuzz_support.h"

namespace {

using namespace quarn;
using test::sameBoard;

[[noreturn]] void fail(const char* what, const Position& pos, Move m) {
    char text[kMoveTextSize];
    writeMoveLong(pos, text, m);
    std::fprintf(stderr, "fuzz_setfen: %s (move %s, %08x) in %s\n", what, text, m,
                 getFen(pos).chars());
    __builtin_trap();
}

bool sameState(const UndoState& a, const UndoState& b) {
    return a.pawnKey == b.pawnKey && a.enemyAttacks == b.enemyAttacks &&
           a.kingBlockers[0] == b.kingBlockers[0] && a.kingBlockers[1] == b.kingBlockers[1] &&
           a.fiftyStart == b.fiftyStart && a.castling == b.castling && a.epSquare == b.epSquare;
}

// getFen, then setFen of that text into `scratch`: must succeed and give the same board.
void checkFenRoundTrip(const Position& pos, Position& scratch, const char* when, Move m) {
    const SharedString fen = getFen(pos);
    if (!setFen(scratch, fen.chars())) fail("our own FEN is refused", pos, m);
    if (!sameBoard(pos, scratch)) {
        std::fprintf(stderr, "fuzz_setfen: FEN written %s: %s\n", when, fen.chars());
        fail("FEN read back differs", pos, m);
    }
}

// The piece counts in the material word against the bitboards: a count that needs more than
// its four bits spills into the next field.
bool materialCountsExact(const Position& p) {
    for (int c = 0; c < 2; ++c)
        for (int t = PAWN; t <= QUEEN; ++t)
            if (popCount(p.side[c].pieces[t]) != materialCount(p.side[c].material, t)) return false;
    return true;
}

// The double-stepped pawn is all that stands between the king to move and a diagonal attacker.
bool epPawnShieldsDiagonal(const Position& p) {
    const int ep = p.state.epSquare;
    if (!ep) return false;
    const SideBlock& them = p.side[p.sideToMove ^ 1];
    const int king = static_cast<int>(p.side[p.sideToMove].kingSquare);
    return (bishopAttacks(king, p.occupied ^ squareBit[ep]) &
            (them.pieces[BISHOP] | them.pieces[QUEEN])) != 0;
}

Position pos, snapshot, scratch;
bool skipKnown = false;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    initTables();
    initCastleKeys();
    // The reader reports left-over text on stdout.
    if (!std::freopen("/dev/null", "w", stdout)) return 1;
    skipKnown = std::getenv("QUARN_FUZZ_SKIP_KNOWN") != nullptr;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // FEN text is a C string: a NUL byte ends it as it would for the console.
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (!setFen(pos, text.c_str())) return 0;
    if (!positionOk(pos)) fail("setFen built an inconsistent position", pos, 0);
    if (!materialCountsExact(pos)) {
        if (skipKnown) return 0;
        fail("piece counts overflow the material word", pos, 0);
    }
    if (skipKnown && epPawnShieldsDiagonal(pos)) return 0;
    checkFenRoundTrip(pos, scratch, "after setFen", 0);

    Move moves[kMaxMoves];
    Move* end = generateMoves(pos, moves);
    copyPosition(snapshot, pos);
    for (Move* it = moves; it != end; ++it) {
        const Move m = *it;
        if (fromSquare(m) > 63 || toSquare(m) > 63 || fromSquare(m) == toSquare(m))
            fail("move with impossible squares", pos, m);
        const UndoState saved = pos.state;
        makeMove(pos, m);
        if (!positionOk(pos)) fail("inconsistent after makeMove", snapshot, m);
        if (pos.moveHistory[pos.ply] != m) fail("move history not written", snapshot, m);
        // A legal move leaves no king of the mover in check, so the FEN is playable again.
        checkFenRoundTrip(pos, scratch, "after the move", m);
        // The replies are generated from the record makeMove left behind.
        Move replies[kMaxMoves];
        generateMoves(pos, replies);
        unmakeMove(pos, m, saved);
        if (!positionOk(pos)) fail("inconsistent after unmakeMove", snapshot, m);
        if (!sameBoard(pos, snapshot) || !sameState(pos.state, snapshot.state) ||
            pos.ply != snapshot.ply)
            fail("unmakeMove did not restore the position", snapshot, m);
    }
    return 0;
}

#endif  // QUARN_FUZZ_TARGET
