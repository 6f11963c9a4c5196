#include "search/root.h"

#include <cstdio>
#include <cstring>
#include <cstdlib>

#include "board/movegen.h"
#include "eval/see.h"
#include "search/pool.h"
#include "search/search.h"
#include "search/timecontrol.h"
#include "search/tt.h"
#include "shell/clock.h"
#include "shell/log.h"

namespace quarn {

namespace {

constexpr int kRootSortBias = 1000;
constexpr int kFullWidthDepth = 3;  // shallower iterations use the full window
constexpr int kAspirationDeltas[] = {25, 75, 150, 350, 550, 1150, 60000};
constexpr int kDeltaCount = sizeof kAspirationDeltas / sizeof kAspirationDeltas[0];
constexpr int kMaxDepth = 120;
constexpr char kScaleSuffix[] = " kmgt";
// In a won position (the last iteration above kWinningScore but short of a mate) a move that
// cannot be taken back, a capture, promotion or pawn move, is played when its score comes within
// kProgressBias of the best other move. The gain it makes is certain now; a piece move ahead by
// a few points of king placement would only put the gain off, since the search finds the same
// gain behind it at every depth and can keep deferring it until repetitions or the fifty-move
// rule end the game. Once a mate is proven the shortest one is played instead: a pawn move a
// mate later would defer the mate itself.
constexpr int kWinningScore = 1000;
constexpr int kProgressBias = 50;

// The root comparison bonus of a move: captures, promotions and pawn moves in a won position.
int rootBias(const RootSearch& root, Move m) {
    if (!root.won) return 0;
    const bool irreversible =
        (m & kCaptureOrPromotion) || typeOf(root.position->board[fromSquare(m)]) == PAWN;
    return irreversible ? kProgressBias : 0;
}

int clampScore(int s) { return s < -kInfinity ? -kInfinity : s > kInfinity ? kInfinity : s; }

bool stopNow(RootSearch& root) {
    if (root.thread->stopped() || (isMaster(root) && timeControl.outOfBudget(budgetNodes(*root.thread)))) {
        root.rootStop.store(1);
        return true;
    }
    return false;
}

// Helper threads skip depths in blocks, so that they do not all search the iteration the
// master searches: helper i skips blocks of 1 + (i / 4) % 3 depths, offset by its number.
// What one finds deeper is in the shared table when the master gets there.
bool helperSkips(uint32_t index, int depth) {
    const int size = 1 + static_cast<int>(index / 4 % 3);
    const int phase = static_cast<int>(index % (2 * size));
    return depth > 1 && (depth + phase) / size % 2 == 1;
}

// The root's static evaluation, from the table when it has one.
int rootStaticEval(RootSearch& root) {
    TtEntry e;
    if (tt.probe(*root.position, e)) return e.staticEval;
    return evaluate(*root.thread->eval);
}

void storeRoot(RootSearch& root, int depth, int score, Move move, TtBound bound) {
    TtEntry e{};
    e.move = move;
    e.score = static_cast<int16_t>(scoreToTt(score, 0));
    e.depth = static_cast<int16_t>(depth);
    e.staticEval = static_cast<int16_t>(rootStaticEval(root));
    e.bound = bound;
    tt.store(*root.position, e);
}

PvReport pvReport(const RootSearch& root, int depth, int score, const Move* pv) {
    return PvReport{1, depth, root.thread->maxPly, score, BOUND_EXACT, pv};
}

void reportNewPv(RootSearch& root, int depth, int score) {
    if (SearchLines* lines = root.lines.load(std::memory_order_relaxed)) lines->bestLine(root, score);
    if (root.reporter) root.reporter->reportPv(pvReport(root, depth, score, root.rootPv));
}

// The final report: the move chosen, and the second move of its variation as the reply
// expected (none when the variation is one move long).
void reportEnd(RootSearch& root, int depth, int score) {
    root.thread->publishNodes();
    if (root.finish) root.finish();
    if (!root.reporter) return;
    const Move ponder = root.rootPv[0] ? root.rootPv[1] : 0;
    root.reporter->reportFinished(pvReport(root, depth, score, nullptr), root.bestMove, ponder);
}

// Writes the PV into the table as exact entries, so the next iteration follows it.
void storePv(RootSearch& root, int depth, int score) {
    Position& pos = *root.position;
    UndoState saved[kMaxPly];
    int made = 0;
    for (; root.rootPv[made] && made < kMaxPly - 1 && pos.ply + 1 < static_cast<uint32_t>(kHistorySize); ++made) {
        const Move m = legalMove(pos, root.rootPv[made]);
        if (!m) break;
        TtEntry old;
        const bool had = tt.probe(pos, old);
        const int staticEval = had ? old.staticEval : evaluate(*root.thread->eval);
        tt.remove(pos);
        TtEntry e{};
        e.move = m;
        e.score = static_cast<int16_t>(scoreToTt(score, made));
        e.depth = static_cast<int16_t>(depth - made);
        e.staticEval = static_cast<int16_t>(staticEval);
        e.bound = BOUND_EXACT;
        tt.store(pos, e);
        saved[made] = pos.state;
        makeMove(pos, m);
        computeAttackInfo(pos);
        score = -score;
    }
    while (made > 0) {
        --made;
        unmakeMove(pos, pos.moveHistory[pos.ply], saved[made]);
    }
}

// The stop rules between iterations, after one whose best move has held for `heldIterations`
// iterations before it (0: it changed); returns the text of the last search line, or null to go on.
const char* stopReason(RootSearch& root, int depth, int score, int heldIterations) {
    // A helper goes on until the master stops it (or its depth limit is reached).
    if (!isMaster(root)) return root.thread->stopped() ? "stopped\n" : nullptr;
    const uint64_t nodes = budgetNodes(*root.thread);
    if (timeControl.nodeLimitNow && nodes >= static_cast<uint64_t>(timeControl.nodeLimitNow)) return "stopped\n";
    if (root.rootStop.load() || root.thread->stopped() ||
        clockMs() - timeControl.startMs > static_cast<uint32_t>(timeControl.budgetInForce()))
        return "stopped\n";
    timeControl.noteIterationScore(score);
    // "go mate N": a mate in N moves or fewer is what was asked for.
    if (timeControl.mateLimit && score >= kMateFound && movesToMate(score) <= timeControl.mateLimit)
        return "(mate found)\n";
    if (timeControl.unlimited()) return nullptr;
    // A mate proven this shallow cannot get shorter; the other lines of MultiPV still can.
    if (root.pvLines == 1 && kMateScore - std::abs(score) <= depth + 1) return "(optimal)\n";
    // A forced move is played at once; one that "go searchmoves" singled out is searched as asked.
    if (depth > 1 && root.legalMoveCount == 1) return "single move\n";
    if (clockMs() - timeControl.startMs > timeControl.iterationCutoffMs(heldIterations)) return "ok/stop\n";
    if (timeControl.nodeLimit[1] != 0 && nodes > static_cast<uint64_t>(timeControl.nodeLimit[1]))
        return "ok/stopnodes\n";
    return nullptr;
}

// Root moves after the best (and the lines shown), by the nodes they took: the hard ones come
// first.
void sortBySubtree(RootSearch& root) {
    const int first = root.pvLines > 2 ? root.pvLines : 2;
    for (int i = first; i < root.rootMoveCount; ++i) {
        const RootMove m = root.rootMoves[i];
        int j = i;
        while (j > first - 1 && root.rootMoves[j - 1].sortKey < m.sortKey) {
            root.rootMoves[j] = root.rootMoves[j - 1];
            --j;
        }
        root.rootMoves[j] = m;
    }
}

// The variation of a root move that became best: the move and its child's line.
void copyLine(Move* to, Move m, const Move* child) {
    to[0] = m;
    int i = 0;
    for (; i + 1 < kMaxPly - 1 && child[i]; ++i) to[i + 1] = child[i];
    to[i + 1] = 0;
}

// Swaps root moves i and j, with their variations when both are lines shown.
void swapRootMoves(RootSearch& root, int i, int j) {
    const RootMove tmp = root.rootMoves[i];
    root.rootMoves[i] = root.rootMoves[j];
    root.rootMoves[j] = tmp;
    if (i < root.pvLines && j < root.pvLines) {
        Move line[kMaxPly];
        std::memcpy(line, root.linePv[i], sizeof line);
        std::memcpy(root.linePv[i], root.linePv[j], sizeof line);
        std::memcpy(root.linePv[j], line, sizeof line);
    }
}

// One line of an iteration: the full window while shallow, then aspiration around the line's
// last score, widened on the side it fails until the score falls inside.
void searchLine(RootSearch& root, int depth, int pvIndex) {
    if (depth <= kFullWidthDepth) {
        searchRoot(root, depth, -kInfinity, kInfinity, pvIndex);
        return;
    }
    const int p = root.rootMoves[pvIndex].score + rootBias(root, root.rootMoves[pvIndex].move);
    int low = 0, high = 0;
    int alpha = clampScore(p - kAspirationDeltas[0]), beta = clampScore(p + kAspirationDeltas[0]);
    for (;;) {
        const int score = searchRoot(root, depth, alpha, beta, pvIndex);
        if (root.rootStop.load()) return;
        if (score >= beta && beta < kInfinity) {
            while (high < kDeltaCount - 1 && p + kAspirationDeltas[high] <= score) ++high;
            beta = clampScore(p + kAspirationDeltas[high]);
        } else if (score <= alpha && alpha > -kInfinity) {
            while (low < kDeltaCount - 1 && p - kAspirationDeltas[low] >= score) ++low;
            alpha = clampScore(p - kAspirationDeltas[low]);
        } else {
            return;
        }
    }
}

// After a MultiPV iteration: the lines in order of score (a later line can come out above an
// earlier one, the search being what it is), the best as the move to play, every line shown.
void reportLines(RootSearch& root, int depth) {
    for (int i = 1; i < root.pvLines; ++i)
        for (int j = i; j > 0 && root.rootMoves[j].score > root.rootMoves[j - 1].score; --j)
            swapRootMoves(root, j, j - 1);
    root.bestMove = root.rootMoves[0].move;
    std::memcpy(root.rootPv, root.linePv[0], sizeof root.rootPv);
    if (SearchLines* lines = root.lines.load(std::memory_order_relaxed))
        lines->bestLine(root, root.rootMoves[0].score);
    if (!root.reporter) return;
    for (int i = 0; i < root.pvLines; ++i) {
        const PvReport report{i + 1, depth, root.thread->maxPly, root.rootMoves[i].score, BOUND_EXACT,
                              root.linePv[i]};
        root.reporter->reportPv(report);
    }
}

}  // namespace

int buildRootMoves(RootSearch& root) {
    Move moves[kMaxMoves];
    Move* end = generateMoves(*root.position, moves);
    root.legalMoveCount = static_cast<int>(end - moves);
    // "go searchmoves": only the moves listed, when any of them is legal.
    const int listed = pool.searchMoveCount;
    if (listed) {
        Move* kept = moves;
        for (Move* m = moves; m != end; ++m)
            for (int i = 0; i < listed; ++i)
                if (*m == pool.searchMoves[i]) *kept++ = *m;
        if (kept != moves) end = kept;
    }
    root.rootMoveCount = static_cast<int>(end - moves);
    for (int i = 0; i < root.rootMoveCount; ++i) {
        const int value = see(*root.position, moves[i]);
        root.rootMoves[i] = {moves[i], static_cast<uint64_t>(value + kRootSortBias), value};
    }
    // Exchange passes: a larger key moves in front of its predecessor.
    for (bool swapped = true; swapped;) {
        swapped = false;
        for (int i = 1; i < root.rootMoveCount; ++i) {
            if (root.rootMoves[i].sortKey > root.rootMoves[i - 1].sortKey) {
                const RootMove m = root.rootMoves[i];
                root.rootMoves[i] = root.rootMoves[i - 1];
                root.rootMoves[i - 1] = m;
                swapped = true;
            }
        }
    }
    for (int i = 0; i < root.rootMoveCount; ++i) root.rootMoves[i].sortKey = 0;
    return root.rootMoveCount;
}

// Alpha, beta and the result are compared scores: a move's score plus its rootBias. Line 0 is
// the search proper: it moves the time control, stores the root in the table and reports each
// new best move; the other lines of a MultiPV search only find their best move.
int searchRoot(RootSearch& root, int depth, int alpha, int beta, int pvIndex) {
    SearchThread& t = *root.thread;
    Position& pos = *root.position;
    const UndoState saved = pos.state;
    const bool main = pvIndex == 0, timing = main && isMaster(root);
    int best = -kInfinity;
    for (int k = pvIndex; k < root.rootMoveCount; ++k) {
        // 1. Stop test.
        if (stopNow(root)) return best;
        // 2. Make the move and report it; its window is shifted by its bias.
        const Move m = root.rootMoves[k].move;
        const int bias = rootBias(root, m);
        const int a = alpha - bias, b = beta - bias;
        const uint64_t before = nodesOf(root);
        t.moveKeys[2] = continuationKey(pos, m);
        makeMove(pos, m);
        computeAttackInfo(pos);
        tt.prefetch(pos);
        if (root.reporter) root.reporter->reportCurrentMove(static_cast<uint32_t>(depth), static_cast<uint32_t>(k), m);
        int score;
        bool researched = false;
        if (k == pvIndex) {
            // 3. The first move with the full window.
            score = -search(t, 1, depth - 1, -b, -a, NODE_PV);
            if (score <= a && timing) timeControl.firstMoveFailedLow();
        } else {
            // 4. The others with a zero window, re-searched when they beat the best.
            score = -search(t, 1, depth - 1, -a - 1, -a, NULL_ALLOWED | NODE_CUT);
            if (!stopNow(root) && score > a) {
                if (timing) timeControl.newBestMoveSearch();
                if (SearchLines* lines = root.lines.load(std::memory_order_relaxed)) {
                    char prefix[32];
                    std::snprintf(prefix, sizeof prefix, "++%i/%i ", k + 1, root.rootMoveCount);
                    lines->rootMoveLine(root, score, prefix, m);
                }
                score = -search(t, 1, depth - 1, -b, -a, NODE_PV);
                researched = !t.stopped();
                SearchLines* lines = root.lines.load(std::memory_order_relaxed);
                if (researched && score <= a && lines) lines->rootMoveLine(root, score, "--", m);
                if (timing) timeControl.newBestMoveDone();
            }
        }
        // 5. Unmake; a stopped search leaves this move unscored. A re-search that finished and
        // beat the best stands though the budget ran out while it ran (ending the new-best phase
        // shortens it): its move was shown better than the one it would leave in place.
        unmakeMove(pos, m, saved);
        if (stopNow(root) && !(researched && score > a)) return best;
        // 6. Score and effort of the move.
        root.rootMoves[k].score = score;
        root.rootMoves[k].sortKey = nodesOf(root) - before;
        if (k == pvIndex && timing) timeControl.checkScoreDrop(score);
        if (score + bias > best) best = score + bias;
        // 7. A new best move.
        if (score > a) {
            if (k > pvIndex) swapRootMoves(root, k, pvIndex);
            copyLine(root.linePv[pvIndex], m, t.pv[1]);
            if (main) {
                root.bestMove = m;
                copyLine(root.rootPv, m, t.pv[1]);
                storeRoot(root, depth, score, m, BOUND_LOWER);
                if (root.pvLines == 1) reportNewPv(root, depth, score);
            }
            if (score >= b) return score + bias;
            alpha = score + bias;
        }
    }
    if (main && root.rootMoveCount) {
        const int bias = rootBias(root, root.rootMoves[0].move);
        if (root.rootMoves[0].score > alpha - bias)
            storeRoot(root, depth, alpha - bias, root.rootMoves[0].move, BOUND_EXACT);
    }
    return best;
}

void iterate(RootSearch& root) {
    // A game that filled the move history leaves no room for a single root move.
    if (root.position->ply + 1 >= static_cast<uint32_t>(kHistorySize)) {
        std::fputs("search: the move history is full, nothing searched\n", stderr);
        root.rootMoveCount = 0;
        root.bestMove = root.rootPv[0] = 0;
        reportEnd(root, 0, 0);
        return;
    }
    // 1. Root moves; none means the game is over.
    if (!buildRootMoves(root)) {
        const bool mated = inCheck(*root.position);
        root.bestMove = root.rootPv[0] = 0;
        reportEnd(root, 0, mated ? -kMateScore : 0);
        return;
    }
    // Until a root move has been searched the first one stands: a stop in the first
    // milliseconds must still answer with a legal move.
    root.bestMove = root.rootMoves[0].move;
    if (root.pvLines > root.rootMoveCount) root.pvLines = root.rootMoveCount;
    const Move noChild[1] = {0};
    for (int i = 0; i < root.pvLines; ++i) copyLine(root.linePv[i], root.rootMoves[i].move, noChild);
    int depth = 1, score = 0;
    uint64_t previousNodes = 1;
    Move lastBest = 0;
    int held = 0;  // iterations the best move has stayed best
    for (;; ++depth) {
        // 2. A new iteration.
        root.depth.store(depth);
        if (isMaster(root)) {
            timeControl.setDepthDone(depth);
            timeControl.failLowResolved();
        } else if (helperSkips(root.thread->index, depth) && depth < kMaxDepth &&
                   !(timeControl.depthLimit && depth >= timeControl.depthLimit)) {
            continue;
        }
        const uint64_t startNodes = nodesOf(root);
        // 3. Each line shown, best first (one but with MultiPV).
        for (int i = 0; i < root.pvLines && !root.rootStop.load(); ++i) searchLine(root, depth, i);
        if (root.pvLines > 1 && !root.rootStop.load()) reportLines(root, depth);
        score = root.rootMoves[0].score;
        // A proven mate needs no push: the shortest mate is played, pawn move or not.
        root.won = score > kWinningScore && score <= kMateThreshold;
        // 4. The PV into the table.
        if (!root.rootStop.load()) storePv(root, depth, score);
        // 5. Stop rules.
        const uint64_t iterationNodes = nodesOf(root) - startNodes;
        held = root.rootMoves[0].move == lastBest ? held + 1 : 0;
        lastBest = root.rootMoves[0].move;
        SearchLines* lines = root.lines.load(std::memory_order_relaxed);
        if (const char* reason = stopReason(root, depth, score, held)) {
            if (lines) lines->iterationLine(root, score, reason);
            break;
        }
        if (lines) {
            char text[32];
            std::snprintf(text, sizeof text, "ok/%2.1f\n",
                          static_cast<double>(iterationNodes) / static_cast<double>(previousNodes));
            lines->iterationLine(root, score, text);
        }
        previousNodes = iterationNodes ? iterationNodes : 1;
        // 6. Depth limits.
        if (depth >= kMaxDepth || (timeControl.depthLimit && depth + 1 > timeControl.depthLimit)) break;
        // 7. The rest of the root moves by effort.
        sortBySubtree(root);
    }
    // 8. Done.
    reportEnd(root, depth, root.rootMoves[0].score);
}

uint64_t nodesOf(const RootSearch& root) { return root.thread->stats.total(); }

uint64_t scaleCount(uint64_t n, char& suffix, int times) {
    int i = 0;
    while (n > 99999 && i < times) {
        n /= 1024;
        ++i;
    }
    suffix = kScaleSuffix[i];
    return n;
}

void printStatistics(const SearchStats& s, uint32_t entryCount, double seconds) {
    const TtCounters& counters = Tt::counters();  // the master thread's, which prints
    auto pct = [](uint64_t part, uint64_t whole) { return whole ? 100.0 * part / whole : 0.0; };
    const uint64_t total = s.total();
    char suffix;
    const uint64_t nps = scaleCount(seconds > 0 ? static_cast<uint64_t>(total / seconds) : 0, suffix, 4);
    logMessage("nodes  : i=%5.2f%%, f=%5.2f%%, q=%5.2f%%, p=%5.2f%%, nps=%i%c\n", pct(s.nodes, total),
               pct(s.frontier, total), pct(s.qnodes, total), pct(s.pruned, total), static_cast<int>(nps), suffix);
    const uint64_t typed = s.pvNodes + s.cutNodes + s.allNodes + s.mates;
    logMessage("inodes : pv=%5.2f%%, cut=%5.2f%%, all=%5.2f%%, end=%5.2f%%\n", pct(s.pvNodes, typed),
               pct(s.cutNodes, typed), pct(s.allNodes, typed), pct(s.mates, typed));
    char probeSuffix;
    const uint64_t probes = scaleCount(s.ttProbes, probeSuffix, 4);
    logMessage("tt     : probes=%i%c, hits=%5.2f%%, cuts=%5.2f%%, upd=%5.2f%%, full=%5.2f%%\n",
               static_cast<int>(probes), probeSuffix, pct(s.ttHits, s.ttProbes), pct(s.ttCuts, s.ttProbes),
               pct(counters.updates, counters.updates + counters.replacements),
               pct(counters.replacements - counters.liveReplacements, entryCount));
    logMessage("order  : 1stpv=%5.2f%%, 1stcut=%5.2f%%\n", pct(s.firstMovePv, s.pvNodes),
               pct(s.firstMoveCuts, s.cutNodes));
    logMessage("killers: %5.2f%%, #=%i/%i, killed=%5.2f%%\n", pct(s.killerCuts, s.cutNodes),
               static_cast<int>(s.killerCuts), static_cast<int>(s.killerTries), pct(s.killerCuts, s.killerTries));
    logMessage("null   : %5.2f%%, cuts=%5.2f%%\n", pct(s.nullTries, s.nodes), pct(s.nullCuts, s.nullTries));
    logMessage("iid    : %5.2f%%\n", pct(s.iid, s.nodes));
    char reduceSuffix;
    const uint64_t tries = scaleCount(s.reduceTries, reduceSuffix, 4);
    // One call per line: the closing lines come after the answer, and the input thread may be
    // printing a console command's lines (divide) between two calls.
    logMessage("reduce :  tries=%i%c, fail=%5.2f%%\n", static_cast<int>(tries), reduceSuffix,
               pct(s.reduceFails, s.reduceTries));
}

}  // namespace quarn
