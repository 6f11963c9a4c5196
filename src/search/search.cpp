// The full-width search below the root: table probe, null move, internal deepening, the hash
// move, then the generated moves with futility pruning and late-move reductions.
#include "search/search.h"

#include <cmath>

#include "board/movegen.h"
#include "eval/evaluate.h"
#include "eval/see.h"
#include "eval/threats.h"
#include "search/node.h"
#include "search/ordering.h"
#include "search/pool.h"
#include "search/timecontrol.h"
#include "search/tt.h"

namespace quarn {

namespace {

// Null move: passing and still beating beta with a search several plies shallower (see
// nullReduction) is strong evidence. The static score must clear beta by a margin first, or
// the pass rarely cuts and its search is wasted. With few pieces, where zugzwang makes passing
// better than any move, a verification search six plies shallower must confirm the cut.
constexpr int kNullReductionBase = 3;
constexpr int kNullReductionDepthDivisor = 3;
constexpr int kNullReductionScoreUnit = 200;
constexpr int kNullReductionScoreMax = 3;
constexpr int kNullMargin = 8;
constexpr int kNullVerifyReduction = 6;
constexpr int kNullVerifyPieces = 4;
// Static margin cut: up to depth 7, a node this many points a ply above beta is cut. Most of a
// pawn a ply: a quiet ply rarely swings the score further, and the quiescence search below
// still resolves the captures.
constexpr int kStaticCutDepth = 7;
constexpr int kStaticCutMargin = 85;
// Internal reduction from depth 4: shallower nodes are cheap to search in full anyway.
constexpr int kInternalReductionDepth = 4;
// A winning recapture is extended a ply from depth 4: nearer the horizon the quiescence
// search resolves the exchange anyway, and the extension would only multiply small trees.
constexpr int kRecaptureDepth = 4;
// Futility: near the horizon a quiet late move gains little beyond positional terms, some
// 90 points a ply with 90 more for the move itself, so a node that stays below alpha by the
// margin of its depth even after such a gain can skip the move. Up to depth 7.
constexpr int kFutilityDepth = 7;
constexpr int kFutilityBase = 90;
constexpr int kFutilityPerPly = 90;
// Late moves lose plies by depth and move number: the later a move comes in a well-ordered
// list and the more depth is left, the less likely it is to turn the node, and the more a
// shallower look saves. Natural logarithms of both, scaled so that the fifth move at depth 8
// loses two plies. No reduction below depth 3, where the saving is small.
constexpr double kReductionBase = 0.5;
constexpr double kReductionDivisor = 2.0;
constexpr int kReductionDepth = 3;
constexpr int kReductionTableSize = 64;
// Exchange-loss pruning up to depth 6; the exchange count is in pawns, the margins in points.
constexpr int kExchangeLossDepth = 6;
constexpr int kPawnPoints = 100;
constexpr int kQuietLossMargin = 60;
constexpr int kCaptureLossMargin = 20;
// Late-move pruning up to depth 8: after 3 + d * d / 2 moves (twice as many while improving)
// the quiet moves left are skipped, in a node with more than four moves: a list that short
// says nothing of the order, and each move skipped is a large share of the defence.
constexpr int kMoveCountDepth = 8;
constexpr int kShortList = 4;
constexpr int moveCountLimit(int depth, bool improving) {
    return improving ? 3 + depth * depth : (3 + depth * depth) / 2;
}
// History pruning up to depth 4: a late quiet move whose history (the three tables together)
// is below -2048 a ply is skipped.
constexpr int kHistoryPruneDepth = 4;
constexpr int kHistoryPruneUnit = 2048;
// Quiet moves with a good history are reduced a ply less per this much of it (the three tables
// together), a bad one a ply more.
constexpr int kHistoryReductionUnit = 8192;
// A node behind alpha counts as tactical the moves that attack a piece worth the gap: behind
// by less than a queen (11 pawns, counted generously) hitting the queen could catch up.
constexpr int kQueenGap = 1100, kRookGap = 700, kBishopGap = 500;

// Squares and pieces a move must hit to count as tactical when the node is behind.
struct TacticalContext {
    Bitboard targets;     // around the enemy king, the king, and enemy pieces by the gap
    Bitboard kingRing;    // squares next to the enemy king
    int enemyKing;
    Bitboard ownPawns;
    Bitboard diagonalSliders, lineSliders;
    int us;
};

TacticalContext tacticalContext(const Position& pos, int gap) {
    const int us = static_cast<int>(pos.sideToMove), them = us ^ 1;
    const SideBlock& s = pos.side[us];
    const SideBlock& e = pos.side[them];
    TacticalContext c;
    c.us = us;
    c.enemyKing = static_cast<int>(e.kingSquare);
    c.kingRing = kingAttacks[c.enemyKing];
    c.targets = c.kingRing | squareBit[c.enemyKing];
    if (gap < kQueenGap) c.targets |= e.pieces[QUEEN];
    if (gap < kRookGap) c.targets |= e.pieces[ROOK];
    if (gap < kBishopGap) c.targets |= e.pieces[BISHOP];
    c.ownPawns = s.pieces[PAWN];
    c.diagonalSliders = s.pieces[BISHOP] | s.pieces[QUEEN];
    c.lineSliders = s.pieces[ROOK] | s.pieces[QUEEN];
    return c;
}

// At most one piece between a slider on `from` and the king, once `vacated` is empty.
bool nearlyOpen(const Position& pos, int from, int king, Bitboard vacated) {
    const Bitboard b = between[from][king] & pos.occupied & ~vacated;
    return !moreThanOne(b);
}

// A move that may win back what the node lacks: it attacks the king's ring or a piece worth
// the gap, advances a pawn to the far ranks, supports a pawn there, opens a line to the king,
// or discovers an attack through the square it leaves. Such moves are neither pruned nor
// fully reduced: these are exactly the quiet moves whose value the static score cannot see.
bool isTactical(const Position& pos, const TacticalContext& c, Move m) {
    const int from = fromSquare(m), to = toSquare(m), type = typeOf(pos.board[from]);
    const int king = c.enemyKing;
    const Bitboard occ = pos.occupied;
    switch (type) {
        case PAWN:
            if ((kFarRanks & squareBit[to]) || (pawnAttacks[c.us][to] & c.targets)) return true;
            break;
        case KNIGHT:
            if (knightAttacks[to] & c.targets) return true;
            break;
        case KING:
            // A king next to the other one's ring takes part in a mating net (endings).
            if (kingAttacks[to] & c.kingRing) return true;
            break;
        default: {
            // A piece guarding our pawn's way on the far ranks helps it promote.
            if ((kFarRanks & squareBit[to]) && (pawnAttacks[c.us ^ 1][to] & c.ownPawns)) return true;
            if (type == BISHOP && (bishopAttacks(to, occ) & c.targets)) return true;
            // A rook onto a line through the king's ring, not the line it came along.
            if (type == ROOK) {
                const Bitboard ring = c.kingRing & rookLines[to] & ~line[from][to];
                if (ring && (rookAttacks(to, occ) & ring)) return true;
            }
            const Bitboard lines = sliderLines(type, to);
            // A slider lined up with the king behind at most one piece: a pin or a check next.
            if ((lines & squareBit[king]) && !moreThanOne(between[to][king] & occ)) return true;
            if (type == QUEEN) return false;
        }
    }
    // Discovered attacks and x-rays through the square the piece leaves.
    if (!(queenLines[king] & squareBit[from])) return false;
    const Bitboard ray = line[king][from];
    if (ray & squareBit[to]) return false;
    const Bitboard sliders = ((bishopLines[king] & squareBit[from]) ? c.diagonalSliders : c.lineSliders) & ray;
    for (Bitboard b = sliders; b;) {
        const int s = popLsb(b);
        if (s != from && nearlyOpen(pos, s, king, squareBit[from])) return true;
    }
    return false;
}

// Recapture extension: the opponent just captured on the square this move takes back on.
int recaptureExtension(const Position& pos, Move m, int depth) {
    if (depth < kRecaptureDepth) return 0;
    const Move last = pos.moveHistory[pos.ply];
    if (!last || !capturedCode(last) || toSquare(last) != toSquare(m)) return 0;
    return see(pos, m) >= 1 ? 1 : 0;
}

// Plies a late move loses, by depth and move number (both capped at the table's size).
int reductionTable[kReductionTableSize][kReductionTableSize];

int lateReduction(int depth, int moveNumber) {
    const int d = depth < kReductionTableSize ? depth : kReductionTableSize - 1;
    const int n = moveNumber < kReductionTableSize ? moveNumber : kReductionTableSize - 1;
    return reductionTable[d][n];
}

// Singular extension from depth 8, for a table entry at most three plies shallower; the other
// moves must stay two points a ply below its score.
constexpr int kSingularDepth = 8;
constexpr int kSingularDepthSlack = 3;
constexpr int kSingularMargin = 2;
// Check extension: a move that gives check is searched a ply deeper (the move is made, so the
// side to move is the one in check). Checks force the reply, so the extra ply costs few nodes
// and keeps mating attacks and perpetual checks inside the horizon. Not a check whose piece the
// exchange count loses: a run of such spite checks only pushes the horizon back.
int withCheckExtension(const SearchThread& t, Move m, int extension) {
    return extension == 0 && inCheck(t.pos) && squareExchange(t.pos, toSquare(m)) >= 0 ? 1 : extension;
}

// One node's state, handed from phase to phase.
struct Node {
    int ply, depth, alpha, beta;
    uint32_t flags;
    bool pvNode, inCheck, reductionsOn, improving;
    int staticEval;
    Move hashMove, threat;
    int hashExtension;  // what the hash move earned when it was stored
    Move excluded;      // left out by a singular-extension test; no table cut-off or store
    int ttScore, ttDepth, ttBound;  // the table entry, for the singular-extension test
    int alphaOrig, best;
    Move bestMove;
    int bestExtension;  // what the best move was extended by, for the table
};

// Plies the null move's search loses: three, a ply more for every three of depth (the deeper
// the node, the more a shallower look saves), and up to three more the further the static
// score is above beta (the more certain the cut).
int nullReduction(const Node& n) {
    const int ahead = (n.staticEval - n.beta) / kNullReductionScoreUnit;
    return kNullReductionBase + n.depth / kNullReductionDepthDivisor +
           (ahead < kNullReductionScoreMax ? ahead : kNullReductionScoreMax);
}

// 6. Null move: pass, and if a shallow search still beats beta the node is not worth a full
// search. Not in check, not twice in a row, not without a piece (pawn endings are zugzwang
// territory), and only when the static score already clears beta. With few pieces a
// verification search confirms the cut. The reply that refuted the pass is the threat the
// move ordering answers first. True when `result` ends the node.
bool nullMoveEnds(SearchThread& t, Node& n, int& result) {
    Position& pos = t.pos;
    const SideBlock& own = pos.side[pos.sideToMove];
    if (n.inCheck || n.excluded || pos.moveHistory[pos.ply] == kNullMove || !(n.flags & NULL_ALLOWED) ||
        !(own.pieces[BISHOP] | own.pieces[ROOK] | own.pieces[QUEEN]) || n.staticEval - kNullMargin < n.beta)
        return false;
    const UndoState saved = pos.state;
    t.moveKeys[n.ply + 2] = kNoContinuation;
    makeSearchNullMove(pos);
    ++t.stats.nullTries;
    const int s = -search(t, n.ply + 1, n.depth - 1 - nullReduction(n), -n.beta, -n.alpha, n.flags ^ kSwapExpectation);
    takeBack(pos, kNullMove, saved);
    result = stopScore();
    if (t.stopped()) return true;
    n.threat = t.pv[n.ply + 1][0];
    if (s < kMateThreshold && s >= n.beta) {
        bool cut = true;
        if (materialPieces(own.material) < kNullVerifyPieces && (n.depth > kNullVerifyReduction || n.ply < 3)) {
            const int vDepth = n.depth - kNullVerifyReduction > 1 ? n.depth - kNullVerifyReduction : 1;
            cut = search(t, n.ply, vDepth, n.alpha, n.beta, NODE_CUT) >= n.beta;
            if (t.stopped()) return true;
        }
        if (cut) {
            t.pv[n.ply][0] = 0;
            lowerBound(pos, n.ply, n.depth, s, 0, n.staticEval);
            ++t.stats.nullCuts;
            result = s;
            return true;
        }
    }
    // Passing would lose at once: tell a reducing parent to search this move fully.
    if ((n.flags & REDUCED_CHILD) && n.threat && s == matedIn(n.ply + 2)) {
        result = -kInfinity;
        return true;
    }
    return false;
}

// 7. Internal reduction: an expected PV or cut node without a hash move is searched a ply
// shallower. Without a move from an earlier search its ordering is poor and its tree costly;
// the next iteration finds the node again with a hash move and searches it in full.
void reduceWithoutHashMove(SearchThread& t, Node& n) {
    if (n.hashMove || n.excluded || n.depth < kInternalReductionDepth || !(n.flags & (NODE_PV | NODE_CUT)))
        return;
    ++t.stats.iid;
    --n.depth;
}

// A quiet move cut off: it gains history (as a continuation of the moves before it too) and
// becomes the counter move of the move before; the `tried` quiet moves searched before it in
// vain lose as much. Out of check it becomes a killer as well.
void rewardCutoff(SearchThread& t, const Node& n, Move m, const Move* tried, int triedCount) {
    const Position& pos = t.pos;
    MoveHistory& h = *t.history;
    const int side = static_cast<int>(pos.sideToMove), bonus = historyBonus(n.depth);
    const uint16_t prev1 = t.moveKeys[n.ply + 1], prev2 = t.moveKeys[n.ply];
    if (!n.inCheck) updateKillers(t, n.ply, m);
    rewardQuiet(h, side, m, continuationKey(pos, m), prev1, prev2, bonus);
    for (int i = 0; i < triedCount; ++i)
        rewardQuiet(h, side, tried[i], continuationKey(pos, tried[i]), prev1, prev2, -bonus);
    if (prev1 != kNoContinuation) h.counter[prev1] = m;
}

// A cut-off at `depth`: the captures searched before it in vain lose capture history, and the
// move gains it when it is a capture itself.
void rewardCaptures(SearchThread& t, int depth, Move m, const Move* tried, int triedCount) {
    const Position& pos = t.pos;
    MoveHistory& h = *t.history;
    const int bonus = historyBonus(depth);
    if (!isQuiet(m)) addHistory(captureHistory(h, pos, m), bonus);
    for (int i = 0; i < triedCount; ++i) addHistory(captureHistory(h, pos, tried[i]), -bonus);
}

// Singular extension: a hash move from a deep enough lower bound that all other moves fail
// well below (a search half as deep, leaving it out, against its score less a margin a ply)
// is the only good move here, and is searched a ply deeper. When the other moves reach the
// margin's bound and that bound is at least beta, several moves beat beta: the node is cut
// there (-1, with `result` set). Otherwise 0.
int singularExtension(SearchThread& t, const Node& n, int& result) {
    if (n.depth < kSingularDepth || n.excluded || n.ttDepth < n.depth - kSingularDepthSlack ||
        (n.ttBound != BOUND_LOWER && n.ttBound != BOUND_EXACT) || n.ttScore >= kMateThreshold ||
        n.ttScore <= -kMateThreshold)
        return 0;
    const int singularBeta = n.ttScore - kSingularMargin * n.depth;
    t.excluded[n.ply] = n.hashMove;
    const int s = search(t, n.ply, (n.depth - 1) / 2, singularBeta - 1, singularBeta, n.flags & ~uint32_t{NODE_PV});
    t.excluded[n.ply] = 0;
    if (t.stopped()) {
        result = stopScore();
        return -1;
    }
    if (s < singularBeta) return 1;
    if (singularBeta >= n.beta) {
        result = singularBeta;
        return -1;
    }
    return 0;
}

// 8. The hash move, before any generation: it often cuts, and then nothing is generated. It
// keeps the extension it earned when it was stored, and stores it again with the move: a
// single reply is extended on every visit, not only the first.
bool hashMoveEnds(SearchThread& t, Node& n, const UndoState& saved, int& result) {
    if (!n.hashMove) return false;
    Position& pos = t.pos;
    const Move m = n.hashMove;
    const int earned = n.hashExtension;
    int extension = earned ? earned : recaptureExtension(pos, m, n.depth);
    if (extension == 0) {
        const int singular = singularExtension(t, n, result);
        if (singular < 0) return true;
        extension = singular;
    }
    t.moveKeys[n.ply + 2] = continuationKey(pos, m);
    playMove(t, m);
    const int s = -search(t, n.ply + 1, n.depth - 1 + withCheckExtension(t, m, extension), -n.beta, -n.alpha, n.flags ^ kSwapExpectation);
    takeBack(pos, m, saved);
    result = stopScore();
    if (t.stopped()) return true;
    if (s >= n.beta) {
        if (isQuiet(m))
            rewardCutoff(t, n, m, nullptr, 0);
        else
            rewardCaptures(t, n.depth, m, nullptr, 0);
        setSinglePv(t, n.ply, m);
        lowerBound(pos, n.ply, n.depth, s, m, n.staticEval, earned);
        ++t.stats.cutNodes;
        ++t.stats.firstMoveCuts;
        result = s;
        return true;
    }
    raiseBest(t, n.ply, m, s, n.best, n.bestMove, n.alpha);
    n.bestExtension = earned;
    return false;
}

// Futility value of the node: only with heavy pieces on both sides, where a quiet move's
// effect on the score is small next to the margins.
int futilityValue(const Position& pos, const Node& n) {
    if (n.inCheck || n.depth > kFutilityDepth) return kInfinity;
    const SideBlock& own = pos.side[pos.sideToMove];
    const SideBlock& other = pos.side[pos.sideToMove ^ 1];
    const bool heavy = (own.pieces[ROOK] | own.pieces[QUEEN]) && (other.pieces[ROOK] | other.pieces[QUEEN]);
    return heavy ? n.staticEval + kFutilityBase + kFutilityPerPly * n.depth : kInfinity;
}

// The generated moves of a node, in the order the loop picks them, and the quiet moves and
// captures it has searched so far (they lose history when a later move cuts off).
struct MoveList {
    Move moves[kMaxMoves];
    int scores[kMaxMoves];
    uint8_t early[kMaxMoves];
    int count;
    Move quietsTried[kMaxMoves];
    int quietCount;
    Move capturesTried[kMaxMoves];
    int captureCount;
};

// What the node knows before its move loop: the tactical marks, the futility value and the
// single-reply extension.
struct LoopContext {
    bool marking;
    TacticalContext tactics;
    int futility;
    int singleReply;
    int moveCount;  // legal moves of the node
};

// What the loop does with one move: skip it, or search it `extension` plies deeper, first
// `reduction` plies shallower with a null window.
struct MovePlan {
    bool pruned;
    bool futile;  // pruned by futility: the futility value stands in as its score
    bool tactical;
    int extension;
    int reduction;
};

// 9.2 The plan of one move. A late quiet move below the futility value is pruned (unless it is
// tactical and safe); a single evasion or a winning recapture is extended; a late move is
// reduced by the table, a ply more when the position does not improve, less in a PV node, for
// a tactical move, a killer or counter move, and for a move with a good history, more for one
// with a bad history.
MovePlan planMove(SearchThread& t, const Node& n, const LoopContext& c, Move m, int moveNumber,
                  bool late) {
    const Position& pos = t.pos;
    MovePlan p{false, false, c.marking && isTactical(pos, c.tactics, m), 0, 0};
    const int ply = n.ply;
    if (late && c.futility < n.alpha && isQuiet(m) && !(p.tactical && see(pos, m) >= 0)) {
        p.pruned = p.futile = true;
        return p;
    }
    // Exchange-loss pruning: near the horizon, a late move that loses material by the exchange
    // count, more than the depth left can plausibly win back, is skipped: a quiet move by a
    // margin a ply, a capture by a margin growing with the square of the depth (a capture's
    // loss is more often an attack's price).
    if (late && !n.pvNode && !p.tactical && n.depth <= kExchangeLossDepth && n.best > -kMateThreshold) {
        const int limit = isQuiet(m) ? -kQuietLossMargin * n.depth : -kCaptureLossMargin * n.depth * n.depth;
        if (see(pos, m) * kPawnPoints < limit) {
            p.pruned = true;
            return p;
        }
    }
    // Late-move pruning: near the horizon, once enough quiet moves have failed, the rest of a
    // well-ordered list will too; twice as many are tried while the position improves. Not in
    // a short list: a few moves are no sign of order, and a king with three squares that must
    // hold a corner would be left only the ways out of it.
    if (late && c.moveCount > kShortList && !n.pvNode && isQuiet(m) && !p.tactical && n.depth <= kMoveCountDepth &&
        n.best > -kMateThreshold && moveNumber > moveCountLimit(n.depth, n.improving)) {
        p.pruned = true;
        return p;
    }
    // Looked up only for the moves that got this far: it costs memory accesses.
    const int history = isQuiet(m) ? quietScore(*t.history, static_cast<int>(pos.sideToMove), m,
                                                continuationKey(pos, m), t.moveKeys[ply + 1], t.moveKeys[ply])
                                   : 0;
    // History pruning: near the horizon, a late quiet move that has failed again and again in
    // this kind of position (its history far below zero) is skipped.
    if (late && !n.pvNode && isQuiet(m) && !p.tactical && n.depth <= kHistoryPruneDepth &&
        n.best > -kMateThreshold && history < -kHistoryPruneUnit * n.depth) {
        p.pruned = true;
        return p;
    }
    p.extension = c.singleReply ? c.singleReply : recaptureExtension(pos, m, n.depth);
    if (!late || !n.reductionsOn || n.depth < kReductionDepth) return p;
    int r = lateReduction(n.depth, moveNumber);
    if (!n.improving) ++r;
    if (n.pvNode) --r;
    if (p.tactical) --r;
    if (isQuiet(m)) {
        if (sameMove(m, t.killers[ply][1]) || sameMove(m, t.history->counter[t.moveKeys[ply + 1]])) --r;
        r -= history / kHistoryReductionUnit;
    }
    const int newDepth = n.depth - 1 + p.extension;
    p.reduction = r < 0 ? 0 : r > newDepth - 1 ? newDepth - 1 : r;
    return p;
}

// 9.3 Searches one move after its plan: a reduced null-window search first, which stands when
// it fails low (unless a tactical move was refuted by a quiet reply); then full depth, in a PV
// node with a null window first once a move is found. The move is made and taken back here.
int searchMove(SearchThread& t, Node& n, Move m, const MovePlan& p, const UndoState& saved) {
    const int ply = n.ply;
    t.moveKeys[ply + 2] = continuationKey(t.pos, m);
    playMove(t, m);
    const int newDepth = n.depth - 1 + withCheckExtension(t, m, p.extension);
    int s;
    if (p.reduction > 0) {
        ++t.stats.reduceTries;
        s = -search(t, ply + 1, newDepth - p.reduction, -n.alpha - 1, -n.alpha, REDUCED_CHILD | NULL_ALLOWED | NODE_CUT);
        const Move reply = t.pv[ply + 1][0];
        const bool quietRefutation = p.tactical && reply && !capturedCode(reply);
        if (t.stopped() || (!quietRefutation && s <= n.alpha)) {
            takeBack(t.pos, m, saved);
            return s;
        }
        ++t.stats.reduceFails;
    }
    if (n.pvNode) {
        bool searched = false;
        if (n.bestMove) {
            s = -search(t, ply + 1, newDepth, -n.alpha - 1, -n.alpha, NULL_ALLOWED | NODE_CUT);
            searched = t.stopped() || s <= n.alpha;
        }
        if (!searched) s = -search(t, ply + 1, newDepth, -n.beta, -n.alpha, NODE_PV);
    } else {
        s = -search(t, ply + 1, newDepth, -n.beta, -n.alpha, (n.flags ^ kSwapExpectation) | NULL_ALLOWED);
    }
    takeBack(t.pos, m, saved);
    return s;
}

// The side to move faces a threat its static score does not count: a mate in one, or material
// about to be lost. Costs a few attack lookups; asked only where a cut would follow.
bool threatened(const Position& pos) {
    const int us = static_cast<int>(pos.sideToMove);
    return threatScore(pos, us) > 0 || mateThreatMove(pos, us) != 0;
}

// A move that scored `s` without beating beta: the best so far if it beat that.
void noteScore(SearchThread& t, Node& n, Move m, int s, int extension) {
    if (s <= n.best) return;
    t.stats.pvNodes += s > n.alpha;
    raiseBest(t, n.ply, m, s, n.best, n.bestMove, n.alpha);
    n.bestExtension = extension;
}

// 9. The generated moves, picked best first; each is planned, then pruned or searched.
// Returns the node's score.
int moveLoop(SearchThread& t, Node& n, const UndoState& saved) {
    Position& pos = t.pos;
    const int ply = n.ply;
    // 9.1 Generation and ordering; no move is mate or stalemate. Evasions come sorted, and none
    // is late; other moves are picked best first as the loop goes, so that a node cut off early
    // sorts little. A node behind alpha marks the moves that hit something: they are reduced
    // less and never pruned, since they are how the side behind catches up.
    MoveList list;
    Move* end = n.inCheck ? generateEvasions(pos, list.moves) : generateAll(pos, list.moves);
    list.count = static_cast<int>(end - list.moves);
    list.quietCount = 0;
    list.captureCount = 0;
    if (list.count == 0) {
        ++t.stats.mates;
        return n.inCheck ? matedIn(ply) : 0;
    }
    LoopContext c{n.staticEval <= n.alpha, {}, futilityValue(pos, n), (n.inCheck && list.count == 1) ? 1 : 0, list.count};
    if (n.inCheck)
        orderEvasions(pos, list.moves, end, n.hashMove);
    else
        scoreMoves(t, ply, list.moves, list.count, n.threat, n.hashMove, list.scores, list.early);
    if (c.marking) c.tactics = tacticalContext(pos, n.alpha - n.staticEval);
    int moveNumber = n.hashMove ? 1 : 0;
    bool quietsScored = false;
    for (int i = 0; i < list.count; ++i) {
        if (!n.inCheck) {
            pickBest(list.moves, list.scores, list.early, i, list.count);
            // The first plain quiet move is due: all of them get their history now.
            if (!quietsScored && list.scores[i] == kUnscoredQuiet) {
                scoreQuiets(t, ply, list.moves, list.scores, i, list.count);
                quietsScored = true;
                pickBest(list.moves, list.scores, list.early, i, list.count);
            }
        }
        const Move m = list.moves[i];
        if ((n.hashMove && sameMove(m, n.hashMove)) || m == n.excluded) continue;
        ++moveNumber;
        const bool killer = sameMove(m, t.killers[ply][0]) || sameMove(m, t.killers[ply][1]);
        t.stats.killerTries += killer;
        // Once a move is found, the rest of a non-PV node are expected all-nodes.
        if (!n.pvNode && n.bestMove) n.flags = (n.flags & ~7u) + NODE_ALL;
        const MovePlan p = planMove(t, n, c, m, moveNumber, !n.inCheck && !list.early[i]);
        if (p.pruned) {
            ++t.stats.pruned;
            if (p.futile) noteScore(t, n, m, c.futility, 0);
            continue;
        }
        if (isQuiet(m))
            list.quietsTried[list.quietCount++] = m;
        else
            list.capturesTried[list.captureCount++] = m;
        const int s = searchMove(t, n, m, p, saved);
        if (t.stopped()) return stopScore();
        if (s < n.beta) {
            noteScore(t, n, m, s, c.singleReply);
            continue;
        }
        // 9.4 Cut-off: a lower bound, and a quiet refutation becomes a killer and gains history
        // over the quiet moves tried before it; a capture gains over the captures before it.
        t.stats.killerCuts += killer;
        t.stats.firstMoveCuts += !n.hashMove && i == 0;
        if (isQuiet(m)) rewardCutoff(t, n, m, list.quietsTried, list.quietCount - 1);
        rewardCaptures(t, n.depth, m, list.capturesTried, list.captureCount - !isQuiet(m));
        setSinglePv(t, ply, m);
        if (!n.excluded) lowerBound(pos, ply, n.depth, s, m, n.staticEval, c.singleReply);
        ++t.stats.cutNodes;
        return s;
    }
    // 9.5 All-node or PV node.
    if (!n.excluded) storeBounded(pos, ply, n.depth, n.alphaOrig, n.best, n.bestMove, n.staticEval, n.bestExtension);
    if (n.alphaOrig >= n.best) {
        ++t.stats.allNodes;
    } else {
        ++t.stats.pvNodes;
        const Move first = n.hashMove ? n.hashMove : list.moves[0];
        t.stats.firstMovePv += sameMove(n.bestMove, first);
    }
    return n.best;
}

}  // namespace

void initSearchTables() {
    for (int d = 1; d < kReductionTableSize; ++d)
        for (int n = 1; n < kReductionTableSize; ++n)
            reductionTable[d][n] =
                static_cast<int>(kReductionBase + std::log(d) * std::log(n) / kReductionDivisor);
}

void takeBack(Position& pos, Move m, const UndoState& saved) {
    if (m) {
        unmakeMove(pos, m, saved);
        return;
    }
    --pos.ply;
    pos.hashKey = pos.keyHistory[pos.ply];
    pos.state = saved;
    pos.sideToMove ^= 1;
}

void makeSearchNullMove(Position& pos) {
    makeNullMove(pos);
    tt.prefetch(pos);
    computeAttackInfo(pos);
}

void updateKillers(SearchThread& t, int ply, Move m) {
    Move(&k)[2] = t.killers[ply];
    // A move already in slot 1 swaps up; any other move replaces slot 0 only.
    if (m == k[1]) k[1] = k[0];
    k[0] = m;
}

bool testLimits(SearchThread& t) {
    t.publishNodes();
    // The master watches the budget and stops the helpers when it ends; a helper only stops
    // itself at the hard node cap.
    const bool over = t.index != 0 ? t.nodeCap != 0 && publishedTotal() >= t.nodeCap
                                   : timeControl.outOfBudget(budgetNodes(t));
    if (over) t.requestStop();
    return over;
}

int search(SearchThread& t, int ply, int depth, int alpha, int beta, uint32_t flags) {
    Position& pos = t.pos;
    // 1. Stopped; the horizon; the limits every 256 nodes; seldepth and an empty PV.
    if (t.stopped()) return stopScore();
    if (depth < 1) {
        ++t.stats.frontier;
        return quiesce(t, ply, 2, alpha, beta, flags | FROM_SEARCH);
    }
    ++t.stats.nodes;
    if (limitsReached(t)) return stopScore();
    if (ply > t.maxPly) t.maxPly = ply;
    t.pv[ply][0] = 0;
    // 2. Draws, and the lone-king endings the mate tables know.
    if (drawnByRules(t, ply, beta)) return 0;
    if (int known; loneKingScore(t, ply, flags, known)) return known;
    // 3. Transposition table.
    Node n;
    n.pvNode = flags & NODE_PV;
    n.excluded = t.excluded[ply];
    const TableProbe probe = probeTable<true>(t, ply, depth, alpha, beta, n.pvNode, !n.excluded);
    if (probe.cut) return probe.score;
    n.staticEval = probe.staticEval;
    n.hashMove = n.excluded ? 0 : probe.hashMove;
    n.hashExtension = probe.hashExtension;
    n.ttScore = probe.score;
    n.ttDepth = probe.depth;
    n.ttBound = probe.bound;
    // 4. Too deep to go on, or no room left in the position's history; mate-distance pruning.
    if (ply > kMaxSearchPly || pos.ply >= kHistoryLimit) return n.staticEval;
    if (alpha > kMateThreshold && alpha >= mateIn(ply + 1)) return alpha;
    n.inCheck = inCheck(pos);
    t.checkedAt[ply] = n.inCheck;
    if (beta < -kMateThreshold && matedIn(ply + (n.inCheck ? 0 : 2)) >= beta) return beta;
    n.ply = ply;
    n.depth = depth;
    n.alpha = alpha;
    n.beta = beta;
    n.flags = flags;
    n.threat = 0;
    // Better than two plies ago (the same side to move), or the last time it was known.
    t.staticEvals[ply] = n.inCheck ? kNoStaticEval : n.staticEval;
    n.improving = !n.inCheck && ply >= 2 && n.staticEval > t.staticEvals[ply - 2];
    // No reductions after a move that now stands pinned to its own king: it may have
    // been played to set up a discovered attack we must see at full depth.
    const int them = static_cast<int>(pos.sideToMove) ^ 1;
    n.reductionsOn = !n.inCheck && !(pos.state.kingBlockers[them] & squareBit[toSquare(pos.moveHistory[pos.ply])]);
    // 5. Static margin cut: near the horizon, a node whose static score clears beta by a margin
    // for each ply left (one ply fewer while the position improves) is not searched: the
    // opponent would need to win back more than a quiet ply can bring. Not in PV nodes, in
    // check or near mate scores, and not when the static score misses a threat against the
    // side to move (a mate in one, a pawn about to queen, a pinned queen, a fork): the sacrifice
    // that sets such a threat up looks like a loss to the static score alone.
    if (!n.pvNode && !n.inCheck && !n.excluded && depth <= kStaticCutDepth && beta > -kMateThreshold &&
        n.staticEval < kMateThreshold && n.staticEval - kStaticCutMargin * (depth - n.improving) >= beta &&
        !threatened(pos))
        return n.staticEval;
    int result;
    if (nullMoveEnds(t, n, result)) return result;
    // Children are never reduced children themselves.
    n.flags &= ~static_cast<uint32_t>(REDUCED_CHILD);
    reduceWithoutHashMove(t, n);
    n.alphaOrig = n.alpha;
    n.best = -kInfinity;
    n.bestMove = 0;
    n.bestExtension = 0;
    const UndoState saved = pos.state;
    if (hashMoveEnds(t, n, saved, result)) return result;
    return moveLoop(t, n, saved);
}

}  // namespace quarn
