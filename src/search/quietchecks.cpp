#include "search/quietchecks.h"

#include <cassert>

#include "eval/see.h"
#include "eval/values.h"

namespace quarn {

namespace {

// Sort scores. Uncovered checks come first: the piece that moves is free to take or threaten
// something else as well, the more so when it captures. Among direct checks a queen landing
// close to the king leaves it the fewest flights and goes first (a far one goes last), then
// rook checks and pawn captures, knight, bishop and pawn-push checks.
constexpr int kDiscoveredScore = 256;  // plus the value of what the moving piece takes
constexpr int kDoubleStepScore = 0;
constexpr int kPawnPushScore = -3;
constexpr int kPawnCaptureScore = 0;
constexpr int kKnightScore = -1;
constexpr int kBishopScore = -2;
constexpr int kRookScore = 0;
constexpr int kQueenScoreStep = 4;  // per square of king distance (files plus ranks)
constexpr int kQueenNearDistance = 3;

// The moves found so far, each with its score in a parallel array on the stack.
struct CheckList {
    explicit CheckList(Move* list) : moves(list) {}

    Move* moves;
    int scores[kMaxMoves];
    int count = 0;

    void add(Move m, int score) {
        assert(count < kMaxMoves);
        moves[count] = m;
        scores[count++] = score;
    }

