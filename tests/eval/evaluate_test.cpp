#include <gtest/gtest.h>

#include <cctype>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "board/fen.h"
#include "board/movegen.h"
#include "eval/evaluate.h"
#include "eval/king.h"
#include "eval/pieces.h"
#include "support.h"

namespace quarn::test {

namespace {

struct FenValue {
    const char* fen;
    int value;
};

// An evaluation context serving one position, freed when it goes.
class Context {
public:
    explicit Context(const Position& pos) : ctx_(std::make_unique<EvalContext>()) {
        initEvalContext(*ctx_, &pos);
    }
    ~Context() { freeEvalContext(*ctx_); }
    EvalContext& operator*() { return *ctx_; }
    EvalContext* operator->() { return ctx_.get(); }

private:
    std::unique_ptr<EvalContext> ctx_;
};

EvalTrace traceOf(const Position& pos) {
    EvalTrace t{};
    evaluateTraced(*Context(pos), t);
    return t;
}

int evaluateFresh(const Position& pos) { return evaluate(*Context(pos)); }

// The position and its terms, for failure messages.
std::string termsOf(const Position& pos) {
    const EvalTrace t = traceOf(pos);
    std::ostringstream out;
    out << getFen(pos).chars() << ": terms " << t.material << " " << t.pattern << " " << t.pawns
        << " " << t.kingWhite << " " << t.kingBlack << " " << t.piecesWhite << " " << t.piecesBlack
        << " " << t.racing << " sum " << t.sum << " final " << t.final;
    return out.str();
}

// The board mirrored rank for rank with colours, side to move, castling and en passant swapped.
std::string flippedFen(const std::string& fen) {
    std::istringstream in(fen), rows;
    std::string board, side, castling = "-", ep = "-", rank, ranks;
    in >> board >> side >> castling >> ep;
    rows.str(board);
    while (std::getline(rows, rank, '/')) ranks = rank + (ranks.empty() ? "" : "/") + ranks;
    for (std::string* text : {&ranks, &castling})
        for (char& ch : *text)
            ch = static_cast<char>(std::isupper(ch) ? std::tolower(ch) : std::toupper(ch));
    if (ep != "-") ep[1] = static_cast<char>('9' - ep[1] + '0');
    return ranks + (side == "w" ? " b " : " w ") + castling + " " + ep;
}

// Whether b mirrors a: pieces, side to move, castling rights and en passant.
bool mirrors(const Position& a, const Position& b) {
    for (int s = 0; s < 64; ++s)
        if (b.board[s ^ 56] != (a.board[s] ? a.board[s] ^ 24 : 0)) return false;
    const int c = a.state.castling, ep = a.state.epSquare;
    return b.sideToMove != a.sideToMove && b.state.epSquare == (ep ? ep ^ 56 : 0) &&
           b.state.castling == (((c & 5) << 1) | ((c & 10) >> 1));
}

std::vector<std::string> dataRoots() {
    std::vector<std::string> roots = loadFens("perft.epd");
    for (const std::string& fen : loadFens("openings.epd")) roots.push_back(fen);
    return roots;
}

// Endings where the draw, scaling, king and passer rules speak.
const char* const kEndings[] = {
    "8/8/8/4k3/8/8/8/KNN5 w - -",
    "8/8/8/4k3/8/8/8/KBN5 b - -",
    "8/8/8/1k6/8/P2K4/8/2B5 w - -",
    "8/8/8/1k6/8/1P6/8/3K4 w - -",
    "4k3/4bpp1/8/8/8/3B4/5PPP/4K3 w - -",
    "8/5k2/3p4/1p1Pp3/1P2P3/5K2/8/8 w - -",
    "r3k3/pp3ppp/2n5/8/8/2N5/PPP2PPP/3RK3 b - -",
    "r3k3/pppb4/2n5/8/8/8/PPP5/4K3 w - -",
    "3qk2r/8/8/8/8/8/5PPP/4K3 w - -",
    "8/pp3k2/8/2P5/8/4K3/6PP/8 w - -",
};

// Visits every root position, and the positions of fixed-seed random walks of `plies` steps
// from every `every`-th one; one step in four goes back a move, so positions and structures come
// round again. The attack words are current at each visit.
template <class Roots, class Visit>
int walkPositions(Position& pos, const Roots& roots, size_t every, int plies, Visit visit) {
    std::mt19937 rng(0x5eed);
    int visits = 0;
    for (size_t i = 0; i < std::size(roots); ++i) {
        if (!setFen(pos, std::string(roots[i]).c_str())) {
            ADD_FAILURE() << "refused: " << roots[i];
            continue;
        }
        std::vector<std::pair<Move, UndoState>> line;
        for (int ply = 0; ply <= (i % every ? 0 : plies); ++ply, ++visits) {
            visit(pos);
            Move list[kMaxMoves];
            const auto n = static_cast<uint32_t>(generateMoves(pos, list) - list);
            if (!line.empty() && (n == 0 || rng() % 4 == 0)) {
                unmakeMove(pos, line.back().first, line.back().second);
                line.pop_back();
            } else if (n) {
                line.emplace_back(list[rng() % n], pos.state);
                makeMove(pos, line.back().first);
            }
            computeAttackInfo(pos);
        }
    }
    return visits;
}

}  // namespace

// Draw: 0 plus the tempo, either side to move. Otherwise the sum stays (one pawn, no piece to
// stop it), or gains the pawnless 1000 for a side more than 3 points ahead.
TEST(Evaluate, DrawRulesAndPawnlessBonus) {
    enum { DRAW, UNSCALED, PLUS_1000 };
    const FenValue kCases[] = {
        {"8/8/8/4k3/8/8/8/KNN5", DRAW},        // two knights cannot force mate
        {"8/4p3/8/4k3/8/8/8/KN6", DRAW},       // nor can a lone knight against a pawn
        {"8/8/8/4k3/8/8/8/KBN5", PLUS_1000},   // bishop and knight can
        {"8/8/8/1k6/8/P2K4/8/8", DRAW},        // a-pawn, the defending king inside its square
        {"3k4/p7/8/1K6/8/8/8/8", DRAW},        // the same for Black
        {"8/8/8/1k6/8/1P6/8/3K4", UNSCALED},   // a b-pawn is no rook pawn
        {"8/8/8/1k6/8/P2K4/8/2B5", DRAW},      // dark bishop, light corner a8
        {"8/8/8/1k6/8/P2K4/8/3B4", UNSCALED},  // light bishop covers a8
    };
    for (const auto& c : kCases) {
        for (const char* side : {" w - -", " b - -"}) {
            const Position pos = positionFrom(std::string(c.fen) + side);
            const EvalTrace t = traceOf(pos);
            ASSERT_EQ(t.racing, 0) << termsOf(pos);  // the rook-pawn rules need a quiet race
            if (c.value == DRAW) {
                EXPECT_EQ(evaluateFresh(pos), kTempo) << termsOf(pos);
                continue;
            }
            ASSERT_GT(t.sum, 0) << termsOf(pos);  // White is the side ahead
            EXPECT_EQ(t.drawRule, nullptr) << termsOf(pos);
            EXPECT_EQ(t.final, t.sum + (c.value == PLUS_1000 ? 1000 : 0)) << termsOf(pos);
        }
    }
}

// Lone bishops of opposite colours: the sum is divided by 4, 2 or 3 for pawn counts differing by
// 0, 1 or 2, and kept from 3 on; bishops of one colour keep it.
TEST(Evaluate, OppositeBishopsScaleTheSum) {
    const FenValue kCases[] = {
        {"4k3/4bpp1/8/8/8/3B4/5PP1/4K3 w - -", 4},  {"4k3/4bpp1/8/8/8/3B4/5PPP/4K3 w - -", 2},
        {"4k3/4bpp1/8/8/8/3B4/4PPPP/4K3 b - -", 3}, {"4k3/4bpp1/8/8/8/3B4/3PPPPP/4K3 w - -", 1},
        {"4k3/4bppp/8/8/8/3B4/5PP1/4K3 w - -", 2},  {"4k3/5pp1/4b3/8/8/3B4/5PP1/4K3 w - -", 1},
    };
    for (const auto& c : kCases) {
        const Position pos = positionFrom(c.fen);
        const EvalTrace t = traceOf(pos);
        EXPECT_EQ(t.final, t.sum / c.value) << termsOf(pos);
        EXPECT_EQ(t.result, kTempo + (pos.sideToMove == WHITE ? t.final : -t.final));
    }
}

// With no king attack (12 points or fewer each) and no race, the side to move only flips the
// sign and takes the tempo; one context evaluates both, so its cache must tell them apart.
TEST(Evaluate, SideToMoveFlipsSignAroundTheTempo) {
    for (const char* fen :
         {"r3k3/pp3ppp/2n5/8/8/2N5/PPP2PPP/3RK3 w - -", "4k3/2p2pp1/1p2b3/8/8/2B5/PP3PPP/4K3 w - -",
          "8/5k2/3p4/1p1Pp3/1P2P3/5K2/8/8 w - -"}) {
        Position pos = positionFrom(fen);
        Context ctx(pos);
        const int white = evaluate(*ctx);
        ASSERT_EQ(traceOf(pos).racing, 0) << fen;
        pos.sideToMove ^= 1;
        computeAttackInfo(pos);
        ASSERT_EQ(traceOf(pos).racing, 0) << fen;
        EXPECT_NE(white, kTempo) << fen;  // a score of its own, so a stale cache hit would show
        EXPECT_EQ(white + evaluate(*ctx), 2 * kTempo) << fen;
    }
}

TEST(PawnTable, SizeIsThePowerOfTwoAtOrBelowTheRequest) {
    const std::pair<uint32_t, uint32_t> kSizes[] = {{100000, 65536},  {0, 1},          {1, 1},
                                                    {131072, 131072}, {131071, 65536}, {3, 2}};
    PawnTable table{};
    for (const auto& [requested, count] : kSizes) {
        table.hits = table.stores = 7;
        resizePawnTable(table, requested);
        EXPECT_EQ(table.count, count) << requested;
        EXPECT_EQ(table.mask, count - 1);
        EXPECT_EQ(table.hits + table.stores, 0u);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(table.entries) % 256, 0u);
        // Entry 0 must not pass for the pawnless structure, whose key is 0.
        EXPECT_EQ(table.entries[0].check, 1u);
        EXPECT_EQ(table.entries[count - 1].check, count == 1 ? 1u : 0u);
    }
    freePawnTable(table);
}

