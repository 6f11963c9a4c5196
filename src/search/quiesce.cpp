// The quiescence search at the full-width search's horizon: evasions when in check, else a
// stand-pat score and the captures worth the margin, a mate we threaten, and at its first ply
// the quiet checks. A side whose queen keeps checking past the horizon stands on a draw.
#include "board/movegen.h"
#include "eval/evaluate.h"
#include "eval/see.h"
#include "eval/threats.h"
#include "search/node.h"
#include "search/ordering.h"
#include "search/quietchecks.h"
#include "search/search.h"
#include "search/tt.h"

namespace quarn {

namespace {

// Quiet evasions are dropped when even the static score plus the threat it faces stays this
// far below alpha: a quiet step cannot win that back, a capture might.
constexpr int kQuiesceMargin = 50;
// The stand pat of a side facing a mate it cannot parry by standing still: far below any
// material score, so the search looks for the defence instead of trusting the evaluation.
constexpr int kHopelessStandPat = -2000;
// Capture order keys: the hash move first, or right after the sorted captures when it is not
// among them (a quiet hash move stored by the full-width search).
constexpr int kQuiesceHashScore = 32767, kQuiesceLateHashScore = 32766;
constexpr int kPromotionOrderBonus = 120;
// Behind by more than this many pawns, with heavy pieces about, no capture can catch up.
constexpr int kMarginCutoff = 10;

// A side with only king and pawns, its king boxed in and no pawn able to move: stalemate.
// A pinned pawn may still push along its pin or take the pinner, and an en-passant capture
// escapes the pawns' simple tests: with either about, the moves are generated instead.
bool staleMated(const Position& pos) {
    const int us = static_cast<int>(pos.sideToMove);
    const SideBlock& s = pos.side[us];
    if (s.material & kPieceFields) return false;
    if (kingAttacks[s.kingSquare] & ~pos.state.enemyAttacks) return false;
    if ((s.pieces[PAWN] & pos.state.kingBlockers[us]) || pos.state.epSquare) return false;
    const Bitboard pawns = s.pieces[PAWN];
    const Bitboard enemy = pos.side[us ^ 1].pieces[0];
    if (us == WHITE)
        return !((pawns << 8) & ~pos.occupied) && !(pawnAttackSet<WHITE>(pawns) & enemy);
    return !((pawns >> 8) & ~pos.occupied) && !(pawnAttackSet<BLACK>(pawns) & enemy);
}

// A queen that has given check on each of our last kChainChecks moves and still has a check
// the exchange count does not lose: the king has not got away within the horizon, and the
// side behind stands on the perpetual check rather than on its material. Four checks, not
// three: with three, two of the chases that drew won games were seen later, not sooner.
constexpr int kChainChecks = 4;
bool checkChainHolds(const SearchThread& t, int ply) {
    if (ply < 2 * kChainChecks - 1) return false;
    for (int i = 1; i < 2 * kChainChecks; i += 2)
        if (!t.checkedAt[ply - i]) return false;
    const Position& pos = t.pos;
    const int us = static_cast<int>(pos.sideToMove);
    const int square = toSquare(pos.moveHistory[pos.ply - 1]);
    if (pos.board[square] != pieceCode(us, QUEEN)) return false;
    // Each earlier check was made by the piece that moved again next: the same queen.
    for (int k = 1; k < kChainChecks; ++k) {
        const Move earlier = pos.moveHistory[pos.ply - 1 - 2 * k];
        if (!earlier || toSquare(earlier) != fromSquare(pos.moveHistory[pos.ply + 1 - 2 * k])) return false;
    }
    Move checks[kMaxMoves];
    Move* end = generateQuietChecks(pos, checks, 0);
    for (Move* it = checks; it != end; ++it)
        if (fromSquare(*it) == square && see(pos, *it) >= 0) return true;
    return false;
}

// Deletes a move by overwriting it with the last one.
void dropMove(Move* list, Move*& end, int* scores, int i) {
    --end;
    list[i] = *end;
    if (scores) scores[i] = scores[end - list];
}

// One quiescence node's state, handed from phase to phase.
struct QNode {
    int ply, checkDepth, alpha, beta;
    uint32_t flags;
    bool pvNode, inCheck, checksAllowed;
    int staticEval;
    Move hashMove;
    int alphaOrig, best;
    Move bestMove;
    int margin;  // pawns a capture must win to be generated
};

// 4. In check: every evasion, but when the node is hopeless anyway only captures (and the
// hash move) survive, with the static score as the floor. A single evasion sets the check
// allowance to one, two evasions leave it, three or more end the chain's checks.
bool evasionsEnd(SearchThread& t, QNode& q, Move* moves, Move*& end, int& result) {
    const Position& pos = t.pos;
    end = generateEvasions(pos, moves);
    if (end == moves) {
        ++t.stats.mates;
        result = matedIn(q.ply);
        return true;
    }
    const int evasions = static_cast<int>(end - moves);
    if (!q.pvNode) {
        const int them = static_cast<int>(pos.sideToMove) ^ 1;
        const int threatened = threatScore(pos, them);
        if (!mateThreatMove(pos, them) && q.alpha > q.staticEval + threatened + kQuiesceMargin) {
            bool dropped = false;
            for (int i = 0; i < end - moves;) {
                if (!capturedCode(moves[i]) && !sameMove(moves[i], q.hashMove)) {
                    dropMove(moves, end, nullptr, i);
                    dropped = true;
                } else {
                    ++i;
                }
            }
            if (dropped) q.best = q.staticEval + threatened;
        }
    }
    orderEvasions(pos, moves, end, q.hashMove);
    if (q.checkDepth < 2) {
        if (evasions == 1)
            q.checkDepth = 1;
        else if (evasions >= 3)
            q.checkDepth = 0;
    }
    return false;
}

// 5.3 The captures that can matter, in order; losing ones (by exchange value, unless the
// victim alone outweighs the mover) are dropped.
void orderedCaptures(SearchThread& t, const QNode& q, Move* moves, Move*& end) {
    const Position& pos = t.pos;
    end = generateCaptures(pos, moves, q.margin);
    int scores[kMaxMoves];
    bool hashFound = false;
    for (int i = 0; i < end - moves;) {
        const Move m = moves[i];
        const int victim = kOrderValue[typeOf(capturedCode(m))];
        const int mover = kOrderValue[typeOf(pos.board[fromSquare(m)])];
        if (q.hashMove && sameMove(m, q.hashMove)) {
            scores[i++] = kQuiesceHashScore;
            hashFound = true;
            continue;
        }
        const int s = victim > mover ? victim : see(pos, m);
        if (s < 0) {
            dropMove(moves, end, scores, i);
            continue;
        }
        int score = victim * kVictimWeight + moverSafety(pos.state.enemyAttacks, m, mover);
        if (promotionType(m)) score += kPromotionOrderBonus;
        scores[i++] = score;
    }
    if (q.hashMove && !hashFound) {
        scores[end - moves] = kQuiesceLateHashScore;
        *end++ = q.hashMove;
    }
    const int count = static_cast<int>(end - moves);
    selectBest(moves, scores, count, count);
}

// 5. Not in check. A serious threat against us (a mate, or a loss that takes us below alpha)
// is answered with every move, once per chain; otherwise the side to move may stand pat, on
// its static score less what it stands to lose, and tries the captures that can matter.
bool standPatEnds(SearchThread& t, QNode& q, Move* moves, Move*& end, int& result) {
    Position& pos = t.pos;
    result = 0;
    // 5.1 Stalemate shortcut.
    if (staleMated(pos)) return true;
    // A chase that goes on: the draw is the floor (result is 0 already).
    const bool chain = q.staticEval < 0 && checkChainHolds(t, q.ply);
    if (chain && q.beta <= 0) return true;
    // With heavy pieces about, being far behind alpha means a capture must win that many
    // pawns (less two past four, to keep sacrifices for an attack in view).
    const int us = static_cast<int>(pos.sideToMove);
    const SideBlock& own = pos.side[us];
    if (materialPieces(pos.side[us ^ 1].material) >= 2 && (own.pieces[ROOK] | own.pieces[QUEEN])) {
        const int d = (q.alpha - q.staticEval) / 100;
        q.margin = d < 0 ? 0 : d < 4 ? d : d - 2;
    }
    // 5.2 Threats against us, only looked at when standing pat could matter.
    int threatened = 0;
    Move mateThreat = 0;
    if (q.staticEval > q.alpha) {
        threatened = threatScore(pos, us);
        mateThreat = mateThreatMove(pos, us);
    }
    q.checksAllowed = q.checkDepth != 0;
    if (q.checkDepth != 0 && (mateThreat || (threatened && q.alpha >= q.staticEval - threatened))) {
        end = generateMoves(pos, moves);
        if (end == moves) return true;
        orderMoves(t, q.ply, moves, end, q.hashMove);
        q.best = -kInfinity;
        q.checkDepth /= 2;
        q.checksAllowed = false;
        return false;
    }
    // An odd-ply PV node stands pat on the bare static score: the side that chose this line
    // gets no discount for threats it may be able to parry.
    int standPat;
    if (q.pvNode && (q.ply & 1)) {
        standPat = q.staticEval;
    } else if (mateThreat) {
        standPat = kHopelessStandPat;
        q.margin = 0;
    } else {
        standPat = q.staticEval - threatened;
    }
    if (standPat >= q.beta) {
        result = standPat;
        return true;
    }
    // Behind by a margin the best so far stays under alpha, lower the further behind.
    bool generate = true;
    if (q.margin) {
        const int behind = standPat - q.alpha + 1000;
        q.best = q.alpha - 150 + (behind < 0 ? behind : 0);
        if (q.margin > kMarginCutoff) generate = false;
    } else {
        q.best = standPat;
        if (standPat > q.alpha) q.alpha = standPat;
    }
    if (chain) {
        if (q.best < 0) q.best = 0;
        if (q.alpha < 0) q.alpha = 0;
    }
    if (generate) orderedCaptures(t, q, moves, end);
    q.checkDepth /= 2;
    return false;
}

// 6. A mate we threaten: the opponent is mated next move unless this node refutes it, so a
// non-PV node that cannot do better than the mate bound takes it at once. Skipped after a
// king step that answered our last mate threat, which would only repeat the chain.
bool mateThreatEnds(SearchThread& t, QNode& q, int& result) {
    Position& pos = t.pos;
    const Move last = pos.moveHistory[pos.ply];
    const bool skip = !(q.flags & FROM_SEARCH) && last && !capturedCode(last) &&
                      typeOf(pos.board[toSquare(last)]) == KING;
    const Move mate = skip ? 0 : mateThreatMove(pos, static_cast<int>(pos.sideToMove) ^ 1);
    if (!mate) return false;
    ++t.stats.mateThreats;
    if (!q.pvNode && q.beta <= kMateFound) {
        setSinglePv(t, q.ply, mate);
        lowerBound(pos, q.ply, q.checkDepth - 2, kMateFound, mate, q.staticEval);
        result = kMateFound;
        return true;
    }
    const UndoState saved = pos.state;
    playMove(t, mate);
    const int s = -quiesce(t, q.ply + 1, 0, -q.beta, -q.alpha, NODE_PV);
    takeBack(pos, mate, saved);
    result = stopScore();
    if (t.stopped()) return true;
    if (s >= q.beta) {
        setSinglePv(t, q.ply, mate);
        lowerBound(pos, q.ply, q.checkDepth - 2, s, mate, q.staticEval);
        result = s;
        return true;
    }
    if (s > q.best) raiseBest(t, q.ply, mate, s, q.best, q.bestMove, q.alpha);
    return false;
}

// 7. The move loop, then once more over the quiet checks. Checks are generated only while the
// halved allowance is left, so they come at the first quiescence ply alone. Returns the score.
int quiesceMoves(SearchThread& t, QNode& q, Move* moves, Move* end) {
    Position& pos = t.pos;
    const UndoState saved = pos.state;
    bool checksDone = !q.checksAllowed || q.inCheck || q.checkDepth == 0;
    for (;;) {
        for (Move* it = moves; it != end; ++it) {
            if (t.stopped()) return stopScore();
            const Move m = *it;
            playMove(t, m);
            int s = 0;
            bool done = false;
            if (q.pvNode) {
                if (q.bestMove) {
                    s = -quiesce(t, q.ply + 1, q.checkDepth, -q.alpha - 1, -q.alpha, (q.flags & FROM_SEARCH) + NODE_CUT);
                    done = t.stopped() || s <= q.alpha;
                }
                if (!done) s = -quiesce(t, q.ply + 1, q.checkDepth, -q.beta, -q.alpha, (q.flags & FROM_SEARCH) | NODE_PV);
            } else {
                s = -quiesce(t, q.ply + 1, q.checkDepth, -q.beta, -q.alpha, q.flags ^ kSwapExpectation);
            }
            takeBack(pos, m, saved);
            if (t.stopped()) return stopScore();
            if (s > q.best) {
                if (s >= q.beta) {
                    setSinglePv(t, q.ply, m);
                    lowerBound(pos, q.ply, q.checkDepth - 2, s, m, q.staticEval);
                    return s;
                }
                raiseBest(t, q.ply, m, s, q.best, q.bestMove, q.alpha);
            }
        }
        if (checksDone) break;
        checksDone = true;
        end = generateQuietChecks(pos, moves, q.margin);
        t.stats.quietChecks += static_cast<uint64_t>(end - moves);
    }
    // 8. Store, at the depth the check allowance stands for.
    storeBounded(pos, q.ply, q.checkDepth - 2, q.alphaOrig, q.best, q.bestMove, q.staticEval);
    return q.best;
}

}  // namespace

int quiesce(SearchThread& t, int ply, int checkDepth, int alpha, int beta, uint32_t flags) {
    Position& pos = t.pos;
    // 1. Stopped; count the node; the limits; draws and the mate tables; mate-distance pruning.
    if (t.stopped()) return stopScore();
    ++t.stats.qnodes;
    if (limitsReached(t)) return stopScore();
    t.pv[ply][0] = 0;
    if (drawnByRules(t, ply, beta)) return 0;
    if (int known; loneKingScore(t, ply, flags, known)) return known;
    if (alpha > kMateThreshold && alpha >= mateIn(ply + 1)) return alpha;
    // 2. Transposition table, at depth checkDepth - 2.
    QNode q;
    q.pvNode = flags & NODE_PV;
    const TableProbe probe = probeTable<false>(t, ply, checkDepth - 2, alpha, beta, q.pvNode);
    if (probe.cut) return probe.score;
    q.staticEval = probe.staticEval;
    q.hashMove = probe.hashMove;
    // 3. Too deep.
    if (ply > kMaxSearchPly || pos.ply >= kHistoryLimit) return q.staticEval;
    q.ply = ply;
    q.checkDepth = checkDepth;
    q.alpha = q.alphaOrig = alpha;
    q.beta = beta;
    q.flags = flags;
    q.inCheck = inCheck(pos);
    t.checkedAt[ply] = q.inCheck;
    q.checksAllowed = false;
    q.best = -kInfinity;
    q.bestMove = 0;
    q.margin = 0;
    Move moves[kMaxMoves];
    Move* end = moves;
    int result;
    if (q.inCheck ? evasionsEnd(t, q, moves, end, result) : standPatEnds(t, q, moves, end, result))
        return result;
    // Mated next move whatever we do.
    if (beta < -kMateThreshold && beta <= matedIn(ply + 2)) return beta;
    if (!q.inCheck && mateThreatEnds(t, q, result)) return result;
    return quiesceMoves(t, q, moves, end);
}

}  // namespace quarn
