#include <gtest/gtest.h>

#include "eval/see.h"
#include "support.h"

namespace quarn::test {

namespace {

int squareOf(const char* text) { return makeSquare(text[0] - 'a', text[1] - '1'); }

// A move written as from and to square, with 'q' for a queen promotion ("a7a8q").
Move moveOf(const Position& pos, const char* text) {
    const int from = squareOf(text), to = squareOf(text + 2);
    const Move m = makeMoveWord(from, to, pos.board[to]);
    return text[4] == 'q' ? withPromotion(m, QUEEN) : m;
}

}  // namespace

// Worked out by hand, in pawns.
TEST(See, ExchangeValues) {
    const struct {
        const char* fen;
        const char* move;
        int value;
    } kCases[] = {
        // Taking more than the mover is worth returns the difference at once.
        {"4k3/8/8/3n4/4P3/8/8/4K3 w - -", "e4d5", 2},
        // c6xd5 answers: -4 + 1 < -1 cuts at -3, already a bound of the right sign.
        {"4k3/8/2p5/3p4/8/8/8/3RK3 w - -", "d1d5", -3},
        {"4k3/8/8/3b4/8/4N3/8/4K3 w - -", "e3d5", 3},
        // Bxd5 uncovers check from e1: only the king may answer, and it is too far (not c6xd5).
        {"4k3/8/2p5/3n4/4B3/8/8/K3R3 w - -", "e4d5", 3},
        // Qxd5 uncovers check from e1 (a queen in the way checks by itself, hence Black to
        // move): only the king may answer, not into the c4 pawn's guard, and c6xd5 is not allowed.
        {"8/8/2p1k3/3n4/2P1Q3/8/8/K3R3 b - -", "e4d5", 3},
        // Qxd3 leaves the e5 knight alone between Re1 and the king: it may not take back.
        {"4k3/8/8/4n3/8/3rQ3/8/4R2K w - -", "e3d3", 5},
        // The knight on c6 is pinned by Bb5 and cannot take back.
        {"4k3/8/2n5/1B6/3p4/8/8/3RK3 w - -", "d1d4", 1},
        // Rxd5 Rxd5 Rxd5: the second rook x-rays through the first.
        {"3rk3/8/8/3p4/8/8/3R4/3RK3 w - -", "d2d5", 1},
        // Promotion on an empty square no one defends: 8 more for the pawn that becomes a queen.
        {"4k3/P7/8/8/8/8/8/4K3 w - -", "a7a8q", 8},
    };
    for (const auto& c : kCases) {
        const Position pos = positionFrom(c.fen);
        EXPECT_EQ(see(pos, moveOf(pos, c.move)), c.value) << c.fen << " " << c.move;
    }
}

// The value for the owner of the piece of the opponent taking it: at most -1 when it can be won,
// 0 for an even trade or no attacker, 1 or more when taking it loses.
TEST(See, SquareExchange) {
    const struct {
        const char* fen;
        const char* square;
        int low, high;
    } kCases[] = {
        {"4k3/8/8/3n4/4P3/8/8/4K3 w - -", "d5", -99, -1},  // hangs to the pawn
        {"4k3/8/2p5/3n4/8/4N3/8/4K3 w - -", "d5", 0, 0},   // Nxd5 cxd5
        {"4k3/8/2p5/3n4/8/4N3/8/4K3 w - -", "c6", 0, 0},   // nothing attacks it
        {"4k3/8/2p5/3n4/8/8/8/3RK3 w - -", "d5", 1, 99},   // Rxd5 cxd5 loses the exchange
        {"6k1/4r3/8/3n4/8/4N3/8/4K3 w - -", "d5", 0, 0},   // the attacker is pinned
    };
    for (const auto& c : kCases) {
        const int value = squareExchange(positionFrom(c.fen), squareOf(c.square));
        EXPECT_GE(value, c.low) << c.fen << " " << c.square;
        EXPECT_LE(value, c.high) << c.fen << " " << c.square;
    }
}

}  // namespace quarn::test