// No pawns: the first probe misses and builds zero halves and shelters of -16 everywhere.
TEST(PawnTable, PawnlessStructureIsBuiltOnFirstProbe) {
    const Position pos = positionFrom("4k3/8/8/8/8/8/8/R3K3 w - -");
    ASSERT_EQ(pos.state.pawnKey, 0u);
    for (const uint32_t size : {1u, kSearchPawnEntries}) {
        Context ctx(pos);
        resizePawnTable(ctx->pawnTable, size);
        EXPECT_EQ(pawnScore(*ctx), 0);
        EXPECT_EQ(ctx->pawnTable.stores, 1u);
        EXPECT_EQ(ctx->pawnTable.hits, 0u);
        EXPECT_EQ(ctx->pawnEntry->check, 0u);
        EXPECT_EQ(ctx->pawnEntry->passers, 0u);
        for (const auto& side : ctx->pawnEntry->side) {
            EXPECT_EQ(side.mg + side.eg, 0);
            for (const int8_t shelter : side.shelter) EXPECT_EQ(shelter, -16);
        }
        pawnScore(*ctx);
        EXPECT_EQ(ctx->pawnTable.hits, 1u);
    }
}

// By hand, f = opponent points + 16 * queens - 16. Start position: v = shelter(e1) -1 - penalty
// 3 = -4; long side shelter(c1) -1 less three pieces; short side shelter(g1) -1 less two pieces;
// 32 * 4 * (-4 - 3) / 32. Kd1 with c2 d2 e2: shelter at d1 -16 + 3 + 6 + 6 less penalty 3, where
// e1's would be -7; f = 20, 20 * 4 * -8 / 32. Kh1 with f2 g2 h2: g1's shelter -1 (at h1 -7) less
// penalty 1, 20 * 4 * -4 / 32. Endgame e1: kingEg -20 scaled by 24 (11 points) or 8 (15 points).
// 16 and 19 points without a queen: f = 0 and 3, no shelter term at all.
TEST(KingScore, ShelterAndEndgameBranches) {
    const struct {
        const char* fen;
        int colour, score, shelter;
    } kCases[] = {
        {"rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -", WHITE, -28, -4},
        {"rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -", BLACK, -28, -4},
        {"r2qk2r/8/8/8/8/8/2PPP3/3K4 w - -", WHITE, -20, -4},
        {"r2qk2r/8/8/8/8/8/5PPP/7K w - -", WHITE, -10, -2},
        {"r3k3/pppb4/2n5/8/8/8/8/4K3 w - -", WHITE, -15, 0},
        {"3qk2r/8/8/8/8/8/8/4K3 w - -", WHITE, -5, 0},
        {"r1b1k2r/8/2n5/8/8/8/8/4K3 w - -", WHITE, 0, 0},
        {"r1b1k2r/8/2n2n2/8/8/8/8/4K3 w - -", WHITE, 0, 0},
    };
    for (const auto& c : kCases) {
        const Position pos = positionFrom(c.fen);
        Context ctx(pos);
        pawnScore(*ctx);
        ctx->shelter[c.colour] = 77;
        EXPECT_EQ(kingScore(*ctx, c.colour), c.score) << c.fen;
        EXPECT_EQ(ctx->shelter[c.colour], c.shelter) << c.fen;
    }
}

