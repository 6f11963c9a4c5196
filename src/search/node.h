// What every node below the root does alike, in the full-width search and in the quiescence
// search: the PV rows, making a move, the draw rules, the table probe and the table stores.
// Inline: these run at every node.
#pragma once

#include <cstdint>

#include "board/movegen.h"
#include "eval/evaluate.h"
#include "eval/loneking.h"
#include "search/score.h"
#include "search/search.h"
#include "search/tt.h"

namespace quarn {

// A node this far into the history makes no move: its children would not fit.
inline constexpr uint32_t kHistoryLimit = kHistorySize - 2;
inline constexpr int kFiftyMovePlies = 99;
// Below this many points on each side, and without pawns or heavy pieces, nobody can mate.
inline constexpr int kInsufficientPoints = 5;

// A stopped search's score: it is thrown away, so any value does.
inline int stopScore() { return 0; }

// The limits are tested every 256 nodes of any kind (full-width, quiescence, pruned): a clock
// read per node would cost more than it saves, 256 nodes take well under a millisecond, and a
// node budget is overrun by a few hundred nodes at most. True when the search must stop.
inline constexpr uint64_t kLimitCheckInterval = 256;
inline bool limitsReached(SearchThread& t) {
    if (t.stats.total() < t.nextLimitCheck) return false;
    t.nextLimitCheck = t.stats.total() + kLimitCheckInterval;
    return testLimits(t);
}

// Copies a child's PV behind `m` into this ply's row.
inline void updatePv(SearchThread& t, int ply, Move m) {
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

inline void setSinglePv(SearchThread& t, int ply, Move m) {
    t.pv[ply][0] = m;
    t.pv[ply][1] = 0;
}

// A move that beat the best score so far: it is the best now, and above alpha its line leads
// the PV and raises alpha. Forced inline: left to the compiler, quiesce keeps its scores in
// memory and runs slower.
[[gnu::always_inline]] inline void raiseBest(SearchThread& t, int ply, Move m, int s, int& best,
                                             Move& bestMove, int& alpha) {
    best = s;
    bestMove = m;
    if (s > alpha) {
        updatePv(t, ply, m);
        alpha = s;
    }
}

// The table line and the pawn entry are fetched as soon as the new keys are known, so the
// attack words are computed while they come in.
inline void playMove(SearchThread& t, Move m) {
    makeMove(t.pos, m);
    tt.prefetch(t.pos);
    prefetchPawnEntry(t.eval->pawnTable, t.pos.state.pawnKey);
    computeAttackInfo(t.pos);
}

// A piece that went away and came straight back, while the opponent's move between did not
// use the square it vacated, repeats the position: the undo of the opponent's move goes into
// the PV. Only when a draw would fail low (beta <= 0): the shortcut exists to cut, and it
// needs three plies of this search and a fifty-move count beyond them to be sure the
// positions really are the same.
inline bool backAndForth(SearchThread& t, int ply, int beta) {
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
inline int repetitionIndex(const Position& pos, int start) {
    for (int i = static_cast<int>(pos.ply) - start; i >= pos.state.fiftyStart; i -= 2)
        if (pos.keyHistory[i] == pos.hashKey) return i;
    return -1;
}

inline bool insufficientMaterial(const Position& pos) {
    const SideBlock& w = pos.side[WHITE];
    const SideBlock& b = pos.side[BLACK];
    const Bitboard heavy = w.pieces[PAWN] | w.pieces[ROOK] | w.pieces[QUEEN] | b.pieces[PAWN] |
                           b.pieces[ROOK] | b.pieces[QUEEN];
    return !heavy && materialPoints(w.material) < kInsufficientPoints &&
           materialPoints(b.material) < kInsufficientPoints;
}

// The draw rules: back and forth, fifty moves, insufficient material, repetition. Deep in the
// tree one repetition is a draw (whoever could avoid it would); within three plies of the root
// it takes a second, so that the root still tells a repeating move from a winning one.
inline bool drawnByRules(SearchThread& t, int ply, int beta) {
    const Position& pos = t.pos;
    if (backAndForth(t, ply, beta)) return true;
    // A mate stands though the count has run out, or a lone minor piece gave it: checked only
    // here, where the draw would otherwise be claimed.
    if (static_cast<int>(pos.ply) - pos.state.fiftyStart > kFiftyMovePlies || insufficientMaterial(pos))
        return !checkmated(pos);
    const int first = repetitionIndex(pos, 4);
    if (first < 0) return false;
    if (ply > 3) return true;
    for (int i = first - 4; i >= pos.state.fiftyStart; i -= 2)
        if (pos.keyHistory[i] == pos.hashKey) return true;
    return false;
}

// King and rook, queen, or bishop and knight against a lone king at the root: the mate tables
// give every node below it the exact score, provided the mate lands before the fifty-move count
// runs out; otherwise, and for the draws (a man lost, a stalemate), the search plays it out
// as any other. An ending reached by a capture or a promotion below the root keeps its static
// score: mate scores deep in a bigger ending switch the pruning off there and swell the tree
// (thirty-fold on a rook-and-pawn ending) for an ending the static score already wins.
// A PV node also gets the tables' next move as its line. A table that start-up is still
// building is not waited for: until it is ready the ending is searched as any other.
inline bool loneKingScore(SearchThread& t, int ply, uint32_t flags, int& score) {
    Position& pos = t.pos;
    if (!loneKingEnding(pos) || pos.state.fiftyStart > static_cast<int>(pos.ply) - ply ||
        !loneKingTableReady(pos))
        return false;
    int plies = 0;
    const int outcome = loneKingOutcome(pos, plies);
    if (outcome == 0 || static_cast<int>(pos.ply) - pos.state.fiftyStart + plies > kFiftyMovePlies + 1)
        return false;
    score = outcome > 0 ? mateIn(ply + plies) : matedIn(ply + plies);
    if (flags & NODE_PV) setSinglePv(t, ply, loneKingMove(pos));
    return true;
}

// A table entry that settles the node without searching it: a deep enough bound on the right
// side of the window, or a mate score, which no deeper search could change in its favour.
inline bool tableCuts(const TtEntry& e, int score, int depth, int alpha, int beta) {
    if (e.depth >= depth) {
        if (e.bound == BOUND_EXACT) return true;
        if (e.bound == BOUND_LOWER) return score >= beta;
        if (e.bound == BOUND_UPPER) return score <= alpha;
        return false;
    }
    if (score >= kMateThreshold && e.bound != BOUND_UPPER) return score >= beta;
    if (score <= -kMateThreshold && e.bound != BOUND_LOWER) return score < alpha;
    return false;
}

// What the table says about a node: its static score and hash move (with the extension it
// earned in the full-width search), or a score that ends it.
struct TableProbe {
    int staticEval;
    Move hashMove;
    int hashExtension;
    bool cut;
    int score;  // when cut; else the entry's score, when it has one
    int depth;  // the entry's depth, -1 without an entry
    int bound;  // the entry's bound, BOUND_NONE without an entry
};

// The table probe of both searches. PV nodes take no cut-off: their line must be searched, and
// neither does a search that leaves a move out (`cuts` off): the entry is about all moves.
// The full-width search counts the probe and remembers a quiet move that refuted this node
// before as a killer.
template <bool FullWidth>
[[gnu::always_inline]] inline TableProbe probeTable(SearchThread& t, int ply, int depth, int alpha,
                                                    int beta, bool pvNode, bool cuts = true) {
    TableProbe p{0, 0, 0, false, 0, -1, BOUND_NONE};
    TtEntry entry;
    if (FullWidth) ++t.stats.ttProbes;
    if (!tt.probe(t.pos, entry)) {
        p.staticEval = evaluate(*t.eval);
        return p;
    }
    if (FullWidth) ++t.stats.ttHits;
    const int score = scoreFromTt(entry.score, ply);
    if (!pvNode && cuts) {
        if (tableCuts(entry, score, depth, alpha, beta)) {
            if (FullWidth && entry.bound == BOUND_LOWER && entry.move && isQuiet(entry.move))
                updateKillers(t, ply, entry.move);
            setSinglePv(t, ply, entry.move);
            if (FullWidth) ++t.stats.ttCuts;
            p.cut = true;
            p.score = score;
            return p;
        }
    }
    p.staticEval = entry.staticEval;
    p.hashMove = entry.move;
    p.hashExtension = entry.extension;
    p.score = score;
    p.depth = entry.depth;
    p.bound = entry.bound;
    return p;
}

// Stores the result of a node searched to the end: exact above the window's floor, else an
// upper bound.
inline void storeBounded(const Position& pos, int ply, int depth, int alphaOrig, int best, Move bestMove,
                         int staticEval, int extension = 0) {
    TtEntry e{};
    e.move = bestMove;
    e.extension = static_cast<uint8_t>(extension);
    e.score = static_cast<int16_t>(scoreToTt(best, ply));
    e.depth = static_cast<int16_t>(depth);
    e.staticEval = static_cast<int16_t>(staticEval);
    e.bound = alphaOrig >= best ? BOUND_UPPER : BOUND_EXACT;
    tt.store(pos, e);
}

inline void lowerBound(const Position& pos, int ply, int depth, int score, Move m, int staticEval,
                       int extension = 0) {
    TtEntry e{};
    tt.storeLowerBound(e, pos, depth, ply, score, m, staticEval, extension);
}

}  // namespace quarn
