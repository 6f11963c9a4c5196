// The time and node budget of a search, and the phases the root search moves it through.
#pragma once

#include <atomic>
#include <cstdint>

namespace quarn {

// Phase 0 is only computed; 1 is the point after which no new iteration starts; 2 is normal;
// 3 re-searches a new best root move; 4 rescues a first move that failed low or fell sharply.
constexpr int kPhases = 5;
constexpr int kPhaseNormal = 2;
constexpr int kPhaseNewBest = 3;
constexpr int kPhaseFailLow = 4;

// Each phase's share of the base budget (the clock over the moves left). An iteration needs
// about as long again as all before it, so one that starts after 0.6 of the base would most
// likely be cut off unfinished and wasted: that is phase 1. A normal move may run to twice the
// base, since most moves stop at phase 1 and the average stays near the base; a new best
// move gets 3 times to be confirmed, and a failing first move 8 times, because playing a
// move the search has just seen fail costs more than a slower move. Phase 0 is a tenth.
inline constexpr float kPhaseFactors[kPhases] = {0.1f, 0.6f, 2.0f, 3.0f, 8.0f};

// How long the best move has held decides when the last iteration starts, under a clock: a
// move that stayed best through many iterations is rarely overturned by one more, and the
// time is worth more on a later move; a move that has just changed needs confirming. Factors
// of phase 1's share, in hundredths: the best move changed in the last iteration, held for
// fewer than kSteadyIterations, for fewer than kSettledIterations, for more. Most moves of a
// game settle, so the settled factor sets the clock's use; the others lift it where the move
// is in doubt. Phase 2's hard budget stays as it is. With increments the clock settles where
// a move's use matches the increment, a few seconds above zero at 10 s + 0.1 s: the factors
// are high enough that the opening and middlegame spend part of that idle reserve.
constexpr int kSteadyIterations = 3;
constexpr int kSettledIterations = 6;
constexpr int kChangedPercent = 234;
constexpr int kFreshPercent = 186;
constexpr int kSteadyPercent = 156;
constexpr int kSettledPercent = 126;

// The score's trend since the last search decides it too: a score that fell since then means
// the position is worse than it looked a move ago, and the time goes to finding out why; one
// that rose asks less. Each centipawn of fall adds 1/kTrendUnit of the cutoff, up to
// kTrendFallCap centipawns (half again); a rise takes away as much, up to kTrendRiseCap (a
// fifth). Mate scores meet the caps.
constexpr int kTrendUnit = 200;
constexpr int kTrendFallCap = 100;
constexpr int kTrendRiseCap = 40;
constexpr int32_t kNoTrend = INT32_MIN;  // the last search left no score to compare with

// The move time of a search that was given no limit (a console search): about five seconds.
constexpr uint32_t kDefaultMoveTimeMs = 5000;

// A fixed move time that never runs out (limitMs -1 compared unsigned).
constexpr uint32_t kNoTimeLimit = 0xFFFFFFFFu;

// What one search may spend, as its caller (the go command, the console, bench) sees it.
// TimeControl::apply turns it into budgets; nothing else sets them.
struct SearchLimits {
    int depth = 0;               // 0: none
    int64_t nodes = 0;           // 0: none
    int64_t moveTimeMs = -1;     // a fixed time for the move, over any clock; -1: none
    int clockMs = -1;            // the clock of the side to move; -1: none
    int incrementMs = 0;
    int movesToGo = 0;           // 0 or less: sudden death
    int reserveMs = 0;           // kept back from the clock
    int outOfBookMoves = -1;     // own moves since the book (1 = the first); -1: as before
    bool infinite = false;       // go infinite or ponder: no time limit until ponderhit
    int mateMoves = 0;           // go mate N: stop once a mate in N moves or fewer is found; 0: none
};

// Shared without a lock: the go command and ponderhit write it from the input thread, the
// master search thread changes phases, every search thread reads the budget in force.
class TimeControl {
public:
    int32_t limitMs = 0;  // budget in force since startMs; -1 = none (compared unsigned)
    uint32_t startMs = 0;
    int32_t incrementMs = 0;
    int32_t timeLeftMs = 0;
    int32_t reserveMs = 0;       // kept back from timeLeftMs
    int32_t movesToGo = 0;       // 0 or less: sudden death
    int32_t outOfBookMoves = 0;  // own moves since leaving the book (1 = first); 0 = unknown
    float factor[kPhases] = {};
    uint32_t timeLimitMs[kPhases] = {};
    int64_t nodeLimit[kPhases] = {};
    int32_t phase = 0;
    uint8_t infinite = 0;   // go infinite or ponder: no time limit until ponderhit
    uint8_t canPonder = 0;  // we may ponder, so every base budget grows by 1.3
    uint8_t clockGoverns = 0;  // the budgets come from the clock (not a fixed move time)
    int32_t depthLimit = 0;
    int32_t mateLimit = 0;     // go mate N: a mate in this many moves or fewer ends the search
    int64_t nodeLimitNow = 0;  // node budget in force; 0 = none
    int32_t lastScore = 0;     // root score of the last completed iteration
    int32_t prevScore = 0;     // and of the one before
    int32_t lastSearchScore = kNoTrend;  // where the search before this one ended
    int32_t depthDone = 0;     // depth of the iteration now running

