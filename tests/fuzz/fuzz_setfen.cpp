// Fuzz target: the input as FEN text. A position the reader accepts must be consistent, its
// piece counts must fit the material word, every generated move must make and unmake back to
// the same record, and the FEN we write must read back to the same board, before and after
// every move.
#ifdef QUARN_FUZZ_TARGET

#include <cstddef>
#include <cstdint>
#include <string>

#include "board/movegen.h"
#include "fuzz_support.h"

namespace {

using namespace quarn;
using namespace quarn::test;

Position pos, snapshot, scratch;

void check(bool ok, const char* what, const Position& p, Move m) {
    if (!ok) fail(what, where(p, m));
}

bool sameState(const UndoState& a, const UndoState& b) {
    return a.pawnKey == b.pawnKey && a.enemyAttacks == b.enemyAttacks &&
           a.kingBlockers[0] == b.kingBlockers[0] && a.kingBlockers[1] == b.kingBlockers[1] &&
           a.fiftyStart == b.fiftyStart && a.castling == b.castling && a.epSquare == b.epSquare;
}

// A count that needs more than its four bits would spill into the next field.
bool materialCountsExact(const Position& p) {
    for (int c = 0; c < 2; ++c)
        for (int t = PAWN; t <= QUEEN; ++t)
            if (popCount(p.side[c].pieces[t]) != materialCount(p.side[c].material, t)) return false;
    return true;
}

// getFen, then setFen of that text: must succeed and give the same board.
void checkFenRoundTrip(const Position& p, Move m) {
    check(setFen(scratch, getFen(p).chars()) && sameBoard(p, scratch), "FEN does not read back",
          p, m);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) { return initTarget(); }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // FEN text is a C string: a NUL byte ends it as it would for the console.
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (!setFen(pos, text.c_str())) return 0;
    check(positionOk(pos) && materialCountsExact(pos), "setFen built a bad position", pos, 0);
    checkFenRoundTrip(pos, 0);

    Move moves[kMaxMoves];
    Move* end = generateMoves(pos, moves);
    copyPosition(snapshot, pos);
    for (Move* it = moves; it != end; ++it) {
        const Move m = *it;
        check(fromSquare(m) != toSquare(m), "move to its own square", pos, m);
        const UndoState saved = pos.state;
        makeMove(pos, m);
        check(positionOk(pos) && pos.moveHistory[pos.ply] == m, "bad after makeMove", snapshot, m);
        // A legal move leaves no king of the mover in check, so the FEN is playable again.
        checkFenRoundTrip(pos, m);
        // The replies are generated from the record makeMove left behind.
        Move replies[kMaxMoves];
        generateMoves(pos, replies);
        unmakeMove(pos, m, saved);
        check(positionOk(pos) && sameBoard(pos, snapshot) && sameState(pos.state, snapshot.state) &&
                  pos.ply == snapshot.ply,
              "unmakeMove did not restore the position", snapshot, m);
    }
    return 0;
}

#endif  // QUARN_FUZZ_TARGET
