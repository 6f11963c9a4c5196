#include <gtest/gtest.h>

#include <string>

#include "board/movegen.h"
#include "board/movetext.h"
#include "support.h"

namespace quarn::test {

namespace {

std::string longText(const Position& pos, Move m) {
    char buf[kMoveTextSize];
    writeMoveLong(pos, buf, m);
    return buf;
}

std::string sanText(Position& pos, Move m) {
    SanWriter writer{pos, {}};
    return writeMoveSan(writer, m);
}

// The legal move whose long text is `text`, or 0.
Move findMove(Position& pos, const std::string& text) {
    Move moves[kMaxMoves];
    for (Move* it = moves, *end = generateMoves(pos, moves); it != end; ++it)
        if (longText(pos, *it) == text) return *it;
    return kNullMove;
}

// Checks every move of pos and, below depth 1, of the positions after it. Black's long
// castling (to c8, square 58) is written "O-O" because the to square is compared as a number,
// so its SAN cannot come back through the parser: those are counted instead.
int checkRoundTrips(Position& pos, int depth) {
    int blackLong = 0;
    Move moves[kMaxMoves];
    for (Move* it = moves, *end = generateMoves(pos, moves); it != end; ++it) {
        const Move m = *it;
        const std::string lng = longText(pos, m), san = sanText(pos, m);
        EXPECT_EQ(parseMove(pos, lng.c_str()) & kIdentityMask, m & kIdentityMask) << lng;
        if (isCastling(m) && toSquare(m) == 58) {
            ++blackLong;
            EXPECT_EQ(san, "O-O");
            const Move back = parseMove(pos, san.c_str());
            EXPECT_TRUE(back == kNullMove || (isCastling(back) && toSquare(back) == 62));
        } else {
            EXPECT_EQ(parseMove(pos, san.c_str()) & kIdentityMask, m & kIdentityMask)
                << san << " " << lng;
        }
        // Once made, the piece is read from the to square: a promotion shows its new piece.
        const UndoState saved = pos.state;
        makeMove(pos, m);
        const std::string after = promotionType(m) ? kPieceLetters[promotionType(m)] + lng : lng;
        EXPECT_EQ(longText(pos, m), after);
        if (depth > 1) blackLong += checkRoundTrips(pos, depth - 1);
        unmakeMove(pos, m, saved);
    }
    return blackLong;
}

}  // namespace

TEST(MoveText, RoundTripsThroughParser) {
    int blackLong = 0;
    for (const EpdEntry& e : loadEpd("perft.epd")) {
        Position pos = positionFrom(e.fen);
        SCOPED_TRACE(e.fen);
        blackLong += checkRoundTrips(pos, 2);
    }
    // Black may castle long after 45 of White's 48 first moves in the second position (not
    // after Bxa6, Nc6 or Nxf7, which cover c8 or d8) and after all 6 in the fourth.
    EXPECT_EQ(blackLong, 45 + 6);
}

TEST(MoveText, ParsesForgivingInput) {
    const char* const start = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1";
    const char* const promo = "8/4P3/8/8/8/2n5/1P6/K6k w - - 0 1";
    const char* const castle = "r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1";
    const char* const knights = "4k3/8/8/1N6/8/8/8/1N2KN2 w - - 0 1";
    const struct {
        const char* fen;
        const char* text;
        const char* expected;  // long text of the parsed move; "" for none
        const char* message = "";
    } cases[] = {
        {start, "e2e4", "e2e4"},     {start, "e4", "e2e4"},       {start, "Pe4", "e2e4"},
        {start, "e2-e4", "e2e4"},    {start, "Nf3", "Ng1f3"},     {start, "g1f3", "Ng1f3"},
        {start, "Ngf3", "Ng1f3"},    {start, "e5", ""},           {start, "%", ""},
        {promo, "e7e8q", "e7e8=Q"},  {promo, "e8=Q", "e7e8=Q"},   {promo, "e8Q", "e7e8=Q"},
        {promo, "e7e8", "e7e8=Q"},   {promo, "e7e8n", "e7e8=N"},  {promo, "e7e8b", "e7e8=B"},
        {promo, "e7e8r", "e7e8=R"},  {promo, "bxc3", "b2xc3"},    {promo, "e8=b", ""},
        {castle, "O-O", "O-O"},      {castle, "o-o", "O-O"},      {castle, "O-O-O", "O-O-O"},
        {castle, "Rxa8+", "Ra1xa8"}, {castle, "OOOO", ""},        {castle, "O-O-O-O", ""},
        {"4k3/8/8/8/8/8/8/5K2 w - - 0 1", "O-O", ""},
        {castle, "0-0", "", "illegal char in move 0-0: 48\n"},
        {knights, "Nd2", "", "ambiguous move: Nb1d2 _and_ Nf1d2\n"},
        {knights, "Nc3", "", "ambiguous move: Nb1c3 _and_ Nb5c3\n"},
    };
    for (const auto& c : cases) {
        Position pos = positionFrom(c.fen);
        testing::internal::CaptureStderr();
        const Move m = parseMove(pos, c.text);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.message) << c.text;
        EXPECT_EQ(m ? longText(pos, m) : "", c.expected) << c.text;
        EXPECT_EQ(m, *c.expected ? findMove(pos, c.expected) : kNullMove) << c.text;
    }
    Position pos = positionFrom(start);
    EXPECT_EQ(parseMove(pos, nullptr), kNullMove);
}

TEST(MoveText, WritesSan) {
    const char* const knights = "4k3/8/8/1N6/8/8/8/1N2K3 w - - 0 1";
    const char* const three = "4k3/8/8/1N6/8/8/8/1N1NK3 w - - 0 1";
    const char* const castle = "r3k2r/8/8/8/8/8/8/R3K3 w Qkq - 0 1";
    const char* const blackCastle = "r3k2r/8/8/8/8/8/8/R3K3 b Qkq - 0 1";
    const char* const promo = "1r2k3/P7/8/8/8/8/8/4K3 w - - 0 1";
    const struct {
        const char* fen;
        const char* move;  // long text of a legal move
        const char* san;
    } cases[] = {
        {knights, "Nb1c3", "N1c3"},          {knights, "Nb5c3", "N5c3"},
        {three, "Nb1c3", "Nb1c3"},           {three, "Nd1c3", "Ndc3"},
        {three, "Nd1e3", "Ne3"},
        {blackCastle, "O-O-O", "O-O"},       {blackCastle, "O-O", "O-O"},
        {castle, "O-O-O", "O-O-O"},          {castle, "Ra1xa8", "Rxa8"},
        {promo, "a7xb8=N", "axb8=N"},        {promo, "a7a8=Q", "a8=Q"},
        {"4k3/8/8/3p4/4P3/8/8/4K3 w - - 0 1", "e4xd5", "exd5"},
        {"4k3/8/8/3pP3/8/8/8/4K3 w - d6 0 1", "e5xd6", "exd6"},
        {"4k3/8/8/8/8/8/4K3/R6R w - - 0 1", "Ra1d1", "Rad1"},
    };
    for (const auto& c : cases) {
        Position pos = positionFrom(c.fen);
        const Move m = findMove(pos, c.move);
        ASSERT_NE(m, kNullMove) << c.fen << " " << c.move;
        EXPECT_EQ(sanText(pos, m), c.san) << c.fen;
    }
    Position pos = positionFrom(castle);
    EXPECT_EQ(sanText(pos, kNullMove), "%");
    EXPECT_EQ(longText(pos, kNullMove), "%");
}

}  // namespace quarn::test