    // A console search with no limits runs about five seconds: every phase gets the default
    // move time and phase 2 is in force. No node budget, no pondering, no reserve. Constant so
    // that the global instance needs no start-up code.
    constexpr TimeControl() {
        for (int i = 0; i < kPhases; ++i) factor[i] = kPhaseFactors[i];
        setMoveTime(kDefaultMoveTimeMs);
        phase = kPhaseNormal;
        limitMs = static_cast<int32_t>(timeLimitMs[kPhaseNormal]);
    }

    // The budgets of `limits`, in this order: phase 2 and the clock restarted; the infinite
    // flag, the node limit and the depth limit; then a fixed move time, or the budgets spread
    // over the clock, or with moves to go the node limit spread over them, or no time limit;
    // last, the normal phase's budgets in force.
    void apply(const SearchLimits& limits);
    // The budget of the normal phase, the one a search is planned with.
    uint32_t normalBudgetMs() const { return timeLimitMs[kPhaseNormal]; }

    // The budget in force and the infinite flag, read while the input thread's ponderhit may
    // write them: every access during a search goes through an atomic reference.
    int32_t budgetInForce() const {
        return std::atomic_ref<int32_t>(const_cast<int32_t&>(limitMs)).load(std::memory_order_relaxed);
    }
    bool unlimited() const {
        return std::atomic_ref<uint8_t>(const_cast<uint8_t&>(infinite)).load(std::memory_order_relaxed) != 0;
    }

    // Phase 2, the clock restarted, no iteration yet; the last search's score kept for the
    // trend when it got past the shallow iterations.
    void reset();
    // Sets the phase and, unless infinite, the time and node budgets of that phase; while
    // infinite the time budget stays unlimited.
    void selectPhase(int p);
    // Node budget of every phase (go nodes; 0 = none).
    void setNodeLimit(int64_t nodes);
    // Time budget of every phase (go movetime). The budget in force changes at the next
    // phase selection (reset).
    constexpr void setMoveTime(uint32_t ms) {
        for (uint32_t& t : timeLimitMs) t = ms;
    }
    // Stores the clock of the side to move and computes the five time budgets from it.
    void setClock(int movesToGoNow, int timeLeftNow, int incrementNow);
    // With movesToGo > 0 and a node limit in force, spreads the node limit over the moves to
    // go as setClock spreads time; otherwise changes nothing. Selects phase 2.
    void setNodeBudget();
    void setDepthDone(int depth) { depthDone = depth; }
    // After every completed iteration: back to phase 2, and the score remembered.
    void noteIterationScore(int score);
    // Phase changes of the root search; none of them acts before the first iteration starts.
    void firstMoveFailedLow();
    void newBestMoveSearch();
    void newBestMoveDone();
    void failLowResolved();
    // After the first root move of an iteration from depth 3 on: a sharp fall of the root
    // score buys phase 4.
    void checkScoreDrop(int score);
    // Ponderhit. Returns true when the caller must stop the master search thread instead
    // (exactly one root move and the running iteration at depth 3 or more). Otherwise the
    // budget of the current phase comes into force.
    bool ponderHit(int rootMoveCount, int iterationDepth);
    // After a completed iteration whose best move has been the same for `heldIterations`
    // iterations before it (0: it changed): the time after which no new iteration starts,
    // stretched by a fall of the score since the last search and shrunk by a rise.
    uint32_t iterationCutoffMs(int heldIterations) const;
    // The stop test of the searching code: the node budget in force reached, or the time
    // budget passed (an unlimited one, -1, never passes).
    bool outOfBudget(uint64_t nodes) const;
};

// The one time control of the process.
extern TimeControl timeControl;

}  // namespace quarn
