#include "eval/evaluate.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "eval/king.h"
#include "eval/kpk.h"
#include "eval/pieces.h"
#include "eval/racing.h"

namespace quarn {

namespace {

struct Counts {
    int pawns, knights, bishops, rooks, queens, pieces, points;
    explicit Counts(uint32_t m)
        : pawns(materialCount(m, PAWN)),
          knights(materialCount(m, KNIGHT)),
          bishops(materialCount(m, BISHOP)),
          rooks(materialCount(m, ROOK)),
          queens(materialCount(m, QUEEN)),
          pieces(materialPieces(m)),
          points(materialPoints(m)) {}
};

constexpr Bitboard kFilesBtoG = ~(kFileA | kFileH);
constexpr Bitboard kDarkSquares = 0xAA55AA55AA55AA55ULL;

// Trapped knights and bishops: the piece, its square, the enemy pawn that cages it.
struct TrapRule {
    int piece, square, pawn, pawnSquare, value;
};
constexpr TrapRule kTraps[] = {
    {pieceCode(WHITE, KNIGHT), 56, pieceCode(BLACK, PAWN), 50, -250},  // Na8, c7
    {pieceCode(WHITE, KNIGHT), 63, pieceCode(BLACK, PAWN), 53, -250},  // Nh8, f7
    {pieceCode(WHITE, KNIGHT), 57, pieceCode(BLACK, PAWN), 49, -250},  // Nb8, b7
    {pieceCode(WHITE, KNIGHT), 62, pieceCode(BLACK, PAWN), 54, -250},  // Ng8, g7
    {pieceCode(WHITE, BISHOP), 48, pieceCode(BLACK, PAWN), 41, -150},  // Ba7, b6
    {pieceCode(WHITE, BISHOP), 40, pieceCode(BLACK, PAWN), 33, -150},  // Ba6, b5
    {pieceCode(WHITE, BISHOP), 55, pieceCode(BLACK, PAWN), 46, -150},  // Bh7, g6
    {pieceCode(WHITE, BISHOP), 47, pieceCode(BLACK, PAWN), 38, -150},  // Bh6, g5
    {pieceCode(BLACK, KNIGHT), 0, pieceCode(WHITE, PAWN), 10, 250},    // Na1, c2
    {pieceCode(BLACK, KNIGHT), 7, pieceCode(WHITE, PAWN), 13, 250},    // Nh1, f2
    {pieceCode(BLACK, KNIGHT), 1, pieceCode(WHITE, PAWN), 9, 250},     // Nb1, b2
    {pieceCode(BLACK, KNIGHT), 6, pieceCode(WHITE, PAWN), 14, 250},    // Ng1, g2
    {pieceCode(BLACK, BISHOP), 8, pieceCode(WHITE, PAWN), 17, 150},    // Ba2, b3
    {pieceCode(BLACK, BISHOP), 16, pieceCode(WHITE, PAWN), 25, 150},   // Ba3, b4
    {pieceCode(BLACK, BISHOP), 15, pieceCode(WHITE, PAWN), 22, 150},   // Bh2, g3
    {pieceCode(BLACK, BISHOP), 23, pieceCode(WHITE, PAWN), 30, 150},   // Bh3, g4
};

// A bishop hemmed in by its own blocked centre pawn.
struct BlockedBishop {
    int bishop, square, pawn, pawnSquare, frontSquare, value;
};
constexpr BlockedBishop kBlockedBishops[] = {
    {pieceCode(WHITE, BISHOP), 2, pieceCode(WHITE, PAWN), 11, 19, -35},  // Bc1, d2, d3
    {pieceCode(WHITE, BISHOP), 5, pieceCode(WHITE, PAWN), 12, 20, -35},  // Bf1, e2, e3
    {pieceCode(BLACK, BISHOP), 58, pieceCode(BLACK, PAWN), 51, 43, 35},  // Bc8, d7, d6
    {pieceCode(BLACK, BISHOP), 61, pieceCode(BLACK, PAWN), 52, 44, 35},  // Bf8, e7, e6
};

constexpr int kShutInRook = 25;

// A rook shut in by its own uncastled king: the corner rook first, else the knight-file rook.
int shutInRook(const Position& pos, int c, bool queenSide) {
    const int base = c == WHITE ? 0 : 56;
    const int kingA = base + (queenSide ? 1 : 5), kingB = base + (queenSide ? 2 : 6);
    if (pos.side[c].kingSquare != static_cast<uint32_t>(kingA) &&
        pos.side[c].kingSquare != static_cast<uint32_t>(kingB))
        return 0;
    const Bitboard rooks = pos.side[c].pieces[ROOK], pawns = pos.side[c].pieces[PAWN];
    const int cornerFile = queenSide ? 0 : 7, knightFile = queenSide ? 1 : 6;
    const int cornerRank = c == WHITE ? 0 : 7, nextRank = c == WHITE ? 1 : 6;
    const Bitboard corner = squareBit[makeSquare(cornerFile, cornerRank)] | squareBit[makeSquare(cornerFile, nextRank)];
    if ((rooks & corner) && (pawns & fileMask[cornerFile])) return kShutInRook;
    if ((rooks & squareBit[makeSquare(knightFile, cornerRank)]) && (pawns & fileMask[knightFile]))
        return kShutInRook;
    return 0;
}

// Pawns all on one rook file (or none), and nothing but an optional lone bishop that cannot
// cover the promotion corner: the stronger side cannot win.
bool rookPawnDraw(const Position& pos, int c) {
    const Bitboard pawns = pos.side[c].pieces[PAWN];
    if ((pawns & kFilesBtoG) || ((pawns & kFileA) && (pawns & kFileH))) return false;
    const uint32_t m = pos.side[c].material;
    if (!(m & kPieceFields)) return true;
    if ((m & kPieceFields) != (kMaterialIncrement[BISHOP] & kPieceFields)) return false;
    if (!pawns) return true;
    const bool darkBishop = (pos.side[c].pieces[BISHOP] & kDarkSquares) != 0;
    // The promotion corner of an a-pawn is dark for Black (a1) and light for White (a8).
    const bool onA = (pawns & kFileA) != 0;
    const bool cornerDark = c == WHITE ? !onA : onA;
    return darkBishop != cornerDark;
}

// Bishop and knight pawn against a bare king, the pawn on its sixth rank and the bishop on the
// rook-file square beside it (h7 with g6, a7 with b6, as seen from the pawn's side). The
// bishop's only way out is the queening square, and the defending king holds it from the
// knight-file square on the seventh or from the corner: every approach of the other king to
// the corner stalemates it, so it shuttles between the two for ever. From the corner it holds
// only while the other king does not already guard that seventh-rank square (with the move, the
// pawn's check then wins).
bool trappedBishopDraw(const Position& pos, int c) {
    if (pos.side[c].material != kMaterialIncrement[BISHOP] + kMaterialIncrement[PAWN] ||
        pos.side[c ^ 1].material != 0)
        return false;
    // Side-relative squares (row 0 the pawn's eighth rank), turned into board squares by the
    // side's flip: g6 22, h7 15, g7 14, h8 7.
    const int flip = flipSquare[c];
    const int defender = static_cast<int>(pos.side[c ^ 1].kingSquare);
    const int attacker = static_cast<int>(pos.side[c].kingSquare);
    for (const int mirror : {0, 7}) {  // the g-pawn, or the b-pawn
        const int pawn = 22 ^ mirror ^ flip, bishop = 15 ^ mirror ^ flip;
        const int seventh = 14 ^ mirror ^ flip, corner = 7 ^ mirror ^ flip;
        if (!(pos.side[c].pieces[PAWN] & squareBit[pawn]) || !(pos.side[c].pieces[BISHOP] & squareBit[bishop]))
            continue;
        if (defender == seventh) return true;
        return defender == corner && !(kingAttacks[attacker] & squareBit[seventh]);
    }
    return false;
}

// A side with no pawn, rook or queen and too little to mate cannot win.
bool cannotWin(const Counts& k, bool hasBishop) {
    return k.pawns == 0 && k.rooks == 0 && k.queens == 0 && (k.points < 6 || !hasBishop);
}

// One side has a single pawn and nothing else, the other a bare king: exact knowledge decides.
bool kingAndPawnAgainstKing(const Counts& w, const Counts& b) {
    const bool wOnlyPawn = w.pawns == 1 && w.pieces == 0, bBare = b.pawns == 0 && b.pieces == 0;
    const bool bOnlyPawn = b.pawns == 1 && b.pieces == 0, wBare = w.pawns == 0 && w.pieces == 0;
    return (wOnlyPawn && bBare) || (bOnlyPawn && wBare);
}

int strongestPiece(const Counts& k) { return k.bishops ? 3 : k.rooks ? 5 : 10; }

// Driving a bare-ish king to be mated. Without pawns a won ending is a mate to be given, and
// no quiet move the search sees changes the material: the score must climb as the defending
// king is pushed to the edge and the attacking king closes in, or the search has nothing to
// follow and the fifty-move rule ends the game. The pull has to outweigh what the pieces'
// own terms gain by standing elsewhere, so that a shallow search already walks the right way.
// With bishop and knight only the corner of the bishop's colour will do, so that corner alone
// counts.
constexpr int kEdgeStep = 30;       // per ring from the centre to the edge
constexpr int kCentreStep = 10;     // per file or rank away from the centre: corners beat edges
constexpr int kCloseStep = 10;      // per file or rank the kings come closer
constexpr int kCornerStep = 40;     // per square nearer the bishop's corner
constexpr int kBoxStep = 3;         // per square taken from the lone rook's box

// With a lone rook the mate comes from fencing the king into a shrinking box: the files and
// ranks on the king's side of the rook's lines. A rook the king can take, or one on the king's
// own file or rank, fences nothing on that line.
int rookBox(const Position& pos, int strong, int defender) {
    const int rook = lsbIndex(pos.side[strong].pieces[ROOK]);
    const int attacker = static_cast<int>(pos.side[strong].kingSquare);
    if (squareDistance(rook, defender) == 1 && squareDistance(rook, attacker) > 1) return 64;
    const int rf = fileOf(rook), rr = rankOf(rook), df = fileOf(defender), dr = rankOf(defender);
    const int width = df < rf ? rf : df > rf ? 7 - rf : 8;
    const int height = dr < rr ? rr : dr > rr ? 7 - rr : 8;
    return width * height;
}

// Files and ranks from the centre squares d4..e5, each 0..3.
struct FromCentre {
    int files, ranks;
    explicit FromCentre(int square)
        : files(fileOf(square) < 4 ? 3 - fileOf(square) : fileOf(square) - 4),
          ranks(rankOf(square) < 4 ? 3 - rankOf(square) : rankOf(square) - 4) {}
    int ring() const { return files > ranks ? files : ranks; }  // 3 on the edge
    int steps() const { return files + ranks; }                 // 6 in a corner
};

int fileRankDistance(int a, int b) {
    const int f = fileOf(a) - fileOf(b), r = rankOf(a) - rankOf(b);
    return (f < 0 ? -f : f) + (r < 0 ? -r : r);
}

// The pressure `strong` (counts k) puts on the other king, >= 0.
int mateDrive(const Position& pos, int strong, const Counts& k) {
    const int attacker = static_cast<int>(pos.side[strong].kingSquare);
    const int defender = static_cast<int>(pos.side[strong ^ 1].kingSquare);
    const int drive = kCloseStep * (14 - fileRankDistance(attacker, defender));
    if (k.bishops == 1 && k.knights == 1 && k.rooks + k.queens == 0) {
        const bool dark = (pos.side[strong].pieces[BISHOP] & kDarkSquares) != 0;
        const int near = dark ? std::min(squareDistance(defender, 0), squareDistance(defender, 63))
                              : std::min(squareDistance(defender, 7), squareDistance(defender, 56));
        return drive + kEdgeStep * FromCentre(defender).ring() + kCornerStep * (7 - near);
    }
    const FromCentre centre(defender);
    int edge = kEdgeStep * centre.ring() + kCentreStep * centre.steps();
    if (k.rooks == 1 && k.pieces == 1) edge += kBoxStep * (64 - rookBox(pos, strong, defender));
    return drive + edge;
}

// Lone bishops of opposite colours, and nothing else but pawns.
bool oppositeBishopsOnly(const Position& pos) {
    const uint32_t loneBishop = kMaterialIncrement[BISHOP] & kPieceFields;
    if ((pos.side[WHITE].material & kPieceFields) != loneBishop ||
        (pos.side[BLACK].material & kPieceFields) != loneBishop)
        return false;
    const bool wDark = (pos.side[WHITE].pieces[BISHOP] & kDarkSquares) != 0;
    const bool bDark = (pos.side[BLACK].pieces[BISHOP] & kDarkSquares) != 0;
    return wDark != bDark;
}

// Lone bishops of opposite colours: a quarter of the score with even pawns, half of it one
// pawn apart, a third two apart, all of it beyond. The defending bishop stops a passer on
// squares the other bishop can never contest, so an extra pawn or two rarely wins.
int scaleOppositeBishops(int s, int difference) {
    if (difference == 0) return s / 4;
    if (difference == 1) return s / 2;
    if (difference == 2) return s / 3;
    return s;
}

// Endgame scaling by the pawns left on each side; names the rule that decided it, also where
// that rule keeps the score whole.
int scaleByPawns(int s, const Position& pos, const Counts& w, const Counts& b, const char*& rule) {
    const uint32_t mw = pos.side[WHITE].material, mb = pos.side[BLACK].material;
    // Lone bishops of opposite colours with pawns on both sides, or two passers against a
    // pawnless side (the defending king blockades one and the bishop the other). A single pawn
    // against none, or more than two, falls to the pawnless rules below.
    if (oppositeBishopsOnly(pos)) {
        const int d = w.pawns > b.pawns ? w.pawns - b.pawns : b.pawns - w.pawns;
        if ((w.pawns && b.pawns) || d == 2) {
            rule = "opposite-coloured bishops";
            return scaleOppositeBishops(s, d);
        }
    }
    if (!w.pawns && b.pawns) {
        rule = "white has no pawns";
        if (s > 0) return b.points + 3 < w.points ? s : s / 8;
        if (s < 0 && b.pawns == 1 && (w.bishops || w.rooks || w.queens) &&
            w.points + 3 - strongestPiece(w) >= b.points)
            return s / 8;
        return s;
    }
    if (!w.pawns && !b.pawns) {
        rule = "no pawns";
        if (b.points + 3 < w.points) return s + 1000 - 100 * b.pieces + mateDrive(pos, WHITE, w);
        if (w.points + 3 < b.points) return s - 1000 + 100 * w.pieces - mateDrive(pos, BLACK, b);
        const int total = materialPoints(mw + mb);
        if (total == 8) return s / 4;
        if (total == 9 && w.bishops + b.bishops >= 2 && w.knights + b.knights >= 1)
            return (w.bishops >= 2 || b.bishops >= 2) ? s : s / 16;
        return s / 16;
    }
    if (w.pawns && !b.pawns) {
        rule = "black has no pawns";
        if (s < 0) return w.points + 3 >= b.points ? (s + 7) >> 3 : s;
        if (s > 0 && w.pawns == 1 && (b.bishops || b.rooks || b.queens) &&
            b.points + 3 - strongestPiece(b) >= w.points)
            return s >> 3;
        return s;
    }
    return s;
}

// The score before the tempo, through the draw and scaling rules; fills `trace` when given.
int scoreFromWhite(EvalContext& ctx, EvalTrace* trace) {
    const Position& pos = *ctx.pos;
    // The order matters: the pawn term finds the passers and the pawn entry the king term
    // reads; the king terms leave the shelters the enemy piece terms read.
    const int material = materialScore(ctx), pattern = patternScore(ctx), pawns = pawnScore(ctx);
    const int kingW = kingScore(ctx, WHITE), kingB = kingScore(ctx, BLACK);
    const int piecesW = pieceScore(ctx, WHITE), piecesB = pieceScore(ctx, BLACK);
    const int racing = racingPasserScore(ctx);
    int s = material + pattern + pawns + kingW + piecesW + racing - kingB - piecesB;
    if (trace) *trace = {material, pattern, pawns, kingW, kingB, piecesW, piecesB, racing, s, nullptr, nullptr, 0, 0, false};

    // Draw recognition; the racing term, when it speaks, overrides the rook-pawn rules.
    const Counts w(pos.side[WHITE].material), b(pos.side[BLACK].material);
    const char* drawRule = nullptr;
    bool scale = true;
    if (kingAndPawnAgainstKing(w, b)) {
        // The table knows every placement, so it decides both ways: a won rook pawn is won
        // whatever the rook-pawn rule below would guess from the pawn's file.
        if (!kpkWins(pos)) {
            drawRule = "king and pawn against king, drawn";
            s = 0;
            scale = false;
        }
    } else if (trappedBishopDraw(pos, WHITE) || trappedBishopDraw(pos, BLACK)) {
        drawRule = "knight pawn, bishop shut in";
        s = 0;
        scale = false;
    } else if (racing == 0 && s < 0 && rookPawnDraw(pos, BLACK)) {
        drawRule = "black rook pawns or wrong bishop";
        s = 0;
    } else if (racing == 0 && s > 0 && rookPawnDraw(pos, WHITE)) {
        drawRule = "white rook pawns or wrong bishop";
        s = 0;
    } else if (racing != 0 || s != 0) {
        if ((s > 0 && cannotWin(w, pos.side[WHITE].pieces[BISHOP] != 0)) ||
            (s < 0 && cannotWin(b, pos.side[BLACK].pieces[BISHOP] != 0))) {
            drawRule = "insufficient material";
            s = 0;
            scale = false;
        }
    }
    const char* scaleRule = nullptr;
    if (scale) s = scaleByPawns(s, pos, w, b, scaleRule);
    if (trace) {
        trace->drawRule = drawRule;
        trace->scaleRule = scaleRule;
        trace->final = s;
    }
    return s;
}

}  // namespace

void initEvalContext(EvalContext& ctx, const Position* pos) {
    ctx.pos = pos;
    ctx.pawnTable = PawnTable{};
    resetPawnTable(ctx.pawnTable, pos);
    ctx.evalCount = 0;
    ctx.passers[WHITE] = ctx.passers[BLACK] = 0;
    ctx.shelter[WHITE] = ctx.shelter[BLACK] = 0;
    ctx.pawnEntry = nullptr;
    // Each slot starts with a key that cannot map to it, so no empty slot ever matches.
    for (int i = 0; i < kEvalCacheSize; ++i) ctx.cache[i] = {static_cast<uint64_t>(i ^ 1), 0};
}

void freeEvalContext(EvalContext& ctx) { freePawnTable(ctx.pawnTable); }

int materialScore(const EvalContext& ctx) {
    const uint32_t mw = ctx.pos->side[WHITE].material, mb = ctx.pos->side[BLACK].material;
    const Counts w(mw), b(mb);
    const uint32_t sum = mw + mb;  // fields add up; the pawn field wraps with sixteen pawns
    const int pieces = materialPieces(sum);
    int base = (w.pawns + w.points - b.points - b.pawns) * (100 + (32 - w.points - b.points) / 2);
    if (materialPieces(mw ^ mb)) base += (w.pieces - b.pieces) * 2 * (50 - pieces);
    if (w.rooks != b.rooks) {
        base += 2 * (w.rooks - b.rooks) * (2 * (11 - pieces) - static_cast<int>((sum >> 8) & 15));
        if (w.queens == b.queens) base += 24 * ((b.rooks >= 2) - (w.rooks >= 2));
    }
    if (w.bishops != b.bishops) {
        const int anyRook = (w.rooks + b.rooks) ? 12 : 0;
        const int knights = (w.knights + b.knights >= 2) ? 8 : 0;
        base += (w.bishops - b.bishops) * (anyRook + knights - 4 - ((w.pawns + b.pawns) * 3 >> 1)) +
                2 * ((w.bishops >= 2) - (b.bishops >= 2)) * (28 - pieces);
    }
    return base;
}

int patternScore(const EvalContext& ctx) {
    const Position& pos = *ctx.pos;
    int score = 0;
    for (const TrapRule& t : kTraps)
        if (pos.board[t.square] == t.piece && pos.board[t.pawnSquare] == t.pawn) score += t.value;
    for (const BlockedBishop& t : kBlockedBishops)
        if (pos.board[t.square] == t.bishop && pos.board[t.pawnSquare] == t.pawn && pos.board[t.frontSquare])
            score += t.value;
    for (const bool queenSide : {true, false})
        score += shutInRook(pos, BLACK, queenSide) - shutInRook(pos, WHITE, queenSide);
    return score;
}

int evaluate(EvalContext& ctx) {
    const Position& pos = *ctx.pos;
    ++ctx.evalCount;
    const uint64_t key = pos.hashKey ^ pos.sideToMove;
    EvalCacheEntry& slot = ctx.cache[key & (kEvalCacheSize - 1)];
    if (slot.key == key) return slot.score;
    const int s = scoreFromWhite(ctx, nullptr);
    const int result = pos.sideToMove == WHITE ? kTempo + s : kTempo - s;
    slot = {key, result};
    return result;
}

int evaluateTraced(EvalContext& ctx, EvalTrace& trace) {
    const Position& pos = *ctx.pos;
    const uint64_t key = pos.hashKey ^ pos.sideToMove;
    const EvalCacheEntry& slot = ctx.cache[key & (kEvalCacheSize - 1)];
    const bool cached = slot.key == key;
    const int result = evaluate(ctx);
    const int s = scoreFromWhite(ctx, &trace);
    trace.result = pos.sideToMove == WHITE ? kTempo + s : kTempo - s;
    trace.cacheHit = cached;
    return result;
}

}  // namespace quarn