// Worked out by hand. Material: the start position without a8 rook has base (8 + 32 - 27 - 8) *
// (100 + (32 - 59) / 2) = 435, pieces (7 - 6) * 2 * (50 - 13) = 74, rooks 2 * (2 * (11 - 13) -
// pawn total) with sixteen pawns wrapping to 0 = -8, and two rooks with equal queens -24; without
// h2 as well 4 * 87 + 74 + 2 * (-4 - 15) - 24. The start position without c8 bishop: 3 * (100 -
// 14) + 74 + (12 + 8 - 4 - 24) + 2 * (28 - 13). Patterns: every trapped piece counts, of the two
// shut-in rook rows only the first. Pieces: against 32 points only the middlegame half counts,
// against a bare king only the endgame half. Knight a1 boxed in by its own pawns: -64 - 32 and
// -64 - 75. Rook d1 behind its king sees seven squares (mg 8); no own pawn on the file +4, none
// of either +8 more, and a bonus of 8 unless an enemy pawn on the file is defended by a pawn.
TEST(Evaluate, TermsByHand) {
    using Term = int (*)(EvalContext&);
    const Term material = [](EvalContext& c) { return materialScore(c); };
    const Term pattern = [](EvalContext& c) { return patternScore(c); };
    const Term pieces = [](EvalContext& c) { return pieceScore(c, WHITE); };
    const struct {
        Term term;
        const char* fen;
        int value;
    } kCases[] = {
        {material, "1nbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQk -", 477},
        {material, "1nbqkbnr/pppppppp/8/8/8/8/PPPPPPP1/RNBQKBNR w KQk -", 360},
        {material, "rn1qkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -", 354},
        {pattern, "N3k3/2p5/8/8/8/8/8/4K3 w - -", -250},
        {pattern, "N3k2N/2p2p2/8/8/8/8/8/4K3 w - -", -500},
        {pattern, "4k3/B7/1p6/8/8/8/8/4K3 w - -", -150},
        {pattern, "4k3/8/8/8/8/3N4/3P4/2B1K3 w - -", -35},
        {pattern, "4k3/8/8/8/8/8/3P4/2B1K3 w - -", 0},
        {pattern, "4k3/8/8/8/8/8/PP6/RRK5 w - -", -25},
        {pattern, "rk6/p7/8/8/8/8/8/4K3 w - -", 25},
        {pieces, "4k3/8/8/8/8/1P6/2P5/N3K3 w - -", -139},
        {pieces, "rnbqkbnr/8/8/8/8/1P6/2P5/N3K3 w - -", -96},
        {pieces, "rnb1kbnr/7q/8/8/8/8/3K4/3R4 w - -", 8 + 12 + 8},
        {pieces, "rnb1kbnr/7q/8/8/3P4/8/3K4/3R4 w - -", 8},
        {pieces, "rnb1kbnr/7q/3p4/8/8/8/3K4/3R4 w - -", 8 + 4 + 8},
        {pieces, "rnb1kbnr/2p4q/3p4/8/8/8/3K4/3R4 w - -", 8 + 4},
    };
    for (const auto& c : kCases) EXPECT_EQ(c.term(*Context(positionFrom(c.fen))), c.value) << c.fen;
}

