#include "search/search.h"

#include "board/movegen.h"
#include "eval/evaluate.h"
#include "eval/see.h"
#include "eval/threats.h"
#include "search/ordering.h"
#include "search/quietchecks.h"
#include "search/timecontrol.h"
#include "search/tt.h"

namespace quarn {

namespace {

// A node this far into the history makes no move: its children would not fit.
constexpr uint32_t kHistoryLimit = kHistorySize - 2;
constexpr int kLimitCheckMask = 255;    // test the limits every 256 full-width nodes
constexpr int kNullReduction = 4;       // a null move searches one ply plus four less
constexpr int kNullMargin = 8;          // the static score must clear beta by this much
constexpr int kNullVerifyReduction = 6;
constexpr int kNullVerifyPieces = 4;    // fewer pieces than this: verify a null cut-off
constexpr int kIidReduction = 2;
constexpr int kIidMateBound = 29000;
constexpr int kRecaptureDepth = 4;      // recapture extension from this depth on
constexpr int kFutilityDepth = 5;
constexpr int kFutilityMargin[kFutilityDepth + 1] = {0, 50, 50, 250, 550, 1150};
constexpr int kFiftyMovePlies = 99;
constexpr int kInsufficientPoints = 5;
constexpr int kReduction = 2, kTacticalReduction = 1;
constexpr int kQueenGap = 1100, kRookGap = 700, kBishopGap = 500;  // tactical targets by gap
constexpr int kMateThreatScore = 29000;
constexpr int kMateThreatBeta = 29001;
constexpr int kQuiesceMargin = 50;      // alpha must exceed eval + threat by this to drop quiet evasions
constexpr int kHopelessStandPat = -2000;
constexpr int kQuiesceHashScore = 32767, kQuiesceLateHashScore = 32766;
constexpr int kPromotionOrderBonus = 120;
constexpr int kMarginCutoff = 10;       // above this margin no capture can help
constexpr Move kNotQuiet = 0x0FFF0000u;
constexpr uint32_t kExtensionShift = 30;
constexpr Bitboard kFarRanks = kRank1 | (kRank1 << 8) | (kRank8 >> 8) | kRank8;
constexpr uint32_t kPieceFields = 0x0FFFF000;

bool isQuiet(Move m) { return (m & kNotQuiet) == 0; }
bool sameMove(Move a, Move b) { return ((a ^ b) & kIdentityMask) == 0; }
int stopScore() { return 0; }

// Copies a child's PV behind `m` into this ply's row.
void updatePv(SearchThread& t, int ply, Move m) {
    Move* row = t.pv[ply];
    const Move* child = t.pv[ply + 1];
    row[0] = m;
    int i = 0;
    while (i + 1 < kMaxPly - 1 && child[i]) {
        row[i + 1] = child[i];
        ++i;
    }
    row[i + 1] = 0;
}

void setSinglePv(SearchThread& t, int ply, Move m) {
    t.pv[ply][0] = m;
    t.pv[ply][1] = 0;
}

// A move that beat the best score so far: it is the best now, stored as `recorded`, and above
// alpha its line leads the PV and raises alpha. Forced inline: left to the compiler, quiesce
// keeps its scores in memory and runs slower.
[[gnu::always_inline]] inline void raiseBest(SearchThread& t, int ply, Move m, Move recorded,
                                             int s, int& best, Move& bestMove, int& alpha) {
    best = s;
    bestMove = recorded;
    if (s > alpha) {
        updatePv(t, ply, m);
        alpha = s;
    }
}

// The table line and the pawn entry are fetched as soon as the new keys are known, so the
// attack words are computed while they come in.
void playMove(SearchThread& t, Move m) {
    makeMove(t.pos, m & kIdentityMask);
    tt.prefetch(t.pos);
    prefetchPawnEntry(t.eval->pawnTable, t.pos.state.pawnKey);
    computeAttackInfo(t.pos);
}

// A piece that went away and came straight back, while the opponent's move between did not
// use the square it vacated, repeats the position: the undo of the opponent's move goes into
// the PV.
bool backAndForth(SearchThread& t, int ply, int beta) {
    const Position& pos = t.pos;
    if (beta > 0 || ply < 3 || pos.ply - pos.state.fiftyStart <= 2) return false;
    const Move m0 = pos.moveHistory[pos.ply], m1 = pos.moveHistory[pos.ply - 1],
               m2 = pos.moveHistory[pos.ply - 2];
    const int a = fromSquare(m2), b = toSquare(m2);
    if (fromSquare(m0) != b || toSquare(m0) != a || isCastling(m1) || m1 == kNullMove) return false;
    if (between[fromSquare(m1)][toSquare(m1)] & squareBit[a]) return false;
    setSinglePv(t, ply, static_cast<Move>(toSquare(m1) * 256 + fromSquare(m1)));
    return true;
}

// Earlier occurrences of the current key, stepping two plies back from `start` plies ago.
int repetitionIndex(const Position& pos, int start) {
    for (int i = static_cast<int>(pos.ply) - start; i >= pos.state.fiftyStart; i -= 2)
        if (pos.keyHistory[i] == pos.hashKey) return i;
    return -1;
}

bool insufficientMaterial(const Position& pos) {
    const SideBlock& w = pos.side[WHITE];
    const SideBlock& b = pos.side[BLACK];
    const Bitboard heavy = w.pieces[PAWN] | w.pieces[ROOK] | w.pieces[QUEEN] | b.pieces[PAWN] |
                           b.pieces[ROOK] | b.pieces[QUEEN];
    return !heavy && materialPoints(w.material) < kInsufficientPoints &&
           materialPoints(b.material) < kInsufficientPoints;
}

// The draw rules shared by search and quiesce: back and forth, fifty moves, insufficient
// material, repetition (near the root only a second repetition counts).
bool drawnByRules(SearchThread& t, int ply, int beta) {
    const Position& pos = t.pos;
    if (backAndForth(t, ply, beta)) return true;
    if (static_cast<int>(pos.ply) - pos.state.fiftyStart > kFiftyMovePlies) return true;
    if (insufficientMaterial(pos)) return true;
    const int first = repetitionIndex(pos, 4);
    if (first < 0) return false;
    if (ply > 3) return true;
    for (int i = first - 4; i >= pos.state.fiftyStart; i -= 2)
        if (pos.keyHistory[i] == pos.hashKey) return true;
    return false;
}

// A table entry that settles the node without searching it.
bool tableCuts(const TtEntry& e, int score, int depth, int alpha, int beta) {
    if (e.depth >= depth) {
        if (e.bound == BOUND_EXACT) return true;
        if (e.bound == BOUND_LOWER) return score >= beta;
        if (e.bound == BOUND_UPPER) return score <= alpha;
        return false;
    }
    // A mate score cuts even from a shallower search.
    if (score >= kMateThreshold && e.bound != BOUND_UPPER) return score >= beta;
    if (score <= -kMateThreshold && e.bound != BOUND_LOWER) return score < alpha;
    return false;
}

void storeBounded(const Position& pos, int ply, int depth, int alphaOrig, int best, Move bestMove,
                  int staticEval) {
    TtEntry e{};
    e.move = bestMove;
    e.score = static_cast<int16_t>(scoreToTt(best, ply));
    e.depth = static_cast<int16_t>(depth);
    e.staticEval = static_cast<int16_t>(staticEval);
    e.bound = alphaOrig >= best ? BOUND_UPPER : BOUND_EXACT;
    tt.store(pos, e);
}

void lowerBound(const Position& pos, int ply, int depth, int score, Move m, int staticEval) {
    TtEntry e{};
    tt.storeLowerBound(e, pos, depth, ply, score, m, staticEval);
}

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
            if (kingAttacks[to] & c.kingRing) return true;
            break;
        default: {
            if ((kFarRanks & squareBit[to]) && (pawnAttacks[c.us ^ 1][to] & c.ownPawns)) return true;
            if (type == BISHOP && (bishopAttacks(to, occ) & c.targets)) return true;
            if (type == ROOK) {
                const Bitboard ring = c.kingRing & rookLines[to] & ~line[from][to];
                if (ring && (rookAttacks(to, occ) & ring)) return true;
            }
            const Bitboard lines = type == BISHOP ? bishopLines[to] : type == ROOK ? rookLines[to] : queenLines[to];
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

bool timeToCheckLimits(const SearchThread& t) { return (t.stats.nodes & kLimitCheckMask) == 0; }

}  // namespace

void takeBack(Position& pos, Move m, const UndoState& saved) {
    if (m) {
        unmakeMove(pos, m & kIdentityMask, saved);
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
    m &= kIdentityMask;
    // A move already in slot 1 swaps up; any other move replaces slot 0 only.
    if (m == k[1]) k[1] = k[0];
    k[0] = m;
}

int search(SearchThread& t, int ply, int depth, int alpha, int beta, uint32_t flags) {
    Position& pos = t.pos;
    // Stopped.
    if (t.stopped()) return stopScore();
    // Horizon.
    if (depth < 1) {
        ++t.stats.frontier;
        return quiesce(t, ply, 2, alpha, beta, flags | FROM_SEARCH);
    }
    // Limits, every 256 full-width nodes.
    ++t.stats.nodes;
    if (timeToCheckLimits(t) && timeControl.outOfBudget(t.stats.total())) {
        t.requestStop();
        return stopScore();
    }
    // Seldepth and an empty PV.
    if (ply > t.maxPly) t.maxPly = ply;
    t.pv[ply][0] = 0;
    // Draws.
    if (drawnByRules(t, ply, beta)) return 0;

    // Transposition table.
    const bool pvNode = flags & NODE_PV;
    ++t.stats.ttProbes;
    TtEntry entry;
    int staticEval;
    Move hashMove = 0;
    if (!tt.probe(pos, entry)) {
        staticEval = evaluate(*t.eval);
    } else {
        ++t.stats.ttHits;
        if (!pvNode) {
            const int score = scoreFromTt(entry.score, ply);
            if (tableCuts(entry, score, depth, alpha, beta)) {
                if (entry.bound == BOUND_LOWER && entry.move && isQuiet(entry.move))
                    updateKillers(t, ply, entry.move);
                setSinglePv(t, ply, entry.move);
                ++t.stats.ttCuts;
                return score;
            }
        }
        staticEval = entry.staticEval;
        hashMove = entry.move;
    }

    // Too deep to go on, or no room left in the position's history.
    if (ply > kMaxSearchPly || pos.ply >= kHistoryLimit) return staticEval;

    // Mate-distance pruning.
    if (alpha > kMateThreshold && alpha >= kMateScore - 1 - ply) return alpha;
    const int us = static_cast<int>(pos.sideToMove), them = us ^ 1;
    const bool inCheck = (pos.state.enemyAttacks & squareBit[pos.side[us].kingSquare]) != 0;
    if (beta < -kMateThreshold && ply - kMateScore + (inCheck ? 0 : 2) >= beta) return beta;

    // No reductions after a move that now stands pinned to its own king: it may have
    // been played to set up a discovered attack we must see at full depth.
    const Move lastMove = pos.moveHistory[pos.ply];
    const bool reductionsOn = !inCheck && !(pos.state.kingBlockers[them] & squareBit[toSquare(lastMove)]);

    // Null move.
    Move threat = 0;
    const SideBlock& own = pos.side[us];
    if (!inCheck && lastMove != kNullMove && (flags & NULL_ALLOWED) &&
        (own.pieces[BISHOP] | own.pieces[ROOK] | own.pieces[QUEEN]) && staticEval - kNullMargin >= beta) {
        const UndoState saved = pos.state;
        makeSearchNullMove(pos);
        ++t.stats.nullTries;
        const int s = -search(t, ply + 1, depth - 1 - kNullReduction, -beta, -alpha, flags ^ kSwapExpectation);
        takeBack(pos, kNullMove, saved);
        if (t.stopped()) return stopScore();
        threat = t.pv[ply + 1][0];
        if (s < kMateThreshold && s >= beta) {
            bool cut = true;
            if (static_cast<int>(own.material >> 28) < kNullVerifyPieces && (depth > kNullVerifyReduction || ply < 3)) {
                const int vDepth = depth - kNullVerifyReduction > 1 ? depth - kNullVerifyReduction : 1;
                cut = search(t, ply, vDepth, alpha, beta, NODE_CUT) >= beta;
                if (t.stopped()) return stopScore();
            }
            if (cut) {
                t.pv[ply][0] = 0;
                lowerBound(pos, ply, depth, s, 0, staticEval);
                ++t.stats.nullCuts;
                return s;
            }
        }
        // Passing would lose at once: tell a reducing parent to search this move fully.
        if ((flags & REDUCED_CHILD) && threat && s == ply - (kMateScore - 2)) return -kInfinity;
    }

    // Children are never reduced children themselves.
    flags &= ~static_cast<uint32_t>(REDUCED_CHILD);

    // Internal iterative deepening finds a first move to try.
    if (!hashMove && depth != 1 && (flags & (NODE_PV | NODE_CUT))) {
        ++t.stats.iid;
        const int s = search(t, ply, depth - kIidReduction, alpha, beta, flags);
        if (t.stopped()) return stopScore();
        hashMove = t.pv[ply][0];
        if (s < beta && s < alpha && s < -kIidMateBound) return s;
        if (s >= beta && s > kIidMateBound) return s;
    }

    const int alphaOrig = alpha;
    int best = -kInfinity;
    Move bestMove = 0;
    const UndoState saved = pos.state;

    // The hash move before any generation.
    if (hashMove) {
        const Move m = hashMove & kIdentityMask;
        int extension = static_cast<int>(hashMove >> kExtensionShift);
        if (extension == 0) extension = recaptureExtension(pos, m, depth);
        playMove(t, m);
        const int s = -search(t, ply + 1, depth - 1 + extension, -beta, -alpha, flags ^ kSwapExpectation);
        takeBack(pos, m, saved);
        if (t.stopped()) return stopScore();
        if (s >= beta) {
            if (!inCheck && isQuiet(m)) updateKillers(t, ply, m);
            setSinglePv(t, ply, m);
            lowerBound(pos, ply, depth, s, m, staticEval);
            ++t.stats.cutNodes;
            ++t.stats.firstMoveCuts;
            return s;
        }
        raiseBest(t, ply, m, m, s, best, bestMove, alpha);
    }

    // Generation and ordering; a single evasion extends every move of the node.
    Move moves[kMaxMoves];
    Move* end = inCheck ? generateEvasions(pos, moves) : generateAll(pos, moves);
    if (end == moves) {
        ++t.stats.mates;
        return inCheck ? ply - kMateScore : 0;
    }
    const int singleReply = (inCheck && end - moves == 1) ? 1 : 0;
    Move* lateStart = end;
    if (inCheck)
        orderEvasions(pos, moves, end, hashMove);
    else
        lateStart = orderMoves(t, ply, moves, end, threat, hashMove);

    // Tactical marks, when the node is behind.
    const bool marking = staticEval <= alpha;
    TacticalContext tactics{};
    if (marking) tactics = tacticalContext(pos, alpha - staticEval);

    // Futility value.
    int futility = kInfinity;
    if (!inCheck && depth <= kFutilityDepth) {
        const bool heavy = (own.pieces[ROOK] | own.pieces[QUEEN]) &&
                           (pos.side[them].pieces[ROOK] | pos.side[them].pieces[QUEEN]);
        if (heavy) futility = staticEval + kFutilityMargin[depth];
    }

    // The move loop.
    Move cutMove = 0;
    int cutScore = 0;
    for (Move* it = moves; it != end; ++it) {
        const Move m = *it;
        if (hashMove && sameMove(m, hashMove)) continue;
        const bool killer = sameMove(m, t.killers[ply][0]) || sameMove(m, t.killers[ply][1]);
        t.stats.killerTries += killer;
        // Once a move is found, the rest of a non-PV node are expected all-nodes.
        if (!pvNode && bestMove) flags = (flags & ~7u) + NODE_ALL;
        // Futility pruning of late quiet moves.
        const bool late = it >= lateStart;
        const bool tactical = marking && isTactical(pos, tactics, m);
        if (late && futility < alpha && isQuiet(m) && !(tactical && see(pos, m) >= 0)) {
            ++t.stats.pruned;
            if (futility > best) {
                best = futility;
                bestMove = m;
            }
            continue;
        }
        // Make the move with its extension.
        int extension = singleReply;
        if (!singleReply) extension = recaptureExtension(pos, m, depth);
        const int newDepth = depth - 1 + extension;
        playMove(t, m);
        int s;
        bool searched = false;
        // Late-move reduction.
        if (late && reductionsOn) {
            const int r = tactical ? kTacticalReduction : kReduction;
            ++t.stats.reduceTries;
            s = -search(t, ply + 1, newDepth - r, -alpha - 1, -alpha, REDUCED_CHILD | NULL_ALLOWED | NODE_CUT);
            if (t.stopped()) {
                takeBack(pos, m, saved);
                return stopScore();
            }
            // The reduced search stands when it fails low, unless a tactical move was refuted
            // by a quiet reply: that one is searched again at full depth.
            const Move reply = t.pv[ply + 1][0];
            const bool quietRefutation = tactical && reply && !capturedCode(reply);
            if (!quietRefutation && s <= alpha) {
                takeBack(pos, m, saved);
                if (s > best) {
                    best = s;
                    bestMove = m;
                }
                continue;
            }
            ++t.stats.reduceFails;
        }
        // Full depth.
        if (pvNode) {
            if (bestMove) {
                s = -search(t, ply + 1, newDepth, -alpha - 1, -alpha, NULL_ALLOWED | NODE_CUT);
                searched = t.stopped() || s <= alpha;
            }
            if (!searched) s = -search(t, ply + 1, newDepth, -beta, -alpha, NODE_PV);
        } else {
            s = -search(t, ply + 1, newDepth, -beta, -alpha, (flags ^ kSwapExpectation) | NULL_ALLOWED);
        }
        // Unmake.
        takeBack(pos, m, saved);
        if (t.stopped()) return stopScore();
        // A better move.
        if (s > best) {
            const Move candidate = m | (static_cast<Move>(singleReply) << kExtensionShift);
            if (s >= beta) {
                cutMove = candidate;
                cutScore = s;
                t.stats.killerCuts += killer;
                t.stats.firstMoveCuts += !hashMove && it == moves;
                break;
            }
            t.stats.pvNodes += s > alpha;
            raiseBest(t, ply, m, candidate, s, best, bestMove, alpha);
        }
    }

    // Cut-off.
    if (cutMove) {
        if (!inCheck && isQuiet(cutMove)) updateKillers(t, ply, cutMove);
        setSinglePv(t, ply, cutMove & kIdentityMask);
        lowerBound(pos, ply, depth, cutScore, cutMove, staticEval);
        ++t.stats.cutNodes;
        return cutScore;
    }

    // All-node or PV node.
    storeBounded(pos, ply, depth, alphaOrig, best, bestMove, staticEval);
    if (alphaOrig >= best) {
        ++t.stats.allNodes;
    } else {
        ++t.stats.pvNodes;
        const Move first = hashMove ? hashMove : moves[0];
        t.stats.firstMovePv += sameMove(bestMove, first);
    }
    return best;
}

namespace {

// A side with only king and pawns, its king boxed in and no pawn able to move: stalemate.
bool staleMated(const Position& pos) {
    const int us = static_cast<int>(pos.sideToMove);
    const SideBlock& s = pos.side[us];
    if (s.material & kPieceFields) return false;
    if (kingAttacks[s.kingSquare] & ~pos.state.enemyAttacks) return false;
    const Bitboard pawns = s.pieces[PAWN] & ~pos.state.kingBlockers[us];
    const Bitboard enemy = pos.side[us ^ 1].pieces[0];
    if (us == WHITE)
        return !((pawns << 8) & ~pos.occupied) && !(pawnAttackSet<WHITE>(pawns) & enemy);
    return !((pawns >> 8) & ~pos.occupied) && !(pawnAttackSet<BLACK>(pawns) & enemy);
}

// Deletes a move by overwriting it with the last one.
void dropMove(Move* list, Move*& end, int* scores, int i) {
    --end;
    list[i] = *end;
    if (scores) scores[i] = scores[end - list];
}

}  // namespace

int quiesce(SearchThread& t, int ply, int checkDepth, int alpha, int beta, uint32_t flags) {
    Position& pos = t.pos;
    // Stopped; count the node.
    if (t.stopped()) return stopScore();
    ++t.stats.qnodes;
    t.pv[ply][0] = 0;
    // Draws.
    if (drawnByRules(t, ply, beta)) return 0;
    // Mate-distance pruning.
    if (alpha > kMateThreshold && alpha >= kMateScore - 1 - ply) return alpha;

    // Transposition table at depth checkDepth - 2.
    const bool pvNode = flags & NODE_PV;
    TtEntry entry;
    int staticEval;
    Move hashMove = 0;
    if (!tt.probe(pos, entry)) {
        staticEval = evaluate(*t.eval);
    } else {
        if (!pvNode) {
            const int score = scoreFromTt(entry.score, ply);
            if (tableCuts(entry, score, checkDepth - 2, alpha, beta)) {
                setSinglePv(t, ply, entry.move);
                return score;
            }
        }
        staticEval = entry.staticEval;
        hashMove = entry.move & kIdentityMask;
    }
    // Too deep.
    if (ply > kMaxSearchPly || pos.ply >= kHistoryLimit) return staticEval;

    const int us = static_cast<int>(pos.sideToMove), them = us ^ 1;
    const bool inCheck = (pos.state.enemyAttacks & squareBit[pos.side[us].kingSquare]) != 0;
    const int alphaOrig = alpha;
    int best = -kInfinity;
    Move bestMove = 0;
    bool checksAllowed = false;
    int margin = 0;
    Move moves[kMaxMoves];
    Move* end = moves;

    if (inCheck) {
        // Evasions.
        end = generateEvasions(pos, moves);
        if (end == moves) {
            ++t.stats.mates;
            return ply - kMateScore;
        }
        const int evasions = static_cast<int>(end - moves);
        if (!pvNode) {
            const int threatened = threatScore(pos, them);
            if (!mateThreatMove(pos, them) && alpha > staticEval + threatened + kQuiesceMargin) {
                bool dropped = false;
                for (int i = 0; i < end - moves;) {
                    if (!capturedCode(moves[i]) && !sameMove(moves[i], hashMove)) {
                        dropMove(moves, end, nullptr, i);
                        dropped = true;
                    } else {
                        ++i;
                    }
                }
                if (dropped) best = staticEval + threatened;
            }
        }
        orderEvasions(pos, moves, end, hashMove);
        const Move extension = static_cast<Move>(evasions == 1 ? 2 : 1) << kExtensionShift;
        for (Move* it = moves; it != end; ++it) *it = (*it & kIdentityMask) | extension;
        if (checkDepth < 2) {
            if (evasions == 1)
                checkDepth = 1;
            else if (evasions >= 3)
                checkDepth = 0;
        }
    } else {
        // Stalemate shortcut.
        if (staleMated(pos)) return 0;
        // Captures must win at least this many pawns to matter.
        const SideBlock& own = pos.side[us];
        if (pos.side[them].material > 0x1FFFFFFF && (own.pieces[ROOK] | own.pieces[QUEEN])) {
            const int d = (alpha - staticEval) / 100;
            margin = d < 0 ? 0 : d < 4 ? d : d - 2;
        }
        // Threats against us; serious ones are searched full width.
        int threatened = 0;
        Move mateThreat = 0;
        if (staticEval > alpha) {
            threatened = threatScore(pos, us);
            mateThreat = mateThreatMove(pos, us);
        }
        checksAllowed = checkDepth != 0;
        if (checkDepth != 0 && (mateThreat || (threatened && alpha >= staticEval - threatened))) {
            end = generateMoves(pos, moves);
            if (end == moves) return 0;
            orderMoves(t, ply, moves, end, 0, hashMove);
            best = -kInfinity;
            checkDepth /= 2;
            checksAllowed = false;
        } else {
            // Stand pat.
            int standPat;
            if (pvNode && (ply & 1)) {
                standPat = staticEval;
            } else if (mateThreat) {
                standPat = kHopelessStandPat;
                margin = 0;
            } else {
                standPat = staticEval - threatened;
            }
            if (standPat >= beta) return standPat;
            // Best so far.
            bool generate = true;
            if (margin) {
                const int behind = standPat - alpha + 1000;
                best = alpha - 150 + (behind < 0 ? behind : 0);
                if (margin > kMarginCutoff) generate = false;
            } else {
                best = standPat;
                if (standPat > alpha) alpha = standPat;
            }
            // Captures worth the margin, losing ones dropped.
            if (generate) {
                end = generateCaptures(pos, moves, margin);
                int scores[kMaxMoves];
                bool hashFound = false;
                for (int i = 0; i < end - moves;) {
                    const Move m = moves[i];
                    const int victim = kOrderValue[typeOf(capturedCode(m))];
                    const int mover = kOrderValue[typeOf(pos.board[fromSquare(m)])];
                    if (hashMove && sameMove(m, hashMove)) {
                        scores[i++] = kQuiesceHashScore;
                        hashFound = true;
                        continue;
                    }
                    const int s = victim > mover ? victim : see(pos, m);
                    if (s < 0) {
                        dropMove(moves, end, scores, i);
                        continue;
                    }
                    int score = victim * 16;
                    if (promotionType(m)) score += kPromotionOrderBonus;
                    if (pos.state.enemyAttacks & squareBit[fromSquare(m)]) score += mover;
                    if (pos.state.enemyAttacks & squareBit[toSquare(m)]) score -= mover;
                    scores[i++] = score;
                }
                if (hashMove && !hashFound) {
                    scores[end - moves] = kQuiesceLateHashScore;
                    *end++ = hashMove;
                }
                const int count = static_cast<int>(end - moves);
                selectBest(moves, scores, count, count);
            }
            checkDepth /= 2;
        }
    }

    // Mated next move whatever we do.
    if (beta < -kMateThreshold && beta <= ply - (kMateScore - 2)) return beta;

    // A mate we threaten (not after a king step that answered our last mate threat).
    if (!inCheck) {
        const Move last = pos.moveHistory[pos.ply];
        const bool skip = !(flags & FROM_SEARCH) && last && !capturedCode(last) &&
                          typeOf(pos.board[toSquare(last)]) == KING;
        const Move mate = skip ? 0 : mateThreatMove(pos, them);
        if (mate) {
            ++t.stats.mateThreats;
            if (!pvNode && beta < kMateThreatBeta) {
                setSinglePv(t, ply, mate);
                lowerBound(pos, ply, checkDepth - 2, kMateThreatScore, mate, staticEval);
                return kMateThreatScore;
            }
            const UndoState saved = pos.state;
            playMove(t, mate);
            const int s = -quiesce(t, ply + 1, 0, -beta, -alpha, NODE_PV);
            takeBack(pos, mate, saved);
            if (t.stopped()) return stopScore();
            if (s >= beta) {
                setSinglePv(t, ply, mate);
                lowerBound(pos, ply, checkDepth - 2, s, mate, staticEval);
                return s;
            }
            if (s > best) raiseBest(t, ply, mate, mate, s, best, bestMove, alpha);
        }
    }

    // The move loop, then once more over the quiet checks. Checks are generated only
    // while the halved allowance is left, so they come at the first quiescence ply alone.
    const UndoState saved = pos.state;
    bool checksDone = !checksAllowed || inCheck || checkDepth == 0;
    for (;;) {
        for (Move* it = moves; it != end; ++it) {
            if (t.stopped()) return stopScore();
            const Move m = *it;
            playMove(t, m);
            int s = 0;
            bool done = false;
            if (pvNode) {
                if (bestMove) {
                    s = -quiesce(t, ply + 1, checkDepth, -alpha - 1, -alpha, (flags & FROM_SEARCH) + NODE_CUT);
                    done = t.stopped() || s <= alpha;
                }
                if (!done) s = -quiesce(t, ply + 1, checkDepth, -beta, -alpha, (flags & FROM_SEARCH) | NODE_PV);
            } else {
                s = -quiesce(t, ply + 1, checkDepth, -beta, -alpha, flags ^ kSwapExpectation);
            }
            takeBack(pos, m, saved);
            if (t.stopped()) return stopScore();
            if (s > best) {
                if (s >= beta) {
                    setSinglePv(t, ply, m);
                    lowerBound(pos, ply, checkDepth - 2, s, m, staticEval);
                    return s;
                }
                raiseBest(t, ply, m, m, s, best, bestMove, alpha);
            }
        }
        if (checksDone) break;
        checksDone = true;
        end = generateQuietChecks(pos, moves, margin);
        t.stats.quietChecks += static_cast<uint64_t>(end - moves);
    }

    // Store.
    storeBounded(pos, ply, checkDepth - 2, alphaOrig, best, bestMove, staticEval);
    return best;
}

}  // namespace quarn