    // Selection by score, highest first: each place takes the first maximum of the rest.
    void sort() {
        for (int i = 0; i < count; ++i) {
            int best = i;
            for (int j = i + 1; j < count; ++j)
                if (scores[j] > scores[best]) best = j;
            const Move m = moves[i];
            const int s = scores[i];
            moves[i] = moves[best];
            scores[i] = scores[best];
            moves[best] = m;
            scores[best] = s;
        }
    }
};

int queenCheckScore(int to, int king) {
    const int df = fileOf(to) - fileOf(king), dr = rankOf(to) - rankOf(king);
    const int distance = (df < 0 ? -df : df) + (dr < 0 ? -dr : dr);
    return kQueenScoreStep * (kQueenNearDistance - distance);
}

// Moves of the pieces in kingBlockers[them] that open one of our lines onto their king.
void discoveredChecks(const Position& pos, CheckList& out, int us, int up) {
    const int them = us ^ 1;
    const int king = static_cast<int>(pos.side[them].kingSquare);
    const Bitboard ours = pos.side[us].pieces[0], occ = pos.occupied;
    const Bitboard movers = ours & pos.state.kingBlockers[them] & ~pos.state.kingBlockers[us] &
                            ~pos.side[us].pieces[QUEEN];
    const Bitboard startRank = rankMask[us == WHITE ? 1 : 6];
    for (Bitboard b = movers; b;) {
        const int from = popLsb(b);
        const Bitboard off = ~line[from][king];
        Bitboard targets;
        switch (typeOf(pos.board[from])) {
            case PAWN: {
                // Promotions belong to the capture generator. A double step stays on the file
                // of the single one, so it opens the line exactly when that one does.
                const int push = from + up;
                const Bitboard backRanks = kRank1 | kRank8;
                if (!(occ & squareBit[push]) && (off & squareBit[push]) &&
                    !(backRanks & squareBit[push])) {
                    if ((startRank & squareBit[from]) && !(occ & squareBit[push + up]))
                        out.add(makeMoveWord(from, push + up, 0) | kDoubleStepFlag,
                                kDoubleStepScore);
                    out.add(makeMoveWord(from, push, 0), kDiscoveredScore);
                }
                targets = pawnAttacks[us][from] & pos.side[them].pieces[0] & ~backRanks;
                break;
            }
            case KNIGHT:
                targets = knightAttacks[from];
                break;
            case BISHOP:
                targets = bishopAttacks(from, occ);
                break;
            case ROOK:
                targets = rookAttacks(from, occ);
                break;
            default:  // the king
                targets = kingAttacks[from] & ~pos.state.enemyAttacks;
                break;
        }
        for (targets &= off & ~ours; targets;) {
            const int to = popLsb(targets);
            out.add(makeMoveWord(from, to, pos.board[to]),
                    kDiscoveredScore + pieceValue[typeOf(pos.board[to])]);
        }
    }
}

// Pawn moves onto the squares from which a pawn of ours attacks their king.
void pawnChecks(const Position& pos, CheckList& out, int us, int up, Bitboard targets) {
    const int them = us ^ 1;
    const int king = static_cast<int>(pos.side[them].kingSquare);
    const int ourKing = static_cast<int>(pos.side[us].kingSquare);
    const Bitboard pawns = pos.side[us].pieces[PAWN], occ = pos.occupied;
    const Bitboard pinned = pos.state.kingBlockers[us];
    const Bitboard victims = targets & pos.side[them].pieces[0];
    const int rank = rankOf(king) - 2 * (up / 8);
    if (rank < 1 || rank > 6) return;

    for (Bitboard b = pawns & rankMask[rank]; b;) {
        const int from = popLsb(b), push = from + up;
        const bool isPinned = (pinned & squareBit[from]) != 0;
        const int df = fileOf(from) - fileOf(king);
        if ((df == 1 || df == -1) && !(occ & squareBit[push])) {
            if (isPinned && !(line[ourKing][from] & squareBit[push])) continue;
            const Move m = makeMoveWord(from, push, 0);
            if (see(pos, m) >= 0) out.add(m, kPawnPushScore);
        }
        for (const int side : {1, -1}) {
            const int file = fileOf(push) + side;
            if (file < 0 || file > 7) continue;
            const int to = push + side;
            if ((victims & squareBit[to]) && (pawnAttacks[us][to] & squareBit[king]) &&
                (!isPinned || (line[ourKing][from] & squareBit[to])))
                out.add(makeMoveWord(from, to, pos.board[to]), kPawnCaptureScore);
        }
    }

    // Double steps onto the squares diagonally in front of a king on our fifth rank.
    if (rankOf(king) != (us == WHITE ? 4 : 3)) return;
    for (const int side : {-1, 1}) {
        const int file = fileOf(king) + side;
        if (file < 0 || file > 7) continue;
        const int to = king - up + side, over = to - up, from = over - up;
        if (!(occ & (squareBit[to] | squareBit[over])) && (pawns & squareBit[from]) &&
            !(pinned & squareBit[from]))
            out.add(makeMoveWord(from, to, 0) | kDoubleStepFlag, kDoubleStepScore);
    }
}

// Moves of the sliders in `pieces` onto targets from which they attack the king along
// `lines`, passing over nothing but `seeThrough` on the way to it. Queens (byDistance) score
// higher the closer they land to the king.
void sliderChecks(const Position& pos, CheckList& out, Bitboard pieces, const Bitboard* lines,
                  Bitboard targets, Bitboard seeThrough, int score, bool byDistance) {
    const int us = static_cast<int>(pos.sideToMove);
    const int king = static_cast<int>(pos.side[us ^ 1].kingSquare);
    const int ourKing = static_cast<int>(pos.side[us].kingSquare);
    const Bitboard occ = pos.occupied, pinned = pos.state.kingBlockers[us];
    const Bitboard checkSquares = targets & lines[king];
    for (Bitboard b = pieces; b;) {
        const int from = popLsb(b);
        Bitboard squares = checkSquares & lines[from];
        if (pinned & squareBit[from]) squares &= line[ourKing][from];
        while (squares) {
            const int sq = popLsb(squares);
            if ((between[from][sq] & occ) || (between[sq][king] & occ & ~seeThrough)) continue;
            const Move m = makeMoveWord(from, sq, pos.board[sq]);
            if (see(pos, m) >= 0) out.add(m, byDistance ? queenCheckScore(sq, king) : score);
        }
    }
}

}  // namespace

Move* generateQuietChecks(const Position& pos, Move* list, int margin) {
    const int us = static_cast<int>(pos.sideToMove), them = us ^ 1;
    const int up = us == WHITE ? 8 : -8;
    const SideBlock& s = pos.side[us];
    const SideBlock& t = pos.side[them];
    const int king = static_cast<int>(t.kingSquare);
    CheckList out(list);

    // 1. Targets: empty squares and the victims too cheap for the capture generator. A pawn on
    // its seventh rank counts as a queen there, so it is only ours once queens are.
    const Bitboard promoting = t.pieces[PAWN] & rankMask[us == WHITE ? 1 : 6];
    Bitboard targets = ~pos.occupied;
    if (margin >= 2) targets |= t.pieces[PAWN] & ~promoting;
    if (margin >= 4) targets |= t.pieces[KNIGHT] | t.pieces[BISHOP];
    if (margin >= 6) targets |= t.pieces[ROOK];
    if (margin >= 11) targets |= t.pieces[QUEEN] | promoting;

    // 2. Discovered checks, with any capture.
    discoveredChecks(pos, out, us, up);
    // 3. Pawn checks.
    pawnChecks(pos, out, us, up, targets);
    // 4. Knight checks.
    const Bitboard knightChecks = knightAttacks[king] & targets;
    for (Bitboard b = s.pieces[KNIGHT] & ~pos.state.kingBlockers[us]; b;) {
        const int from = popLsb(b);
        for (Bitboard to = knightAttacks[from] & knightChecks; to;) {
            const int sq = popLsb(to);
            const Move m = makeMoveWord(from, sq, pos.board[sq]);
            if (see(pos, m) >= 0) out.add(m, kKnightScore);
        }
    }
    // 5-6. Bishop and rook checks; an enemy queen in the way is pinned or lost, so it counts.
    sliderChecks(pos, out, s.pieces[BISHOP], bishopLines, targets, t.pieces[QUEEN], kBishopScore,
                 false);
    sliderChecks(pos, out, s.pieces[ROOK], rookLines, targets, t.pieces[QUEEN], kRookScore, false);
    // 7. Queen checks, the closer to the king the better.
    sliderChecks(pos, out, s.pieces[QUEEN], queenLines, targets, 0, 0, true);

    out.sort();
    return list + out.count;
}

}  // namespace quarn