// Rook, bishop and knight (11 points) get no king-attack part: neither the enemy shelter nor
// the side to move may change the term. With a second knight (14 points) the shelter counts.
TEST(PieceScore, KingAttackNeedsMoreThanTwelvePoints) {
    for (const char* fen :
         {"6k1/5ppp/8/6N1/8/3B4/5PPP/4R1K1 w - -", "6k1/5ppp/8/6N1/8/3B1N2/5PPP/4R1K1 w - -"}) {
        Position pos = positionFrom(fen);
        const bool attackOn = materialPoints(pos.side[WHITE].material) > 12;
        Context ctx(pos);
        std::vector<int> values;
        for (const uint32_t side : {WHITE, BLACK}) {
            pos.sideToMove = side;
            computeAttackInfo(pos);
            for (const int shelter : {0, -200}) {
                ctx->shelter[BLACK] = shelter;
                values.push_back(pieceScore(*ctx, WHITE));
            }
        }
        if (attackOn) {
            EXPECT_NE(values[0], values[1]) << fen;
        } else {
            for (const int v : values) EXPECT_EQ(v, values[0]) << fen;
        }
    }
}

// Nothing in the evaluation favours a colour: the mirrored board with colours, side to move,
// castling and en passant swapped scores the same for the side to move.
TEST(Evaluate, ColourFlipGivesTheSameScore) {
    const auto check = [](const Position& p) {
        const std::string fen = flippedFen(getFen(p).chars());
        Position flipped;
        ASSERT_EQ(setFen(flipped, fen.c_str()), 1) << fen;
        ASSERT_TRUE(mirrors(p, flipped)) << fen;
        EXPECT_EQ(evaluateFresh(p), evaluateFresh(flipped)) << termsOf(p) << "\n"
                                                            << termsOf(flipped);
    };
    Position pos;
    const int visits = walkPositions(pos, dataRoots(), 8, 40, check);
    EXPECT_GT(visits + walkPositions(pos, kEndings, 1, 200, check), 7000);
}

// A warm evaluation cache and pawn table (large or one entry) give what a fresh context gives.
TEST(Evaluate, CachesNeverChangeTheScore) {
    Position pos;
    Context cold(pos), big(pos), tiny(pos);
    resizePawnTable(big->pawnTable, kSearchPawnEntries);
    const auto check = [&](const Position& p) {
        freeEvalContext(*cold);
        initEvalContext(*cold, &p);
        const int expected = evaluate(*cold);
        EXPECT_EQ(evaluate(*big), expected) << termsOf(p);
        EXPECT_EQ(evaluate(*tiny), expected) << termsOf(p);
        EXPECT_EQ(evaluate(*big), expected) << termsOf(p);  // now from the cache
    };
    const int visits =
        walkPositions(pos, dataRoots(), 4, 40, check) + walkPositions(pos, kEndings, 1, 200, check);
    EXPECT_GT(visits, 12000);
    EXPECT_EQ(big->evalCount, 2u * static_cast<uint64_t>(visits));
    EXPECT_GT(big->pawnTable.hits, big->pawnTable.stores);
    EXPECT_GT(tiny->pawnTable.hits, 0u);
}

}  // namespace quarn::test
