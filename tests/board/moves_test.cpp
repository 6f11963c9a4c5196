#include <algorithm>
#include <cstddef>
#include <cstring>
#include <random>

#include "board/perft.h"
#include "eval/see.h"
#include "search/quietchecks.h"
#include "support.h"

namespace quarn::test {

namespace {

// Counts above this are left to the optimised build.
constexpr uint64_t kSlowBuildLimit = 2'500'000;
const char* const kStalemate = "7k/5Q2/6K1/8/8/8/8/8 b - -";

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

std::vector<Move> quietChecks(const Position& pos, int margin) {
    Move moves[kMaxMoves];
    return {moves, generateQuietChecks(pos, moves, margin)};
}

std::string sanText(Position& pos, Move m) {
    SanWriter writer{pos, {}};
    return writeMoveSan(writer, m);
}

// The legal move whose long text is `text`, or 0.
Move findMove(Position& pos, const std::string& text) {
    for (const Move m : legalMoves(pos))
        if (moveText(pos, m) == text) return m;
    return kNullMove;
}

// Points of the piece on `sq` to the capture generator: a pawn about to promote counts as a queen.
int victimPoints(const Position& pos, int sq) {
    static constexpr int kPoints[8] = {0, 1, 3, 3, 5, 10, 0, 0};
    const int code = pos.board[sq];
    const bool promoting = typeOf(code) == PAWN && rankOf(sq) == (colourOf(code) ? 1 : 6);
    return promoting ? 10 : kPoints[typeOf(code)];
}

// The quiescence moves picked out of the full legal list: queen promotions only, captures of a
// victim worth at least the margin (a pawn on its seventh counts as a queen) or by a pinned
// pawn (its king's blocker), and quiet pawn steps onto the seventh with the promotion square free.
std::vector<Move> expectedCaptures(Position& pos, int margin) {
    const int us = static_cast<int>(pos.sideToMove), up = us == WHITE ? 8 : -8;
    std::vector<Move> out;
    for (const Move m : legalMoves(pos)) {
        const int from = fromSquare(m), to = toSquare(m);
        const bool pawn = typeOf(pos.board[from]) == PAWN;
        if (!isCastling(m) && !isEnPassant(m) &&
            (promotionType(m) ? promotionType(m) == QUEEN
             : pos.board[to] ? victimPoints(pos, to) >= margin ||
                                   (pawn && (pos.state.kingBlockers[us] & squareBit[from]))
                             : pawn && rankOf(to) == (us == WHITE ? 6 : 1) && !pos.board[to + up]))
            out.push_back(m);
    }
    std::sort(out.begin(), out.end());
    return out;
}

// The quiet checks of one position against a filter of its legal moves: what must come out
// (uncovered checks by non-queens, direct checks onto targets the capture generator leaves, the
// exchange allowing), what may (besides: a bishop or rook lining up through enemy queens), and
// which moves both generators may share (pushes onto the seventh, pinned pawns' captures,
// uncovered captures). Returns the number generated.
int checkQuietChecks(const Position& pos, int margin, const std::vector<Move>& legal,
                     const std::vector<Move>& captures) {
    const std::vector<Move> got = quietChecks(pos, margin);
    const int us = static_cast<int>(pos.sideToMove), them = us ^ 1;
    const int king = static_cast<int>(pos.side[them].kingSquare);
    const Bitboard pinned = pos.state.kingBlockers[us];
    const Bitboard uncovering = pos.state.kingBlockers[them] & pos.side[us].pieces[0] & ~pinned &
                                ~pos.side[us].pieces[QUEEN];
    for (const Move m : legal) {
        const int from = fromSquare(m), to = toSquare(m), type = typeOf(pos.board[from]);
        const bool uncovers = (uncovering & squareBit[from]) && !(line[from][king] & squareBit[to]);
        const bool cheap = !pos.board[to] || victimPoints(pos, to) < margin;
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
        EXPECT_TRUE(must ? copies > 0 : may || copies == 0) << margin << " " << moveText(pos, m);
        // Twice only when the move both uncovers a check and gives one.
        EXPECT_LE(copies, uncovers && may ? 2 : 1) << margin << " " << moveText(pos, m);
        if (copies && std::binary_search(captures.begin(), captures.end(), m)) {
            EXPECT_TRUE((type == PAWN && !pos.board[to] && rankOf(to) == (us ? 1 : 6)) ||
                        (type == PAWN && (pinned & squareBit[from])) || (uncovers && !cheap))
                << margin << " " << moveText(pos, m);
        }
    }
    for (const Move m : got)
        EXPECT_NE(std::find(legal.begin(), legal.end(), m), legal.end()) << moveText(pos, m);
    return static_cast<int>(got.size());
}

// Checks every move of pos and, below depth 1, of the positions after it. Black's long
// castling (to c8, square 58) is written "O-O", so its SAN cannot come back: those are counted.
int checkRoundTrips(Position& pos, int depth) {
    int blackLong = 0;
    for (const Move m : legalMoves(pos)) {
        const std::string lng = moveText(pos, m), san = sanText(pos, m);
        EXPECT_EQ(parseMove(pos, lng.c_str()) & kIdentityMask, m & kIdentityMask) << lng;
        const Move back = parseMove(pos, san.c_str());
        if (isCastling(m) && toSquare(m) == 58) {
            ++blackLong;
            EXPECT_EQ(san, "O-O");
            EXPECT_TRUE(back == kNullMove || (isCastling(back) && toSquare(back) == 62));
        } else {
            EXPECT_EQ(back & kIdentityMask, m & kIdentityMask) << san << " " << lng;
        }
        // Once made, the piece is read from the to square: a promotion shows its new piece.
        const UndoState saved = pos.state;
        makeMove(pos, m);
        EXPECT_EQ(moveText(pos, m), promotionType(m) ? kPieceLetters[promotionType(m)] + lng : lng);
        if (depth > 1) blackLong += checkRoundTrips(pos, depth - 1);
        unmakeMove(pos, m, saved);
    }
    return blackLong;
}

}  // namespace

// Every count of the perft file (the slow build skips the large ones), with the position left
// as it was; depth 0 and below count the legal moves. The lines of divide between its rulers
// add up to perft; with no legal move there are none and a total of 0.
TEST(Perft, EpdCountsAndDivide) {
    std::vector<EpdEntry> entries = loadEpd("perft.epd");
    ASSERT_EQ(entries.size(), 6u);
    entries.push_back({kStalemate, {0, 0, 0}});
    int runs = 0;
    for (const EpdEntry& e : entries) {
        SCOPED_TRACE(e.fen);
        Position pos = positionFrom(e.fen);
        const Position root = pos;
        EXPECT_EQ(perft(pos, 0), e.counts[0]);
        EXPECT_EQ(perft(pos, -1), e.counts[0]);
        for (size_t d = 1; d <= e.counts.size(); ++d, ++runs) {
            if (kSlowBuild && e.counts[d - 1] > kSlowBuildLimit) break;
            EXPECT_EQ(perft(pos, static_cast<int>(d)), e.counts[d - 1]) << "depth " << d;
        }
        for (const int depth : {1, 3}) {  // ruler, "move count" lines, ruler, "total sum"
            const Lines w = words(printed([&](FILE* f) { divide(pos, depth, f); }));
            ASSERT_GE(w.size(), 4u);
            uint64_t sum = 0;
            for (size_t i = 2; i + 3 < w.size(); i += 2) {
                EXPECT_TRUE(depth > 1 || w[i] == "1") << w[i - 1];
                sum += std::stoull(w[i]);
            }
            EXPECT_TRUE(w[0][0] == '-' && w[w.size() - 3][0] == '-' && w[w.size() - 2] == "total");
            EXPECT_EQ(w.back(), std::to_string(sum));
            EXPECT_EQ((w.size() - 4) / 2, e.counts[0]) << "depth " << depth;
            EXPECT_EQ(sum, e.counts[depth - 1]) << "depth " << depth;
        }
        EXPECT_TRUE(sameRecord(pos, root)) << "changed by perft or divide";
    }
    EXPECT_EQ(runs, kSlowBuild ? 26 : 36);
}

// Taking a checker on the last rank promotes Q, N, R, B, where every other promotion goes Q, N,
// B, R. (The golden transcripts show the order of generation, perft the en-passant pins.)
TEST(MoveGen, PromotionOrderOfAnEvasion) {
    Position pos = positionFrom("3r3k/4P3/8/8/8/8/8/3K4 w - - 0 1");
    Lines got;
    for (const Move m : legalMoves(pos))
        if (fromSquare(m) == squareAt("e7")) got.push_back(moveText(pos, m));
    EXPECT_EQ(got, words("e7xd8=Q e7xd8=N e7xd8=R e7xd8=B"));
}

// Random games of up to 200 plies from the perft positions, every 25th opening and set-ups with
// pins and promotions. Everywhere each legal move passes the quick validity test and is made,
// checked against a recomputation and unmade; out of check the quiescence moves (captures and
// quiet checks) are the filtered legal list. A null move and a reply end each game; one
// unmakeMoves call back to the start must then restore the whole record.
TEST(Position, RandomGamesMakeUnmakeAndGenerate) {
    std::vector<std::string> fens = loadFens("perft.epd"), openings = loadFens("openings.epd");
    for (size_t i = 0; i < openings.size(); i += 25) fens.push_back(openings[i]);
    for (int i = 0; i < 8; ++i)  // a pawn pinned by a bishop it can take; pawns about to promote
        for (const char* fen :
             {"4k3/8/8/8/8/2b5/1P6/K7 w - -", "r3k3/1P6/2P5/8/8/8/6p1/4K1R1 w - -",
              "4k1r1/6P1/8/8/8/2p5/1p6/R3K3 b - -", "1q2k3/P1P5/1P1b4/8/8/1B2p3/2p5/4K3 w - -"})
            fens.push_back(fen);
    std::mt19937_64 rng(20240611);
    int positions = 0, checks = 0;
    for (const std::string& fen : fens) {
        Position pos = positionFrom(fen);
        const Position root = pos;
        for (int ply = 0; ply < 200 && !HasFailure(); ++ply) {
            const std::vector<Move> legal = legalMoves(pos);
            if (legal.empty()) break;
            SCOPED_TRACE(fenOf(pos));
            const Position before = pos;
            for (const Move m : legal) {
                EXPECT_TRUE(isValidMove(pos, m)) << moveText(pos, m);
                makeMove(pos, m);
                EXPECT_TRUE(keysAndMaterialOk(pos)) << moveText(before, m);
                unmakeMove(pos, m, before.state);
                ASSERT_TRUE(sameRecord(pos, before)) << moveText(before, m);
            }
            positions += !inCheck(pos);
            for (const int margin : {-1, 0, 1, 2, 3, 4, 5, 6, 10, 11}) {
                if (inCheck(pos)) break;
                Move moves[kMaxMoves];
                std::vector<Move> captures(moves, generateCaptures(pos, moves, margin));
                std::sort(captures.begin(), captures.end());
                EXPECT_EQ(captures, expectedCaptures(pos, margin)) << "margin " << margin;
                checks += checkQuietChecks(pos, margin, legal, captures);
            }
            makeMove(pos, legal[rng() % legal.size()]);
        }
        if (!legalMoves(pos).empty() && !inCheck(pos)) {
            makeNullMove(pos);
            const std::vector<Move> replies = legalMoves(pos);
            if (!replies.empty()) makeMove(pos, replies[0]);
        }
        unmakeMoves(pos, static_cast<int>(pos.ply), root.state);
        ASSERT_TRUE(sameRecord(pos, root)) << fen << ": unmakeMoves back to the start";
    }
    EXPECT_GT(positions, 10000);
    EXPECT_GT(checks, 50000);
}

// The captured field must be the board's byte, the piece ours, its step its own (a pawn takes
// diagonally, a promotion onto an occupied square is no quiet move); a pinned piece
// stays on its line, the king off attacked squares; en passant only onto the square behind the
// pawn in epSquare; in check a capture must take a checker; a promotion needs a pawn.
TEST(MoveGen, IsValidMoveRules) {
    const int bp = pieceCode(BLACK, PAWN), bn = pieceCode(BLACK, KNIGHT);
    const int br = pieceCode(BLACK, ROOK), wr = pieceCode(WHITE, ROOK);
    const Move dbl = kDoubleStepFlag, ep = kEnPassantFlag, oo = kCastleFlag;
    const Move toQ = withPromotion(0, QUEEN), toR = withPromotion(0, ROOK);
    const char* const start = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1";
    const char* const pawns = "4k3/8/8/3p4/4P3/8/8/4K3 w - - 0 1";
    const char* const pin = "4r2k/8/8/8/8/8/4R3/4K3 w - - 0 1";
    const char* const eFile = "4r2k/8/8/8/8/8/8/3K4 w - - 0 1";
    const char* const rank = "7k/8/8/8/8/8/8/r3K3 w - - 0 1";
    const char* const f6 = "4k3/8/8/3pPp2/8/8/8/4K3 w - f6 0 1";
    const char* const noEp = "4k3/8/8/3pPp2/8/8/8/4K3 w - - 0 1";
    const char* const check = "4k3/3R4/8/8/7r/3n4/8/4K2R w - - 0 1";
    const char* const rook = "4k3/P7/8/8/8/8/8/R3K3 w - - 0 1";
    const char* const promo = "8/8/8/8/8/8/4p3/k2RK3 b - - 0 1";
    const char* const castle = "4k3/8/8/8/8/8/8/4K2R w K - 0 1";
    const char* const g8 = "4k1r1/8/8/8/8/8/8/4K2R w K - 0 1";
    const char* const blocked = "4k3/8/8/4p3/4P3/8/8/4K3 w - - 0 1";
    const char* const onA8 = "n3k3/P7/8/8/8/8/8/R3K3 w - - 0 1";
    // The move's from and to square, the captured field and the flags.
    const struct { const char *fen, *move; int captured; Move flags; bool valid; } cases[] = {
        {pawns, "e4d5", bp, 0, true}, {pawns, "e4d5", bn, 0, false}, {pawns, "e4d5", 0, 0, false},
        {pawns, "e4e5", 0, 0, true}, {pawns, "d5d4", 0, 0, false}, {pawns, "a3a4", 0, 0, false},
        {start, "e2e4", 0, 0, false}, {start, "e2e4", 0, dbl, true}, {start, "b1d2", 0, 0, false},
        {start, "f1c4", 0, 0, false}, {pin, "e2e5", 0, 0, true}, {pin, "e2e8", br, 0, true},
        {pin, "e2a2", 0, 0, false}, {pin, "e1d1", 0, 0, true}, {eFile, "d1e1", 0, 0, false},
        {eFile, "d1c1", 0, 0, true}, {rank, "e1f1", 0, 0, false}, {rank, "e1e2", 0, 0, true},
        {castle, "e1g1", 0, oo, true}, {g8, "e1g1", 0, oo, false}, {f6, "e5f6", bp, ep, true},
        {f6, "e5d6", bp, ep, false}, {noEp, "e5f6", bp, ep, false}, {check, "d7d3", bn, 0, true},
        {check, "h1h4", br, 0, false}, {rook, "a1a6", 0, 0, true}, {rook, "a1a6", 0, toQ, false},
        {rook, "a7a8", 0, toQ, true}, {promo, "e2d1", wr, toR, true},
        {promo, "e2f1", wr, toR, false}, {start, "b1b3", 0, 0, false},
        {castle, "e1g1", 0, 0, false}, {blocked, "e4e5", bp, 0, false},
        {onA8, "a7a8", 0, toQ, false},
    };
    for (const auto& c : cases) {
        Position pos = positionFrom(c.fen);
        legalMoves(pos);  // current attack words
        const Move m = makeMoveWord(squareAt(c.move), squareAt(c.move + 2), c.captured) | c.flags;
        EXPECT_EQ(isValidMove(pos, m), c.valid) << c.fen << " " << c.move;
    }
}

// Long text and SAN of every move of the perft positions and of the positions after them.
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

// Forgiving input, and SAN written with only the disambiguation it needs (san: the text is the
// SAN of the move).
TEST(MoveText, ParsesAndWritesSan) {
    const char* const start = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1";
    const char* const promo = "8/4P3/8/8/8/2n5/1P6/K6k w - - 0 1";
    const char* const castle = "r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1";
    const char* const knights = "4k3/8/8/1N6/8/8/8/1N2KN2 w - - 0 1";
    const char* const two = "4k3/8/8/1N6/8/8/8/1N2K3 w - - 0 1";
    const char* const three = "4k3/8/8/1N6/8/8/8/1N1NK3 w - - 0 1";
    // expected: the long text of the parsed move, "" for none; message: its stderr.
    const struct { const char *fen, *text, *expected; bool san = false; const char* message = ""; }
        cases[] = {
        {start, "e2e4", "e2e4"},          {start, "e4", "e2e4", true},   {start, "Pe4", "e2e4"},
        {start, "e2-e4", "e2e4"},         {start, "Nf3", "Ng1f3", true}, {start, "g1f3", "Ng1f3"},
        {start, "Ngf3", "Ng1f3"},         {start, "e5", ""},             {start, "%", ""},
        {promo, "e7e8q", "e7e8=Q"},       {promo, "e8Q", "e7e8=Q"},      {promo, "e7e8", "e7e8=Q"},
        {promo, "e7e8n", "e7e8=N"},       {promo, "e7e8b", "e7e8=B"},    {promo, "e8=b", ""},
        {promo, "e8=Q", "e7e8=Q", true},  {promo, "bxc3", "b2xc3", true}, {castle, "o-o", "O-O"},
        {castle, "O-O", "O-O", true},     {castle, "O-O-O", "O-O-O", true}, {castle, "OOOO", ""},
        {castle, "Rxa8+", "Ra1xa8"},      {castle, "Rxa8", "Ra1xa8", true}, {castle, "O-O-O-O", ""},
        {two, "N1c3", "Nb1c3", true},     {two, "N5c3", "Nb5c3", true},
        {three, "Nb1c3", "Nb1c3", true},  {three, "Ndc3", "Nd1c3", true},
        {three, "Ne3", "Nd1e3", true},
        {"1r2k3/P7/8/8/8/8/8/4K3 w - - 0 1", "axb8=N", "a7xb8=N", true},
        {"4k3/8/8/3pP3/8/8/8/4K3 w - d6 0 1", "exd6", "e5xd6", true},
        {"4k3/8/8/8/8/8/4K3/R6R w - - 0 1", "Rad1", "Ra1d1", true},
        {"4k3/8/8/8/8/8/8/5K2 w - - 0 1", "O-O", ""},
        {castle, "0-0", "", false, "illegal char in move 0-0: 48\n"},
        {knights, "Nd2", "", false, "ambiguous move: Nb1d2 _and_ Nf1d2\n"},
        {knights, "Nc3", "", false, "ambiguous move: Nb1c3 _and_ Nb5c3\n"},
    };
    for (const auto& c : cases) {
        Position pos = positionFrom(c.fen);
        testing::internal::CaptureStderr();
        const Move m = parseMove(pos, c.text);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.message) << c.text;
        EXPECT_EQ(m ? moveText(pos, m) : "", c.expected) << c.text;
        EXPECT_EQ(m, *c.expected ? findMove(pos, c.expected) : kNullMove) << c.text;
        EXPECT_TRUE(!c.san || sanText(pos, m) == c.text) << c.text;
    }
    Position pos = positionFrom(start);
    EXPECT_EQ(parseMove(pos, nullptr), kNullMove);
    EXPECT_EQ(sanText(pos, kNullMove), "%");
    EXPECT_EQ(moveText(pos, kNullMove), "%");
}

}  // namespace quarn::test
