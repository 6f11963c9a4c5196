#include <cctype>
#include <memory>
#include <random>
#include <set>
#include <sstream>

#include "eval/evaluate.h"
#include "eval/king.h"
#include "eval/pieces.h"
#include "eval/racing.h"
#include "eval/see.h"
#include "eval/threats.h"
#include "search/score.h"
#include "support.h"

namespace quarn::test {

namespace {

// An evaluation context serving one position, freed when it goes.
struct Context {
    std::unique_ptr<EvalContext> ctx = std::make_unique<EvalContext>();
    explicit Context(const Position& pos) { initEvalContext(*ctx, &pos); }
    ~Context() { freeEvalContext(*ctx); }
    EvalContext& operator*() { return *ctx; }
    EvalContext* operator->() { return ctx.get(); }
};

int evaluateFresh(const Position& pos) { return evaluate(*Context(pos)); }

// The board mirrored rank for rank with colours, side to move, castling and en passant swapped.
std::string flippedFen(const std::string& fen) {
    std::istringstream in(fen), rows;
    std::string board, side, castling = "-", ep = "-", rank, ranks;
    in >> board >> side >> castling >> ep;
    rows.str(board);
    while (std::getline(rows, rank, '/')) ranks.insert(0, ranks.empty() ? rank : rank + "/");
    for (std::string* text : {&ranks, &castling})
        for (char& ch : *text)
            ch = static_cast<char>(std::isupper(ch) ? std::tolower(ch) : std::toupper(ch));
    if (ep != "-") ep[1] = static_cast<char>('9' - ep[1] + '0');
    return ranks + (side == "w" ? " b " : " w ") + castling + " " + ep;
}

// The position seen from the other side, and a move of it.
Position mirrored(const Position& pos) { return positionFrom(flippedFen(fenOf(pos))); }

Move mirroredMove(Move m) {
    const int captured = capturedCode(m);
    return m ? makeMoveWord(fromSquare(m) ^ 56, toSquare(m) ^ 56, captured ? captured ^ 24 : 0) : 0;
}

int sign(int colour) { return colour == WHITE ? 1 : -1; }

// The racing term after the pawn term has found the passers.
int racing(const Position& pos) {
    Context ctx(pos);
    pawnScore(*ctx);
    return racingPasserScore(*ctx);
}

// Endings where the draw and scaling rules speak: drawn (divisor 0) or the sum divided and the
// pawnless bonus added.
struct Ending { const char* placement; int divisor, bonus; };
const Ending kEndings[] = {
    {"8/8/8/4k3/8/8/8/KNN5", 0, 0},            // two knights cannot force mate
    {"8/4p3/8/4k3/8/8/8/KN6", 0, 0},           // nor can a lone knight against a pawn
    // Bishop and knight can: 1000, and the drive to mate: kings eight files and ranks apart
    // (10 x 6), the defender in the centre ring (0) and four from either light corner (40 x 3).
    {"8/8/8/4k3/8/8/8/KBN5", 1, 1180},
    {"8/8/8/1k6/8/P2K4/8/8", 0, 0},            // a-pawn, the king inside its square
    {"3k4/p7/8/1K6/8/8/8/8", 0, 0},            // the same for Black
    {"8/8/8/1k6/8/1P6/8/3K4", 0, 0},           // no rook pawn, but the king in front holds
    {"8/8/8/1k6/8/P2K4/8/2B5", 0, 0},          // dark bishop, light corner a8
    {"8/8/8/1k6/8/P2K4/8/3B4", 1, 0},          // light bishop covers a8
    {"4k3/4bpp1/8/8/8/3B4/5PP1/4K3", 4, 0},    // opposite bishops, equal pawns
    {"4k3/4bpp1/8/8/8/3B4/5PPP/4K3", 2, 0},    // one pawn more
    {"4k3/4bpp1/8/8/8/3B4/4PPPP/4K3", 3, 0},   // two more
    {"4k3/4bpp1/8/8/8/3B4/3PPPPP/4K3", 1, 0},  // three more
    {"4k3/4bppp/8/8/8/3B4/5PP1/4K3", 2, 0},    // one fewer
    {"4k3/4b3/8/8/8/3B4/5PP1/4K3", 3, 0},      // two against none
    {"4k3/4bpp1/8/8/8/3B4/8/4K3", 3, 0},       // none against two
    {"4k3/4b3/8/8/8/3B4/4PPP1/4K3", 1, 0},     // three against none
    {"4k3/5pp1/4b3/8/8/3B4/5PP1/4K3", 1, 0},   // bishops of one colour
};

}  // namespace

// Draws (divisor 0) score the tempo of 4 alone. Otherwise the sum is divided (lone bishops of
// opposite colours: by 4, 2 or 3 for pawn counts differing by 0, 1 or 2) and gains the pawnless
// 1000 of a side more than 3 points ahead. The rook-pawn rules need a quiet race. With no king
// attack (12 points or fewer) the other side to move only flips the sign: r(w) + r(b) = 8.
TEST(Evaluate, DrawAndScalingRules) {
    for (const Ending& c : kEndings) {
        Position pos = positionFrom(std::string(c.placement) + " w - -");
        Context shared(pos);  // evaluates both sides to move: its cache must tell them apart
        int results = 0;
        for (const uint32_t side : {WHITE, BLACK}) {
            pos.sideToMove = side;
            computeAttackInfo(pos);
            EvalTrace t{};
            evaluateTraced(*Context(pos), t);
            ASSERT_EQ(t.racing, 0) << fenOf(pos);
            ASSERT_NE(t.sum, 0) << fenOf(pos);
            EXPECT_EQ(t.final, c.divisor ? t.sum / c.divisor + c.bonus : 0) << fenOf(pos);
            EXPECT_EQ(t.result, 4 + (side == WHITE ? t.final : -t.final)) << fenOf(pos);
            EXPECT_EQ(evaluate(*shared), t.result) << fenOf(pos);
            results += t.result;
        }
        EXPECT_EQ(results, 8) << c.placement;
    }
}

// The trace names the opposite-bishop case wherever it decides the score, also where it keeps
// it whole (three pawns apart, both sides with pawns); a pawnless side's own rule names itself.
TEST(Evaluate, TraceNamesTheOppositeBishopRule) {
    const std::pair<const char*, bool> cases[] = {
        {"4k3/4bpp1/8/8/8/3B4/3PPPPP/4K3 w - -", true},  // three more
        {"4k3/4b3/8/8/8/3B4/5PP1/4K3 w - -", true},      // two against none
        {"4k3/4b3/8/8/8/3B4/4PPP1/4K3 w - -", false},    // three against none
    };
    for (const auto& [fen, named] : cases) {
        Position pos = positionFrom(fen);
        computeAttackInfo(pos);
        EvalTrace t{};
        evaluateTraced(*Context(pos), t);
        ASSERT_NE(t.scaleRule, nullptr) << fen;
        EXPECT_EQ(std::string(t.scaleRule) == "opposite-coloured bishops", named) << fen << ": " << t.scaleRule;
    }
}

// Pawnless wins climb toward the mate: the kings closer, the defender nearer a corner, a lone
// rook fencing it into a smaller box (a rook it can take fences nothing), and with bishop and
// knight the defending king in the bishop's corner rather than the other one (where no mate
// can be forced).
TEST(Evaluate, PawnlessWinsDriveTheKingToBeMated) {
    const std::pair<const char*, const char*> better[] = {
        {"7k/8/5K2/8/8/8/8/R7", "7k/8/2K5/8/8/8/8/R7"},      // kings close (same king table)
        {"8/8/8/8/7k/8/5K2/R7", "8/8/8/8/3k4/8/5K2/R7"},    // an edge, not the centre
        {"8/8/6k1/8/8/8/4K3/5R2", "8/8/6k1/8/8/8/4K3/R7"},  // a two-file box, not a 7 x 7 one
        {"8/8/6k1/8/8/8/4K3/5R2", "8/8/6k1/5R2/8/8/4K3/8"}, // the king attacks a loose rook
        {"k7/8/8/8/8/8/8/1B1NK3", "7k/8/8/8/8/8/8/1B1NK3"},  // light bishop: a8 over h8
        {"7k/8/8/8/8/8/8/2BNK3", "k7/8/8/8/8/8/8/2BNK3"},    // dark bishop: h8 over a8
    };
    for (const auto& [good, bad] : better) {
        for (const std::string side : {" w - -", " b - -"}) {
            const int g = evaluateFresh(positionFrom(good + side));
            const int b = evaluateFresh(positionFrom(bad + side));
            EXPECT_GT(side[1] == 'w' ? g - b : b - g, 0) << good << " / " << bad << side;
        }
    }
}

// The table and the search take every score beyond kMateThreshold for a mate: no static score
// may reach it, however lopsided the material (up to nine queens and every piece), for either
// colour.
TEST(Evaluate, StaticScoresStayBelowTheMateBand) {
    for (const std::string fen : {"QQQQQ3/QQQQ4/8/8/8/5k2/8/RRBBNN1K b - -", "QQ6/8/8/3k4/8/8/8/4K3 b - -",
                                  "k7/2Q5/1Q6/8/8/8/8/6QK w - -"}) {
        for (const std::string& f : {fen, flippedFen(fen)}) {
            const int score = std::abs(evaluateFresh(positionFrom(f)));
            EXPECT_TRUE(score > 3000 && score < kMateThreshold) << f << ": " << score;
        }
    }
}

// King and pawn against king by exact knowledge, for both colours and both sides to move: the
// drawn ones score the tempo alone, the won ones keep their score.
TEST(Evaluate, KingAndPawnAgainstKingIsExact) {
    const struct { const char* fen; bool won; } cases[] = {
        {"4k3/8/4K3/4P3/8/8/8/8 w - -", true},    // king on the sixth before its pawn
        {"4k3/8/4K3/4P3/8/8/8/8 b - -", true},
        {"8/4k3/8/4K3/4P3/8/8/8 w - -", false},   // the defender has the opposition
        {"8/4k3/8/4K3/4P3/8/8/8 b - -", true},    // the attacker has it
        {"8/8/8/4p3/4k3/8/4K3/8 b - -", false},   // the same for Black
        {"8/8/8/4p3/4k3/8/4K3/8 w - -", true},
        {"8/8/8/5k2/8/1K2P3/8/8 w - -", false},   // the defender stands in front (from a game)
        {"8/8/8/8/8/4k3/4p3/4K3 w - -", false},   // stalemate
        {"8/8/8/8/1k6/8/6P1/6K1 w - -", true},    // outside the pawn's square
        {"k7/8/8/8/8/8/1P6/6K1 b - -", false},    // inside it
        // Rook pawns the table knows to be won, whatever the rook-pawn rule would guess.
        {"8/8/8/8/8/3k4/PK6/8 w - -", true},
        {"8/8/8/8/8/8/PK1k4/8 b - -", true},
    };
    for (const auto& c : cases) {
        EvalTrace t{};
        const Position pos = positionFrom(c.fen);
        evaluateTraced(*Context(pos), t);
        EXPECT_EQ(t.drawRule != nullptr, !c.won) << c.fen;
        EXPECT_EQ(t.final == 0, !c.won) << c.fen;
    }
}

// A bishop shut in on h7 by its own pawn on g6 (a7 by b6) and the defending king on g7 or in
// the corner (b7 or a8) is a draw, for both colours; the corner only while the other king does
// not guard g7, and any other square of the bishop or the defender leaves the score alone.
TEST(Evaluate, TrappedBishopAndKnightPawnFortress) {
    const struct { const char* fen; bool drawn; } cases[] = {
        {"8/6kB/6P1/5K2/8/8/8/8 w - -", true},
        {"8/6kB/6P1/5K2/8/8/8/8 b - -", true},
        {"7k/7B/6P1/8/3K4/8/8/8 w - -", true},    // the corner, the other king far
        {"8/Bk6/1P6/8/3K4/8/8/8 b - -", true},    // the b-pawn
        {"7k/7B/5KP1/8/8/8/8/8 w - -", false},    // Kf6 guards g7: g7+ mates
        {"5k2/7B/6P1/4K3/8/8/8/8 w - -", false},  // f8 does not hold: Kf6 and g7
        {"8/6k1/6P1/5K2/8/8/8/3B4 w - -", false}, // the bishop is free
        {"8/6kB/6P1/5K2/8/8/7p/8 w - -", false},  // the defender has a pawn
    };
    for (const auto& c : cases) {
        for (const std::string& fen : {std::string(c.fen), flippedFen(c.fen)}) {
            EvalTrace t{};
            const Position pos = positionFrom(fen);
            evaluateTraced(*Context(pos), t);
            EXPECT_EQ(t.drawRule != nullptr, c.drawn) << fen;
            EXPECT_EQ(t.final == 0, c.drawn) << fen;
        }
    }
}

// A request is cut to a power of two, at least 1. Entry 0 must not pass for the pawnless
// structure, whose key is 0: its first probe misses and builds zero halves and shelters of -16.
TEST(PawnTable, SizesAndThePawnlessStructure) {
    const std::pair<uint32_t, uint32_t> kSizes[] = {{100000, 65536},  {0, 1},          {1, 1},
                                                    {131072, 131072}, {131071, 65536}, {3, 2}};
    PawnTable table{};
    for (const auto& [requested, count] : kSizes) {
        table.hits = table.stores = 7;
        resizePawnTable(table, requested);
        EXPECT_EQ(table.count, count) << requested;
        EXPECT_TRUE(table.mask == count - 1 && table.hits + table.stores == 0 &&
                    reinterpret_cast<uintptr_t>(table.entries) % 256 == 0 &&
                    table.entries[0].check == 1 && table.entries[count - 1].check == (count == 1))
            << requested;
    }
    freePawnTable(table);
    const Position pos = positionFrom("4k3/8/8/8/8/8/8/R3K3 w - -");
    ASSERT_EQ(pos.state.pawnKey, 0u);
    Context ctx(pos);
    EXPECT_EQ(pawnScore(*ctx), 0);
    EXPECT_TRUE(ctx->pawnTable.stores == 1 && ctx->pawnTable.hits == 0 &&
                ctx->pawnEntry->check == 0 && ctx->pawnEntry->passers == 0);
    for (const auto& side : ctx->pawnEntry->side) {
        EXPECT_EQ(side.mg + side.eg, 0);
        for (const int8_t shelter : side.shelter) EXPECT_EQ(shelter, -16);
    }
    pawnScore(*ctx);
    EXPECT_EQ(ctx->pawnTable.hits, 1u);
}

// f = opponent points + 16 * queens - 16; shelter v = slot - king penalty; term f * 4 * (q + g)
// / 32. Endgame: kingEg[e1] -20 scaled by 24 at 11 points, 8 at 15.
TEST(KingScore, ShelterAndEndgameBranches) {
    const struct { const char* fen; int score, shelter; } kCases[] = {
        // e1 -1 - 3; c1 -1 less 3 occupied = -4, g1 -1 less 2 = -3: 32 * 4 * -7 / 32
        {"rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -", -28, -4},
        {"r2qk2r/8/8/8/8/8/2PPP3/3K4 w - -", -20, -4},    // d1 on the spot: -16 + 3 + 6 + 6 - 3
        {"r2qk2r/8/8/8/8/8/5PPP/7K w - -", -10, -2},      // h1 reads g1's -1, less 1
        {"r2qk2r/8/8/8/8/8/5PPP/4K2R w K -", -35, -13},  // e1 -10 - 3; short: g1's -1, f1 g1 free
        {"r3k3/pppb4/2n5/8/8/8/8/4K3 w - -", -15, 0},     // rook, bishop, knight: 11 points
        {"3qk2r/8/8/8/8/8/8/4K3 w - -", -5, 0},           // queen and rook: 15 points
        {"r1b1k2r/8/2n5/8/8/8/8/4K3 w - -", 0, 0},        // 16 points, no queen: f = 0
    };
    for (const auto& c : kCases) {
        const Position pos = positionFrom(c.fen);
        Context ctx(pos);
        pawnScore(*ctx);
        ctx->shelter[WHITE] = 77;
        EXPECT_EQ(kingScore(*ctx, WHITE), c.score) << c.fen;
        EXPECT_EQ(ctx->shelter[WHITE], c.shelter) << c.fen;
    }
}

// Hand-counted terms for White (from White's side, like each term but the piece term), and the
// same for Black on the mirrored board.
TEST(Evaluate, TermsByHandAndMirrored) {
    using Term = int (*)(const Position&, int colour);
    Term material = [](const Position& p, int c) { return sign(c) * materialScore(*Context(p)); };
    Term pattern = [](const Position& p, int c) { return sign(c) * patternScore(*Context(p)); };
    Term pawns = [](const Position& p, int c) { return sign(c) * pawnScore(*Context(p)); };
    Term pieces = [](const Position& p, int c) { return pieceScore(*Context(p), c); };
    Term race = [](const Position& p, int c) { return sign(c) * racing(p); };
    Term threat = [](const Position& p, int c) { return threatScore(p, c); };
    const struct { Term term; const char* fen; int value; } kCases[] = {
        // 5 * 87 + 74 (pieces) + 2 * -4 (rooks, sixteen pawns read as 0) - 24 (two rooks)
        {material, "1nbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQk -", 477},
        {material, "1nbqkbnr/pppppppp/8/8/8/8/PPPPPPP1/RNBQKBNR w KQk -", 360},  // 15 pawns
        {material, "rn1qkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -", 354},  // bishop pair
        {pattern, "N3k3/2p5/8/8/8/8/8/4K3 w - -", -250},
        {pattern, "N3k2N/2p2p2/8/8/8/8/8/4K3 w - -", -500},  // every trapped knight counts
        {pattern, "4k3/B7/1p6/8/8/8/8/4K3 w - -", -150},
        {pattern, "4k3/8/8/8/8/3N4/3P4/2B1K3 w - -", -35},
        {pattern, "4k3/8/8/8/8/8/3P4/2B1K3 w - -", 0},
        {pattern, "4k3/8/8/8/8/8/PP6/RRK5 w - -", -25},  // only the first rook row counts
        {pattern, "rk6/p7/8/8/8/8/8/4K3 w - -", 25},
        // Passer d5 against a bare king: eg 3 + 40, then b = 16 + 8 (free push) + 8 (file
        // clear), e = 16 * (4 - 2) + 8 * (4 - 6) + 32 counted whole.
        {pawns, "7k/8/8/3P4/8/8/8/4K3 w - -", 91},
        // A knight: b = 8 + 8 + 8, mg 44 + 32 * 24 / 64, eg 43 + 40, (3 * 56 + 29 * 83) / 32.
        {pawns, "7k/8/8/3P4/8/8/8/n3K3 w - -", 80},
        // Connected d5 e5: b = 16 + 32 + 8 each; eg 2 * 43 + (32 - 16 + 56) + (16 - 16 + 56).
        {pawns, "7k/8/8/3PP3/8/8/8/4K3 w - -", 214},
        // Knight a1 with no safe square: -64 placement less 32 mg (against 32 points) or 75 eg.
        {pieces, "4k3/8/8/8/8/1P6/2P5/N3K3 w - -", -139},
        {pieces, "rnbqkbnr/8/8/8/8/1P6/2P5/N3K3 w - -", -96},
        // Rook d1 sees seven squares (8); open file +4 and +8, bonus 8 unless a defended pawn.
        {pieces, "rnb1kbnr/7q/8/8/8/8/3K4/3R4 w - -", 8 + 12 + 8},
        {pieces, "rnb1kbnr/7q/8/8/3P4/8/3K4/3R4 w - -", 8},
        {pieces, "rnb1kbnr/7q/3p4/8/8/8/3K4/3R4 w - -", 8 + 4 + 8},
        {pieces, "rnb1kbnr/2p4q/3p4/8/8/8/3K4/3R4 w - -", 8 + 4},
        // Races: 500 - 10 * (White's moves to queen) when White wins, counted by hand: pawn moves,
        // +1 for our king in front, -1 when the new queen checks; an escorted pawn adds the king's
        // moves to its zone + 2, or + 6 when it gets only onto the square in front.
        {race, "8/P7/8/8/8/8/7k/2K5 w - -", 490},    // h2 is outside the square: one move
        {race, "8/P7/8/8/8/8/8/2K4k w - -", 500},    // a8=Q checks h1 along the long diagonal
        {race, "8/Pk6/8/8/8/8/8/2K5 w - -", 0},      // Kxa8; a rook pawn is never escorted
        {race, "K7/P7/8/8/8/8/7k/8 w - -", 480},     // Kb7 first, then a8=Q
        {race, "K7/P1k5/8/8/8/8/8/8 w - -", 0},      // c7 covers b7 and b8: the king is shut in
        {race, "3K4/8/1P1k4/8/8/8/8/8 w - -", 490},  // Kd8 keeps Black off c7; b8=Q checks d6
        {race, "8/8/1P1k4/8/8/8/8/7K w - -", 0},     // Kc7 catches it
        {race, "8/8/P3K3/8/8/3k3p/8/8 w - -", 0},    // a6 and h3 both queen in two moves
        {race, "8/8/P3K3/8/8/3k3p/8/8 b - -", 0},
        {race, "8/8/P3K3/8/7p/3k4/8/8 w - -", 480},  // a6 two moves, h4 three: White is first
        {race, "8/8/P3K3/8/7p/3k4/8/8 b - -", 0},    // ...h3 a7 h2 a8=Q h1=Q
        // b2 goes to b4 at once: five moves against g5's four, White to move, both queen;
        // Black to move, its king catches b2 and g5 runs.
        {race, "8/7k/8/6p1/8/K7/1P6/8 w - -", 0},
        {race, "8/7k/8/6p1/8/K7/1P6/8 b - -", -460},
        {race, "k7/8/8/4K3/8/4P3/8/8 w - -", 410},   // Ke5 two squares ahead of e3: 5 + 4
        {race, "k7/8/8/4K3/8/4P3/8/8 b - -", 410},   // a key square wins whoever moves
        {race, "8/8/k7/8/7K/3P4/8/8 w - -", 400},    // Kg5-f5-e5 before ...Kb5-c5-d4: 3 + 5 + 2
        {race, "8/8/k7/8/7K/3P4/8/8 b - -", 0},      // now Black reaches d4 first and blockades
        {race, "8/8/8/3k4/8/8/3P4/7K w - -", 0},     // Kd4-d3 in two moves, White needs three to e3
        {race, "8/4k3/2p3p1/2P3P1/4P3/4K3/8/8 w - -", 380},  // Kd4-e5, in front of e4: 2 + 4 + 6
        // Threats against White, in score units.
        {threat, "7k/8/8/4p3/3K1R2/8/8/8 w - -", 350},   // e5 forks king and rook: 5 * 100 - 150
        {threat, "5k2/8/8/4p3/3K1N2/8/8/5R2 w - -", 0},  // Nf4 leaves with a discovered check
        {threat, "k7/8/8/3p4/2N1N3/8/8/K7 w - -", 150},  // d5 forks two knights: 3 * 100 - 150
        {threat, "4r3/5k2/8/8/8/8/4Q3/4K3 w - -", 450},  // Rxe2 Kxe2 (or Qxe8 Kxe8): 10 - 5
        {threat, "4q3/5k2/8/8/8/8/4Q3/4K3 w - -", 0},    // the pinned queen only trades queens
        {threat, "k7/8/8/8/8/8/1p6/5K1N w - -", 700},    // b1=Q is free: 8, less the pawn
        {threat, "k7/8/8/8/8/8/1p6/3R1K2 w - -", 0},     // Rd1 takes the new queen
        {threat, "k7/8/8/8/8/8/1p6/5K2 w - -", 0},       // no piece: left to the racing term
    };
    for (const auto& c : kCases) {
        const Position pos = positionFrom(c.fen);
        EXPECT_EQ(c.term(pos, WHITE), c.value) << c.fen;
        EXPECT_EQ(c.term(mirrored(pos), BLACK), c.value) << "mirror of " << c.fen;
    }
}

// Rook, bishop and knight (11 points) get no king-attack part: neither the enemy shelter nor
// the side to move may change the term. With a second knight (14 points) the shelter counts.
TEST(PieceScore, KingAttackNeedsMoreThanTwelvePoints) {
    for (const char* fen :
         {"6k1/5ppp/8/6N1/8/3B4/5PPP/4R1K1 w - -", "6k1/5ppp/8/6N1/8/3B1N2/5PPP/4R1K1 w - -"}) {
        Position pos = positionFrom(fen);
        Context ctx(pos);
        std::set<int> values;
        for (const uint32_t side : {WHITE, BLACK}) {
            pos.sideToMove = side;
            computeAttackInfo(pos);
            for (const int shelter : {0, -200}) {
                ctx->shelter[BLACK] = shelter;
                values.insert(pieceScore(*ctx, WHITE));
            }
        }
        EXPECT_EQ(values.size() > 1, materialPoints(pos.side[WHITE].material) > 12) << fen;
    }
}

// In pawns: pawn 1, knight and bishop 3, rook 5, queen 10. A lone square asks squareExchange:
// for the owner of the piece there, -1 or below when it can be won, 0 for an even trade or no
// attacker, 1 or more when taking it loses.
TEST(See, ExchangeValues) {
    // The move as from and to square, 'q' for a queen promotion; or a lone square.
    const struct { const char *fen, *move; int low, high; } kCases[] = {
        {"4k3/8/8/3n4/4P3/8/8/4K3 w - -", "e4d5", 2, 2},     // more than the mover: 3 - 1 at once
        {"4k3/8/2p5/3p4/8/8/8/3RK3 w - -", "d1d5", -3, -3},  // -4 + 1 < -1 cuts, a bound
        {"4k3/8/8/3b4/8/4N3/8/4K3 w - -", "e3d5", 3, 3},     // no recapture
        {"4k3/8/2p5/3n4/4B3/8/8/K3R3 w - -", "e4d5", 3, 3},  // check from e1: only the king may
        // Qxd5 uncovers check from e1: the king may not take into c4's guard, cxd5 not allowed.
        {"8/8/2p1k3/3n4/2P1Q3/8/8/K3R3 b - -", "e4d5", 3, 3},
        {"4k3/8/8/4n3/8/3rQ3/8/4R2K w - -", "e3d3", 5, 5},   // Qxd3 pins the e5 knight
        {"4k3/8/2n5/1B6/3p4/8/8/3RK3 w - -", "d1d4", 1, 1},  // Nc6 pinned by Bb5
        {"3rk3/8/8/3p4/8/8/3R4/3RK3 w - -", "d2d5", 1, 1},   // the second rook x-rays the first
        {"4k3/P7/8/8/8/8/8/4K3 w - -", "a7a8q", 8, 8},       // the pawn becomes a queen
        {"4k3/8/8/3n4/4P3/8/8/4K3 w - -", "d5", -99, -1},    // hangs to the pawn
        {"4k3/8/2p5/3n4/8/4N3/8/4K3 w - -", "d5", 0, 0},     // Nxd5 cxd5
        {"4k3/8/2p5/3n4/8/4N3/8/4K3 w - -", "c6", 0, 0},     // nothing attacks it
        {"4k3/8/2p5/3n4/8/8/8/3RK3 w - -", "d5", 1, 99},     // Rxd5 cxd5 loses the exchange
        {"6k1/4r3/8/3n4/8/4N3/8/4K3 w - -", "d5", 0, 0},     // the attacker is pinned
    };
    for (const auto& c : kCases) {
        const Position pos = positionFrom(c.fen);
        const int from = squareAt(c.move), to = c.move[2] ? squareAt(c.move + 2) : from;
        const Move m = makeMoveWord(from, to, pos.board[to]);
        const int value = from == to  ? squareExchange(pos, from)
                          : c.move[4] ? see(pos, withPromotion(m, QUEEN))
                                      : see(pos, m);
        EXPECT_TRUE(value >= c.low && value <= c.high) << c.fen << " " << c.move << ": " << value;
    }
}

// White's mate against Black, and Black's mirrored mate against White.
TEST(Threats, MateThreatsAndMirrors) {
    const Move qg7 = makeMoveWord(47, 54, 0), ra8 = makeMoveWord(0, 56, 0);
    const struct { const char* fen; Move move; } kCases[] = {
        {"6k1/5p1p/5P1Q/8/8/8/8/6K1 w - -", qg7},  // Qg7, guarded by f6
        {"6k1/5p1p/5P1Q/8/8/8/8/6K1 b - -", qg7},
        {"4n1k1/5p1p/5P1Q/8/8/8/8/6K1 w - -", 0},  // Ne8 guards g7
        {"6k1/5ppp/8/8/8/8/8/R5K1 w - -", ra8},    // the back rank
        {"6k1/5ppp/8/8/8/8/8/R5K1 b - -", ra8},
        {"Q1R2bk1/5ppp/8/8/8/8/8/6K1 w - -", makeMoveWord(58, 61, 19)},  // Rxf8, Qa8 behind
        {"2R2bk1/5ppp/8/8/8/8/8/6K1 w - -", 0},                          // Rxf8 Kxf8
        {"6k1/5pp1/8/8/8/3B4/8/R5K1 w - -", ra8},                        // Bd3 takes h7 away
        {"6k1/5pp1/8/8/8/8/8/R5K1 w - -", 0},                            // Ra8+ Kh7
        {"6k1/5ppp/4N3/8/8/Q7/8/6K1 w - -", makeMoveWord(16, 61, 0)},    // Qf8, h8 seen through g8
        // Not mates: the mover itself covered the flight squares it leaves (Rh1+ Kd2, Ra8+ Ke7,
        // Qf7+ Kh8), or a rook steps between (Ra8+ Rb8).
        {"6k1/8/8/6NQ/8/8/8/6K1 w - -", 0},
        {"8/8/8/8/2K5/4r3/7R/3k4 w - -", 0},
        {"4k3/R7/2r5/2PpBpp1/3Pn3/7P/8/6K1 w - -", 0},
        {"6k1/5ppp/8/8/8/8/1r6/R5K1 w - -", 0},
    };
    for (const auto& c : kCases) {
        const Position pos = positionFrom(c.fen);
        EXPECT_EQ(mateThreatMove(pos, BLACK), c.move) << c.fen;
        EXPECT_EQ(mateThreatMove(mirrored(pos), WHITE), mirroredMove(c.move)) << "mirror of "
                                                                               << c.fen;
    }
}

// Over played positions: the mirrored board (colours, side to move, castling and en passant
// swapped) scores the same and sees the mirrored threats; the attack sets match the move
// generator's; a warm evaluation cache and pawn table (large or one entry) change no score.
TEST(Evaluate, ColourFlipAndWarmCachesKeepTheScore) {
    std::vector<std::string> roots = loadFens("perft.epd"), openings = loadFens("openings.epd");
    for (size_t i = 0; i < openings.size(); i += 4) roots.push_back(openings[i]);
    for (const Ending& e : kEndings) roots.push_back(std::string(e.placement) + " w - -");
    roots.insert(roots.end(), {"8/5k2/3p4/1p1Pp3/1P2P3/5K2/8/8 w - -", "4k3/8/8/8/8/8/5PPP/r3K3 w",
                               "r3k3/pppb4/2n5/8/8/8/PPP5/4K3 w - -"});
    Position pos;
    Context big(pos), tiny(pos);
    resizePawnTable(big->pawnTable, kSearchPawnEntries);
    std::mt19937 rng(0x5eed);
    uint64_t visits = 0;
    for (const std::string& root : roots) {
        pos = positionFrom(root);
        for (int ply = 0; ply <= 40; ++ply) {
            ++visits;
            const Position flipped = mirrored(pos);
            const int expected = evaluateFresh(pos);
            EXPECT_EQ(evaluateFresh(flipped), expected) << fenOf(pos);
            EXPECT_EQ(evaluate(*big), expected) << fenOf(pos);
            EXPECT_EQ(evaluate(*tiny), expected) << fenOf(pos);
            EXPECT_EQ(evaluate(*big), expected) << fenOf(pos);  // now from the cache
            for (const int c : {WHITE, BLACK}) {
                EXPECT_EQ(threatScore(pos, c), threatScore(flipped, c ^ 1)) << fenOf(pos);
                EXPECT_EQ(mateThreatMove(pos, c) == 0, mateThreatMove(flipped, c ^ 1) == 0)
                    << fenOf(pos);
                Position other = pos;  // the generator's view with c not to move
                other.sideToMove = c ^ 1;
                computeAttackInfo(other);
                EXPECT_EQ(attackedBy(pos, c), other.state.enemyAttacks) << fenOf(pos) << " " << c;
            }
            Move list[kMaxMoves];
            const auto n = static_cast<uint32_t>(generateMoves(pos, list) - list);
            if (n == 0) break;
            makeMove(pos, list[rng() % n]);
            computeAttackInfo(pos);
        }
    }
    EXPECT_GT(visits, 10000u);
    EXPECT_EQ(big->evalCount, 2 * visits);
    EXPECT_GT(big->pawnTable.hits, big->pawnTable.stores);
    EXPECT_GT(tiny->pawnTable.hits, 0u);
}

}  // namespace quarn::test
