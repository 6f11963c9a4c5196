// The lone-king mate tables: their verdicts against the moves on the board and the known
// longest mates.
#include "eval/loneking.h"

#include <random>

#include "support.h"

namespace quarn::test {

namespace {

// A strong man besides the king: its square and its letter as White's.
struct Man {
    int square;
    char letter;
};

// A FEN with the strong side's king and men and the other king on the given squares.
std::string lonePlacement(int king, const std::vector<Man>& men, int lone, bool strongWhite, bool strongToMove) {
    char board[64];
    std::fill(board, board + 64, ' ');
    board[king] = strongWhite ? 'K' : 'k';
    for (const Man& m : men) board[m.square] = strongWhite ? m.letter : static_cast<char>(m.letter + 32);
    board[lone] = strongWhite ? 'k' : 'K';
    std::string fen;
    for (int rank = 7; rank >= 0; --rank) {
        int empty = 0;
        for (int file = 0; file < 8; ++file) {
            const char c = board[rank * 8 + file];
            if (c == ' ') {
                ++empty;
                continue;
            }
            if (empty) fen += static_cast<char>('0' + empty);
            empty = 0;
            fen += c;
        }
        if (empty) fen += static_cast<char>('0' + empty);
        if (rank) fen += '/';
    }
    return fen + ((strongWhite == strongToMove) ? " w - - 0 1" : " b - - 0 1");
}

struct Verdict {
    int outcome, plies;
};

Verdict verdictOf(const Position& pos) {
    int plies = -1;
    const int outcome = loneKingOutcome(pos, plies);
    return {outcome, plies};
}

}  // namespace

TEST(LoneKing, LongestMatesAreTheKnownOnes) {
    EXPECT_EQ(loneKingLongestMate(ROOK), 16);
    EXPECT_EQ(loneKingLongestMate(QUEEN), 10);
    EXPECT_EQ(loneKingLongestMate(BISHOP), 33);
}

// Every verdict follows from the verdicts one legal move later: the mating side has a move to
// a mate one ply shorter and none to a shorter one; every move of the lone king reaches a mate
// and the longest is one ply shorter; a draw is a man the lone king can take, a stalemate, or
// a bishop and knight the king forks with the strong side to move.
// Random placements of both colours, so every symmetry of the tables is crossed.
TEST(LoneKing, EveryVerdictAgreesWithTheMovesOnTheBoard) {
    std::mt19937 random(20261127);
    int checked = 0, draws = 0, mates = 0;
    while (checked < 9000) {
        const auto square = [&random] { return static_cast<int>(random() % 64); };
        const int king = square(), lone = square();
        const bool strongWhite = random() & 1, strongToMove = random() & 1;
        std::vector<Man> men;
        switch (random() % 3) {
        case 0: men = {{square(), 'R'}}; break;
        case 1: men = {{square(), 'Q'}}; break;
        default: men = {{square(), 'B'}, {square(), 'N'}};
        }
        Bitboard occupied = squareBit[king] | squareBit[lone];
        for (const Man& m : men) occupied |= squareBit[m.square];
        if (popCount(occupied) != static_cast<int>(men.size()) + 2 || squareDistance(king, lone) < 2) continue;
        if (strongToMove && inCheck(positionFrom(lonePlacement(king, men, lone, strongWhite, false))))
            continue;  // the side not to move in check
        Position pos = positionFrom(lonePlacement(king, men, lone, strongWhite, strongToMove));
        ASSERT_TRUE(loneKingEnding(pos));
        ++checked;
        const Verdict v = verdictOf(pos);
        const std::vector<Move> moves = legalMoves(pos);
        int shortest = 1000, longest = -1;
        bool escapes = false;
        for (const Move m : moves) {
            Position child;
            copyPosition(child, pos);
            makeMove(child, m);
            if (!loneKingEnding(child)) {  // the piece taken
                escapes = true;
                continue;
            }
            const Verdict c = verdictOf(child);
            if (c.outcome == 0) escapes = true;
            if (c.outcome != 0) {
                shortest = std::min(shortest, c.plies);
                longest = std::max(longest, c.plies);
            }
        }
        const std::string fen = fenOf(pos);
        if (strongToMove && v.outcome == 0) {  // the lone king forks the bishop and knight
            ASSERT_TRUE(men.size() == 2 && shortest == 1000) << fen;
            ++draws;
        } else if (strongToMove) {
            ASSERT_EQ(v.outcome, 1) << fen;
            ASSERT_EQ(v.plies, shortest + 1) << fen;
            ++mates;
        } else if (v.outcome == 0) {
            ASSERT_TRUE(escapes || (moves.empty() && !inCheck(pos))) << fen;
            ++draws;
        } else {
            ASSERT_EQ(v.outcome, -1) << fen;
            ASSERT_FALSE(escapes) << fen;
            if (moves.empty()) ASSERT_TRUE(inCheck(pos) && v.plies == 0) << fen;
            else ASSERT_EQ(v.plies, longest + 1) << fen;
            ++mates;
        }
    }
    EXPECT_GT(draws, 80);
    EXPECT_GT(mates, 6000);
}

}  // namespace quarn::test
