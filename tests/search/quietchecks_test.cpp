#include "search/quietchecks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "board/fen.h"
#include "board/movegen.h"
#include "board/movetext.h"
#include "eval/see.h"
#include "support.h"

namespace quarn::test {

namespace {

std::vector<Move> quietChecks(const Position& pos, int margin) {
    Move moves[kMaxMoves];
    return {moves, generateQuietChecks(pos, moves, margin)};
}

std::string text(const Position& pos, Move m) {
    char buf[kMoveTextSize];
    writeMoveLong(pos, buf, m);
    return buf;
}

bool contains(const std::vector<Move>& list, Move m) {
    return std::find(list.begin(), list.end(), m) != list.end();
}

// Points of a victim to the capture generator: a pawn about to promote counts as a queen.
int worth(const Position& pos, int sq) {
    static constexpr int kPoints[8] = {0, 1, 3, 3, 5, 10, 0, 0};
    const int code = pos.board[sq];
    const bool promoting = typeOf(code) == PAWN && rankOf(sq) == (colourOf(code) ? 1 : 6);
    return promoting ? 10 : kPoints[typeOf(code)];
}

// Checks one position against a filter of the legal moves: what must come out (uncovered checks
// by non-queens, direct checks onto targets the capture generator leaves, the exchange allowing),
// what may (besides: a bishop or rook lining up through enemy queens), and which moves both
// generators may share (pushes onto the seventh, pinned pawns' captures, uncovered captures).
void checkAgainstLegalMoves(Position& pos, int margin, int& found) {
    Move buf[kMaxMoves];
    const std::vector<Move> legal(buf, generateMoves(pos, buf));
    if (inCheck(pos)) return;
    SCOPED_TRACE(std::string(getFen(pos).chars()) + " margin " + std::to_string(margin));
    const std::vector<Move> captures(buf, generateCaptures(pos, buf, margin));
    const std::vector<Move> got = quietChecks(pos, margin);
    found += static_cast<int>(got.size());
    const int us = static_cast<int>(pos.sideToMove), them = us ^ 1;
    const int king = static_cast<int>(pos.side[them].kingSquare);
    const Bitboard pinned = pos.state.kingBlockers[us];
    const Bitboard uncovering = pos.state.kingBlockers[them] & pos.side[us].pieces[0] & ~pinned &
                                ~pos.side[us].pieces[QUEEN];
    for (const Move m : legal) {
        const int from = fromSquare(m), to = toSquare(m), type = typeOf(pos.board[from]);
        const bool uncovers = (uncovering & squareBit[from]) && !(line[from][king] & squareBit[to]);
        const bool cheap = !pos.board[to] || worth(pos, to) < margin;
        const Bitboard after = (pos.occupied & ~squareBit[from]) | squareBit[to];
        const Bitboard through = after & ~pos.side[them].pieces[QUEEN];
        const Bitboard reach = type == PAWN     ? pawnAttacks[us][to]
                               : type == KNIGHT ? knightAttacks[to]
                               : type == BISHOP ? bishopAttacks(to, after)
                               : type == ROOK   ? rookAttacks(to, after)
                               : type == QUEEN  ? queenAttacks(to, after)
                                                : 0;
        const bool xray = (type == BISHOP && (bishopAttacks(to, through) & squareBit[king])) ||
                          (type == ROOK && (rookAttacks(to, through) & squareBit[king]));
        const bool noExchange = type == PAWN && (capturedCode(m) || isDoubleStep(m));
        const bool direct = (reach & squareBit[king]) && cheap && !(m & kSpecialMask) &&
                            (noExchange ? !(isDoubleStep(m) && (pinned & squareBit[from]))
                                        : see(pos, m) >= 0);
        const bool must = !(m & kSpecialMask) && (uncovers || direct);
        const bool may = must || (xray && cheap && see(pos, m) >= 0);
        const auto copies = std::count(got.begin(), got.end(), m);
        EXPECT_TRUE(must ? copies > 0 : may || copies == 0) << text(pos, m);
        // Twice only when the move both uncovers a check and gives one.
        EXPECT_LE(copies, uncovers && may ? 2 : 1);
        if (copies && contains(captures, m)) {
            EXPECT_TRUE((type == PAWN && !pos.board[to] && rankOf(to) == (us ? 1 : 6)) ||
                        (type == PAWN && (pinned & squareBit[from])) || (uncovers && !cheap))
                << text(pos, m);
        }
    }
    for (const Move m : got) EXPECT_TRUE(contains(legal, m)) << text(pos, m);
}

}  // namespace

// Discovered checks first, then queens by closeness to the king, rooks and pawn captures (0),
// knights (-1), bishops (-2), pawn pushes (-3); equal scores keep the order of generation.
TEST(QuietChecks, HandMadePositionsInOrder) {
    const struct { const char* fen; int margin; const char* expected; } cases[] = {
        // Uncovered checks by a pawn and by a knight; Nd6 and Nf6 also check directly.
        {"8/7k/8/8/2n5/3P4/8/KB6 w - - 0 1", 0, "d3xc4 d3d4"},
        {"8/7k/8/8/8/8/2P5/KB6 w - - 0 1", 0, "c2c3 c2c4"},
        {"4k3/8/8/2p5/4N3/8/8/K3R3 w - - 0 1", 0,
         "Ne4xc5 Ne4f2 Ne4c3 Ne4g3 Ne4d2 Ne4g5 Ne4d6 Ne4f6 Ne4d6 Ne4f6"},
        // Pawn checks: the push if the exchange allows it; taking a pawn only from margin 2.
        {"8/8/4k3/3p4/4PP2/8/8/K7 w - - 0 1", 0, "f4f5"},
        {"8/8/4k3/3p4/4PP2/8/8/K7 w - - 0 1", 2, "e4xd5 f4f5"},
        {"8/8/4k3/8/5P2/8/8/K7 w - - 0 1", 0, ""},
        // Double steps next to a king on the fifth; the pawn pinned by Bh4 stays.
        {"8/8/8/4k3/8/8/3P1P2/4K3 w - - 0 1", 0, "d2d4 f2f4"},
        {"8/8/8/4k3/7b/8/3P1P2/4K3 w - - 0 1", 0, "d2d4"},
        // Knights: Nd6 loses the knight; Nxf6 takes a pawn the margin leaves to us; a pawn about
        // to promote counts as a queen.
        {"4k3/2p5/8/8/4N3/8/8/K7 w - - 0 1", 0, "Ne4f6"},
        {"4k3/2p5/5p2/8/4N3/8/8/K7 w - - 0 1", 2, "Ne4xf6"},
        {"K7/8/8/8/8/7k/5p2/3N4 w - - 0 1", 2, ""},
        {"K7/8/8/8/8/7k/5p2/3N4 w - - 0 1", 11, "Nd1xf2"},
        // A bishop may check through the enemy queen, a queen may not (and Qh6 is lost).
        {"7k/8/5q2/8/8/8/2P4P/1KB5 w - - 0 1", 0, "Bc1b2"},
        {"7k/8/5q2/8/8/8/2P4P/1KQ5 w - - 0 1", 0, ""},
        {"7k/8/8/8/8/K7/4Q3/8 w - - 0 1", 0, "Qe2h5 Qe2e8 Qe2e5 Qe2h2 Qe2b2"},
        {"7k/7p/3N2P1/8/8/8/8/R1B1K1R1 w - - 0 1", 0, "Ra1a8 Nd6f7 Bc1b2 g6g7"},
        // Pinned pieces: the bishop checks along its pin line, not off it; the knight never.
        {"4r2k/4N3/8/8/1b6/8/1P1B4/4K3 w - - 0 1", 0, "Bd2c3"},
        {"7k/8/8/6b1/8/8/1P1B4/2K5 w - - 0 1", 0, ""},
    };
    for (const auto& c : cases) {
        Position pos = positionFrom(c.fen);
        std::string got;
        for (const Move m : quietChecks(pos, c.margin))
            (got += got.empty() ? "" : " ") += text(pos, m);
        EXPECT_EQ(got, c.expected) << c.fen << " margin " << c.margin;
    }
}

TEST(QuietChecks, MatchFilteredLegalMovesOnPlayedPositions) {
    std::vector<std::string> fens = loadFens("openings.epd");
    for (const EpdEntry& e : loadEpd("perft.epd")) fens.insert(fens.begin(), e.fen);
    std::mt19937 rng(515);
    int positions = 0, found = 0;
    for (size_t i = 0; i < fens.size(); ++i) {
        Position pos = positionFrom(fens[i]);
        const int plies = i < 6 || i % 8 == 0 ? 80 : 0;  // random games from some of them
        for (int ply = 0;; ++ply) {
            for (const int margin : {0, 2, 4, 6, 11}) checkAgainstLegalMoves(pos, margin, found);
            ++positions;
            Move moves[kMaxMoves];
            const Move* end = generateMoves(pos, moves);
            if (ply == plies || end == moves) break;
            makeMove(pos, moves[rng() % (end - moves)]);
        }
    }
    EXPECT_GT(positions, 10000);
    EXPECT_GT(found, 10000);
}

}  // namespace quarn::test
