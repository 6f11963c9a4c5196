#include <gtest/gtest.h>

#include <memory>

#include "board/movegen.h"
#include "eval/racing.h"
#include "support.h"

namespace quarn::test {

namespace {

// The board seen from the other side: mirrored rank for rank, colours and side to move swapped.
Position mirrored(const Position& pos) {
    Position m;
    clearPosition(m);
    for (int s = 0; s < 64; ++s)
        if (pos.board[s]) addPiece(m, colourOf(pos.board[s]) ^ 1, typeOf(pos.board[s]), s ^ 56);
    m.sideToMove = pos.sideToMove ^ 1;
    computeAttackInfo(m);
    return m;
}

// The racing term with the passers found the plain way: no enemy pawn ahead on the pawn's own
// or a neighbouring file.
int racing(const Position& pos) {
    auto ctx = std::make_unique<EvalContext>();
    initEvalContext(*ctx, &pos);
    for (const int c : {WHITE, BLACK}) {
        for (Bitboard b = pos.side[c].pieces[PAWN]; b;) {
            const int s = popLsb(b);
            if (!(passedSpan[c][s] & pos.side[c ^ 1].pieces[PAWN])) ctx->passers[c] |= squareBit[s];
        }
    }
    const int score = racingPasserScore(*ctx);
    freeEvalContext(*ctx);
    return score;
}

struct RaceCase {
    const char* fen;
    int score;  // 500 - 10 * (White's moves to queen) when White wins the race
};

// Counted by hand. Lone runner: pawn moves to queen, +1 for our king in front, -1 when the new
// queen checks. Escorted pawn: k king moves to the zone (one and two ranks ahead on the pawn's
// and the next files, less the square in front) + pawn moves + 2; + 6 when the king gets only
// onto the square in front.
const RaceCase kRaces[] = {
    {"8/P7/8/8/8/8/7k/2K5 w - -", 490},  // h2 is outside the square: one move
    {"8/P7/8/8/8/8/8/2K4k w - -", 500},  // a8=Q checks h1 along the long diagonal: 1 - 1
    {"8/Pk6/8/8/8/8/8/2K5 w - -", 0},    // Kxa8; a rook pawn is never escorted in the race
    {"K7/P7/8/8/8/8/7k/8 w - -", 480},   // Kb7 first, then a8=Q: 1 + 1
    {"K7/P1k5/8/8/8/8/8/8 w - -", 0},    // c7 covers b7 and b8: the king on a8 is shut in
    // Kd8 keeps Black off c7, so it reaches b7 only after b8=Q, which checks d6: 2 - 1.
    {"3K4/8/1P1k4/8/8/8/8/8 w - -", 490},
    {"8/8/1P1k4/8/8/8/8/7K w - -", 0},   // Kc7 catches it, and the king is on b7 before ours
    {"8/8/P3K3/8/8/3k3p/8/8 w - -", 0},  // a6 and h3 both queen in two moves
    {"8/8/P3K3/8/8/3k3p/8/8 b - -", 0},
    {"8/8/P3K3/8/7p/3k4/8/8 w - -", 480},  // a6 two moves, h4 three: White is first
    {"8/8/P3K3/8/7p/3k4/8/8 b - -", 0},    // ...h3 a7 h2 a8=Q h1=Q
    {"k7/8/8/4K3/8/4P3/8/8 w - -", 410},   // Ke5 two squares ahead of e3: 5 pawn moves + 4
    {"k7/8/8/4K3/8/4P3/8/8 b - -", 410},   // a key square wins whoever moves
    {"8/8/k7/8/7K/3P4/8/8 w - -", 400},    // Kg5-f5-e5 before ...Kb5-c5-d4: 3 + 5 + 2
    {"8/8/k7/8/7K/3P4/8/8 b - -", 0},      // now Black reaches d4 first and blockades
    {"8/8/8/3k4/8/8/3P4/7K w - -", 0},     // Kd4-d3 in two moves, White needs three to e3
    // c6 and g6 cover d5 and f5, so Kd4-e5 gets only in front of e4: 2 + 4 + 6.
    {"8/4k3/2p3p1/2P3P1/4P3/4K3/8/8 w - -", 380},
};

}  // namespace

// Each race also on the mirrored board, where the term must change sign.
TEST(Racing, HandCountedRacesAndMirrors) {
    for (const RaceCase& c : kRaces) {
        const Position pos = positionFrom(c.fen);
        EXPECT_EQ(racing(pos), c.score) << c.fen;
        EXPECT_EQ(racing(mirrored(pos)), -c.score) << "mirror of " << c.fen;
    }
}

}  // namespace quarn::test
