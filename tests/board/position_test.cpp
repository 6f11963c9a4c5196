#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "board/movegen.h"
#include "board/position.h"
#include "support.h"

namespace quarn::test {

namespace {

// The fixed fields (skipping the padding after the state) and both histories up to ply.
bool sameRecord(const Position& a, const Position& b) {
    constexpr size_t stateEnd = offsetof(Position, state) + offsetof(UndoState, epSquare) + 1;
    constexpr size_t tail = offsetof(Position, moveHistory) - offsetof(Position, sideToMove);
    return std::memcmp(&a, &b, stateEnd) == 0 &&
           std::memcmp(&a.sideToMove, &b.sideToMove, tail) == 0 &&
           std::memcmp(a.moveHistory, b.moveHistory, (a.ply + 1) * sizeof(Move)) == 0 &&
           std::memcmp(a.keyHistory, b.keyHistory, a.ply * sizeof(uint64_t)) == 0;
}

bool keysAndMaterialOk(const Position& pos) {
    return pos.hashKey == computeHashKey(pos) && pos.state.pawnKey == computePawnKey(pos) &&
           pos.side[WHITE].material == computeMaterial(pos, WHITE) &&
           pos.side[BLACK].material == computeMaterial(pos, BLACK) && positionOk(pos);
}

// Plays `plies` random moves; at every node each legal move is made, checked against a
// recomputation and unmade. Then unwinds move by move to the root, replays the line, adds a null
// move and one reply, and returns to the root with one unmakeMoves call.
void walk(const std::string& fen, uint64_t seed, int plies) {
    SCOPED_TRACE(fen);
    std::mt19937_64 rng(seed);
    Position pos = positionFrom(fen);
    std::vector<Position> path;
    std::vector<std::pair<Move, UndoState>> line;
    Move moves[kMaxMoves];
    for (int i = 0; i < plies; ++i) {
        const Move* end = generateMoves(pos, moves);
        if (end == moves) break;
        path.push_back(pos);
        const UndoState saved = pos.state;
        for (const Move* m = moves; m != end; ++m) {
            makeMove(pos, *m);
            ASSERT_TRUE(keysAndMaterialOk(pos)) << "ply " << i << " move " << std::hex << *m;
            unmakeMove(pos, *m, saved);
            ASSERT_TRUE(sameRecord(pos, path.back())) << "ply " << i << " move " << std::hex << *m;
        }
        line.push_back({moves[rng() % (end - moves)], saved});
        makeMove(pos, line.back().first);
    }
    ASSERT_GT(line.size(), 20u);
    for (size_t i = line.size(); i-- > 0;) {
        unmakeMove(pos, line[i].first, line[i].second);
        ASSERT_TRUE(sameRecord(pos, path[i])) << "unwinding to ply " << i;
    }
    for (const auto& [m, saved] : line) makeMove(pos, m);
    if (generateMoves(pos, moves) != moves && !inCheck(pos)) {
        makeNullMove(pos);
        const Move* end = generateMoves(pos, moves);
        if (end != moves) makeMove(pos, moves[0]);
    }
    unmakeMoves(pos, static_cast<int>(pos.ply), line[0].second);
    EXPECT_TRUE(sameRecord(pos, path[0])) << "unmakeMoves to the root";
}

int square(const char* s) { return makeSquare(s[0] - 'a', s[1] - '1'); }

}  // namespace

TEST(Position, RandomWalksRestoreTheRecord) {
    const std::vector<EpdEntry> perftPositions = loadEpd("perft.epd");
    const std::vector<std::string> openings = loadFens("openings.epd");
    ASSERT_EQ(perftPositions.size(), 6u);
    ASSERT_GE(openings.size(), 1000u);
    uint64_t seed = 1;
    for (const EpdEntry& e : perftPositions) {
        walk(e.fen, seed++, 400);
        if (HasFatalFailure()) return;
    }
    for (size_t i = 0; i < openings.size(); i += 25) {
        walk(openings[i], seed++, 250);
        if (HasFatalFailure()) return;
    }
}

// One move against the position written out by hand: placement, keys, material, rights,
// en-passant square (a square number; 0 for none) and whether the fifty-move count restarts.
TEST(Position, MoveMatchesHandWrittenResult) {
    struct Case {
        const char* fen;
        const char* move;  // from, to, promotion letter
        const char* after;
        int epSquare;
        bool resetsFifty;
    };
    const Case cases[] = {
        {"rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -", "e2e4",
         "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq -", 0, true},
        {"4k3/8/8/8/3p4/8/4P3/4K3 w - -", "e2e4", "4k3/8/8/8/3pP3/8/8/4K3 b - e3", 28, true},
        {"4k3/8/8/p7/8/8/7P/4K3 w - -", "h2h4", "4k3/8/8/p7/7P/8/8/4K3 b - -", 0, true},
        {"4k3/3p4/8/4P3/8/8/8/4K3 b - -", "d7d5", "4k3/8/8/3pP3/8/8/8/4K3 w - d6", 35, true},
        {"4k3/8/8/3pP3/8/8/8/4K3 w - d6", "e5d6", "4k3/8/3P4/8/8/8/8/4K3 b - -", 0, true},
        {"r3k2r/8/8/8/8/8/1B6/R3K2R w KQkq -", "b2h8", "r3k2B/8/8/8/8/8/8/R3K2R b KQq -", 0, true},
        {"r3k2r/8/8/8/8/8/1B6/R3K2R w KQkq -", "a1b1", "r3k2r/8/8/8/8/8/1B6/1R2K2R b Kkq -", 0,
         false},
        {"r3k2r/8/8/8/8/8/8/R3K2R w KQkq -", "e1e2", "r3k2r/8/8/8/8/8/4K3/R6R b kq -", 0, false},
        {"r3k2r/8/8/8/8/8/8/R3K2R w KQkq -", "e1g1", "r3k2r/8/8/8/8/8/8/R4RK1 b kq -", 0, false},
        {"r3k2r/8/8/8/8/8/8/R3K2R w KQkq -", "e1c1", "r3k2r/8/8/8/8/8/8/2KR3R b kq -", 0, false},
        {"r3k2r/8/8/8/8/8/8/R3K2R b KQkq -", "e8g8", "r4rk1/8/8/8/8/8/8/R3K2R w KQ -", 0, false},
        {"r3k2r/8/8/8/8/8/8/R3K2R b KQkq -", "e8c8", "2kr3r/8/8/8/8/8/8/R3K2R w KQ -", 0, false},
        {"r3k3/1P6/8/8/8/8/8/4K3 w q -", "b7a8q", "Q3k3/8/8/8/8/8/8/4K3 b - -", 0, true},
        {"4k3/1P6/8/8/8/8/8/4K3 w - -", "b7b8n", "1N2k3/8/8/8/8/8/8/4K3 b - -", 0, true},
        {"4k3/8/8/8/8/8/6p1/4K2R b K -", "g2h1r", "4k3/8/8/8/8/8/8/4K2r w - -", 0, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.fen) + " " + c.move);
        Position pos = positionFrom(c.fen);
        const Position expected = positionFrom(c.after);
        Move moves[kMaxMoves], found = 0;
        const int from = square(c.move), to = square(c.move + 2);
        const char* letter = c.move[4] ? std::strchr(" pnbrq", c.move[4]) : nullptr;
        const int promotion = letter ? static_cast<int>(letter - " pnbrq") : 0;
        for (const Move *m = moves, *end = generateMoves(pos, moves); m != end; ++m)
            if (fromSquare(*m) == from && toSquare(*m) == to && promotionType(*m) == promotion)
                found = *m;
        ASSERT_NE(found, 0u);
        makeMove(pos, found);
        // Boards, king squares, material, mailbox and occupancy.
        EXPECT_EQ(std::memcmp(&pos, &expected, offsetof(Position, hashKey)), 0);
        EXPECT_EQ(pos.hashKey, expected.hashKey);
        EXPECT_EQ(pos.state.pawnKey, expected.state.pawnKey);
        EXPECT_EQ(pos.state.castling, expected.state.castling);
        EXPECT_EQ(pos.state.epSquare, c.epSquare);
        EXPECT_EQ(pos.sideToMove, expected.sideToMove);
        EXPECT_EQ(pos.state.fiftyStart, c.resetsFifty ? 1u : 0u);
    }
}

// No key for the side to move: the same placement and rights hash alike for either side.
TEST(Position, SideToMoveIsNotHashed) {
    for (const char* placement :
         {"rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR %c KQkq - 0 1",
          "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R %c KQkq -",
          "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 %c - - 0 1"}) {
        char white[100], black[100];
        std::snprintf(white, sizeof white, placement, 'w');
        std::snprintf(black, sizeof black, placement, 'b');
        EXPECT_EQ(positionFrom(white).hashKey, positionFrom(black).hashKey) << placement;
    }
}

}  // namespace quarn::test
