#include <gtest/gtest.h>

#include <random>

#include "board/movegen.h"
#include "eval/threats.h"
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

Move mirroredMove(Move m) {
    const int captured = capturedCode(m);
    return m ? makeMoveWord(fromSquare(m) ^ 56, toSquare(m) ^ 56, captured ? captured ^ 24 : 0) : 0;
}

// Walks every piece's steps and rays on the board, the other side's king lifted off.
Bitboard slowAttacks(const Position& pos, int colour) {
    static constexpr int kSteps[8][2] = {{1, 0}, {-1, 0}, {0, 1},  {0, -1},
                                         {1, 1}, {1, -1}, {-1, 1}, {-1, -1}};
    static constexpr int kJumps[8][2] = {{1, 2},   {2, 1},   {2, -1}, {1, -2},
                                         {-1, -2}, {-2, -1}, {-2, 1}, {-1, 2}};
    const Bitboard occ = pos.occupied & ~pos.side[colour ^ 1].pieces[KING];
    Bitboard all = 0;
    for (int s = 0; s < 64; ++s) {
        const int type = typeOf(pos.board[s]);
        if (!type || colourOf(pos.board[s]) != colour) continue;
        for (int d = 0; d < 8; ++d) {
            const bool diagonal = d >= 4, slides = type >= BISHOP && type <= QUEEN;
            const int* step = type == KNIGHT ? kJumps[d] : kSteps[d];
            if ((type == BISHOP && !diagonal) || (type == ROOK && diagonal)) continue;
            if (type == PAWN && (!diagonal || step[1] != (colour == WHITE ? 1 : -1))) continue;
            for (int f = fileOf(s) + step[0], r = rankOf(s) + step[1];
                 f >= 0 && f < 8 && r >= 0 && r < 8; f += step[0], r += step[1]) {
                all |= Bitboard{1} << makeSquare(f, r);
                if (!slides || (occ & (Bitboard{1} << makeSquare(f, r)))) break;
            }
        }
    }
    return all;
}

struct ThreatCase {
    const char* fen;
    int score;  // threat against White
};

const ThreatCase kThreats[] = {
    {"7k/8/8/4p3/3K1R2/8/8/8 w - -", 350},   // e5 forks king and rook: 5 * 100 - 150
    {"5k2/8/8/4p3/3K1N2/8/8/5R2 w - -", 0},  // Nf4 leaves with a discovered check
    {"k7/8/8/3p4/2N1N3/8/8/K7 w - -", 150},  // d5 forks two knights: 3 * 100 - 150
    {"4r3/5k2/8/8/8/8/4Q3/4K3 w - -", 450},  // Rxe2 Kxe2 (or Qxe8 Kxe8): 10 - 5 = 5 pawns
    {"4q3/5k2/8/8/8/8/4Q3/4K3 w - -", 0},    // the pinned queen only trades queens
    {"k7/8/8/8/8/8/1p6/5K1N w - -", 700},    // b1=Q is free: the exchange gains 8, less a pawn
    {"k7/8/8/8/8/8/1p6/3R1K2 w - -", 0},     // Rd1 takes the new queen
    {"k7/8/8/8/8/8/1p6/5K2 w - -", 0},       // no piece: the racing term judges pawn endings
};

struct MateCase {
    const char* fen;
    Move move;  // White's mate against Black
};

const MateCase kMates[] = {
    {"6k1/5p1p/5P1Q/8/8/8/8/6K1 w - -", makeMoveWord(47, 54, 0)},  // Qg7, guarded by f6
    {"6k1/5p1p/5P1Q/8/8/8/8/6K1 b - -", makeMoveWord(47, 54, 0)},
    {"4n1k1/5p1p/5P1Q/8/8/8/8/6K1 w - -", 0},                   // Ne8 guards g7
    {"6k1/5ppp/8/8/8/8/8/R5K1 w - -", makeMoveWord(0, 56, 0)},  // Ra8 on the back rank
    {"6k1/5ppp/8/8/8/8/8/R5K1 b - -", makeMoveWord(0, 56, 0)},
    {"Q1R2bk1/5ppp/8/8/8/8/8/6K1 w - -", makeMoveWord(58, 61, 19)},  // Rxf8, Qa8 behind it
    {"2R2bk1/5ppp/8/8/8/8/8/6K1 w - -", 0},                          // Rxf8 Kxf8
    {"6k1/5pp1/8/8/8/3B4/8/R5K1 w - -", makeMoveWord(0, 56, 0)},     // Bd3 takes h7 away
    {"6k1/5pp1/8/8/8/8/8/R5K1 w - -", 0},                            // Ra8+ Kh7
    {"6k1/5ppp/4N3/8/8/Q7/8/6K1 w - -", makeMoveWord(16, 61, 0)},    // Qf8, h8 seen through g8
};

}  // namespace

// Every case also mirrored, where Black is threatened by the mirrored threat.
TEST(Threats, ThreatScoresAndMirrors) {
    for (const ThreatCase& c : kThreats) {
        const Position pos = positionFrom(c.fen);
        EXPECT_EQ(threatScore(pos, WHITE), c.score) << c.fen;
        EXPECT_EQ(threatScore(mirrored(pos), BLACK), c.score) << "mirror of " << c.fen;
    }
}

TEST(Threats, MateThreatsAndMirrors) {
    for (const MateCase& c : kMates) {
        const Position pos = positionFrom(c.fen);
        EXPECT_EQ(mateThreatMove(pos, BLACK), c.move) << c.fen;
        EXPECT_EQ(mateThreatMove(mirrored(pos), WHITE), mirroredMove(c.move))
            << "mirror of " << c.fen;
    }
}

// Positions a few random moves away from the openings: the attack sets match a ray walk, and
// both threat tests treat the mirrored position alike.
TEST(Threats, AttackSetsAndMirrorsOnPlayedPositions) {
    std::mt19937 rng(7);
    int checked = 0;
    for (const std::string& fen : loadFens("openings.epd")) {
        Position pos = positionFrom(fen);
        Move list[kMaxMoves];
        for (int ply = static_cast<int>(rng() % 24); ply > 0; --ply) {
            const int n = static_cast<int>(generateMoves(pos, list) - list);
            if (!n) break;
            makeMove(pos, list[rng() % n]);
        }
        computeAttackInfo(pos);
        const Position flip = mirrored(pos);
        for (const int c : {WHITE, BLACK}) {
            ASSERT_EQ(attackedBy(pos, c), slowAttacks(pos, c)) << fen << " colour " << c;
            EXPECT_EQ(threatScore(pos, c), threatScore(flip, c ^ 1)) << fen;
            EXPECT_EQ(mateThreatMove(pos, c) == 0, mateThreatMove(flip, c ^ 1) == 0) << fen;
        }
        ++checked;
    }
    EXPECT_EQ(checked, 1000);
}

}  // namespace quarn::test
