#include "search/timecontrol.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "shell/clock.h"
#include "shell/log.h"

namespace quarn {

constinit TimeControl timeControl;

namespace {

// Time assumed left when the clock has already run out (or the reserve eats it all): enough
// to return some move.
constexpr int kPanicMs = 100;
// Sudden death: plan as if this many moves remained. Games rarely last that much longer from
// any point, so the clock is spent a little early rather than left unused; and since each
// move takes a share of what is left, the clock itself never runs out.
constexpr int kSuddenDeathMoves = 44;
// Moves to go are padded so that the last moves before the control keep a margin.
constexpr int kMovesToGoPadding = 4;
// The first move out of book gets twice the time: the book's positions may be unfamiliar.
constexpr int kOutOfBookSpan = 2;
// With pondering the opponent's thinking time is partly ours (a ponderhit saves the move's
// time), so every budget may run 30% longer for the same clock use.
constexpr float kPonderBonus = 1.3f;
// Sudden death: no phase may spend more than this share of the clock, plus part of the
// increment. A low clock is otherwise spent whole on one fail-low, and every later move is
// played blind.
constexpr int64_t kSuddenDeathPhaseShare = 4;
// Of the increment, a phase may spend this share on top. Where the clock has run low, each move
// spends up to that ceiling and gets the increment back, so the clock settles where the ceiling
// equals the increment: with the whole increment that was one increment above the reserve
// (about 150 ms at 10 s + 0.1 s, 50 ms from a loss on time for any stall of the machine);
// with half of it, two increments above the reserve (about 260 ms).
constexpr int64_t kSuddenDeathIncrementShare = 2;
// Node budgets outside this range are worth reporting: the caller probably gave odd limits.
constexpr int64_t kFewNodes = 11;
constexpr int64_t kManyNodes = 100000;
// Score falls that make the first move suspect: a large one anywhere, a smaller one near 0
// where a little is a lot.
// The iterations below kDropDepth are too shallow for their scores to be compared.
constexpr int kSharpDrop = 50;
constexpr int kSmallDrop = 10;
constexpr int kNearEqual = 99;
constexpr int kDropDepth = 3;
// A single root move is played at once on ponderhit once this depth is running.
constexpr int kSingleMoveDepth = 3;

// The out-of-book factor (2 - moves), or 0 when no extra is due: known counts below 2 only.
int outOfBookFactor(int moves) {
    return moves != 0 && moves < kOutOfBookSpan ? kOutOfBookSpan - moves : 0;
}

// A phase's share of `base` by its factor, held between `least` and `most`.
int64_t phaseShare(float factor, int64_t base, int64_t least, int64_t most) {
    return std::clamp(static_cast<int64_t>(factor * static_cast<float>(base)), least, most);
}

// A phase change of the root search, when due and once the first iteration has started.
void changePhase(TimeControl& tc, bool due, int to) {
    if (tc.depthDone != 0 && due) tc.selectPhase(to);
}

}  // namespace

void TimeControl::apply(const SearchLimits& limits) {
    reset();
    infinite = limits.infinite;
    setNodeLimit(limits.nodes);
    reserveMs = 0;
    depthLimit = limits.depth;
    mateLimit = limits.mateMoves;
    clockGoverns = limits.moveTimeMs < 0 && limits.clockMs >= 0;
    if (limits.outOfBookMoves >= 0) outOfBookMoves = limits.outOfBookMoves;
    if (limits.moveTimeMs >= 0) {
        setMoveTime(static_cast<uint32_t>(limits.moveTimeMs));
    } else if (limits.clockMs >= 0) {
        reserveMs = limits.reserveMs;
        setClock(limits.movesToGo, limits.clockMs, limits.incrementMs);
    } else {
        setMoveTime(kNoTimeLimit);
        if (limits.movesToGo > 0 && limits.nodes) {
            movesToGo = limits.movesToGo;
            setNodeBudget();
        }
    }
    selectPhase(kPhaseNormal);  // the new budgets in force
}

void TimeControl::reset() {
    selectPhase(kPhaseNormal);
    startMs = clockMs();
    lastSearchScore = depthDone > kDropDepth ? lastScore : kNoTrend;
    depthDone = lastScore = prevScore = 0;
}

void TimeControl::selectPhase(int p) {
    std::atomic_ref<int32_t>(phase).store(p, std::memory_order_relaxed);
    std::atomic_ref<int32_t> live(limitMs);
    if (unlimited()) {
        live.store(-1, std::memory_order_relaxed);
        return;
    }
    live.store(static_cast<int32_t>(timeLimitMs[p]), std::memory_order_relaxed);
    nodeLimitNow = nodeLimit[p];
}

void TimeControl::setNodeLimit(int64_t nodes) {
    for (int64_t& n : nodeLimit) n = nodes;
    nodeLimitNow = nodes;
}

void TimeControl::setClock(int movesToGoNow, int timeLeftNow, int incrementNow) {
    movesToGo = movesToGoNow;
    timeLeftMs = timeLeftNow;
    incrementMs = incrementNow;

    // 64-bit arithmetic: a GUI may send any 32-bit clock or increment. A clock below the
    // reserve still gets a small budget: some move must be played, and a quick one loses less
    // than none.
    int64_t available = static_cast<int64_t>(timeLeftMs) - reserveMs;
    if (available < 0) available = kPanicMs;
    const int64_t divisor =
        movesToGo > 0 ? static_cast<int64_t>(movesToGo) + kMovesToGoPadding : kSuddenDeathMoves;
    // The increment comes after the division: it is ours again at every move.
    int64_t base = available / divisor + incrementMs;
    if (const int f = outOfBookFactor(outOfBookMoves)) {
        const int64_t extra = static_cast<int64_t>(static_cast<double>(base) * f);
        base += extra;
        logMessage("extra time for out of book: %5.3fxbase=%ums, total=%ums\n",
                   static_cast<double>(f), static_cast<unsigned>(extra),
                   static_cast<unsigned>(base));
    }
    if (canPonder) base = static_cast<int64_t>(static_cast<float>(base) * kPonderBonus);

    // The extra of phases 3 and 4 is taken from later moves. No phase may spend more than the
    // clock holds, however far the score falls; under sudden death, not even a large share of it.
    // A negative increment (a GUI's error) must not take the ceiling below zero.
    const int64_t most = movesToGo > 0
        ? available
        : std::min(available, available / kSuddenDeathPhaseShare +
                                  std::max(incrementMs, 0) / kSuddenDeathIncrementShare);
    for (int i = 0; i < kPhases; ++i) {
        factor[i] = kPhaseFactors[i];
        timeLimitMs[i] = static_cast<uint32_t>(phaseShare(factor[i], base, 0, most));
    }
}

void TimeControl::setNodeBudget() {
    if (movesToGo <= 0 || nodeLimitNow == 0) return;
    const int64_t total = nodeLimitNow < 0 ? kPanicMs : nodeLimitNow;
    int64_t base = total / (static_cast<int64_t>(movesToGo) + kMovesToGoPadding);
    if (const int f = outOfBookFactor(outOfBookMoves))
        base += static_cast<int64_t>(static_cast<double>(base) * f);
    if (base < kFewNodes || base > kManyNodes) std::printf("nodes=%i\n", static_cast<int>(base));
    if (canPonder) base = static_cast<int64_t>(static_cast<float>(base) * kPonderBonus);

    // At least one node: 0 would mean no limit at all.
    for (int i = 0; i < kPhases; ++i) {
        factor[i] = kPhaseFactors[i];
        nodeLimit[i] = phaseShare(factor[i], base, 1, total);
    }
    selectPhase(kPhaseNormal);
}

// An iteration finished: whatever phase a fail-low or a new best move asked for has served
// its purpose, and the next iteration starts from the normal budget again.
void TimeControl::noteIterationScore(int score) {
    if (phase != kPhaseNormal) selectPhase(kPhaseNormal);
    prevScore = lastScore;
    lastScore = score;
}

// The best move so far is in doubt: give the search the most time to find a better one.
void TimeControl::firstMoveFailedLow() { changePhase(*this, phase < kPhaseNewBest, kPhaseFailLow); }

// A new best move is being confirmed; a little more time, so it is not cut short.
void TimeControl::newBestMoveSearch() { changePhase(*this, phase < kPhaseNewBest, kPhaseNewBest); }

void TimeControl::newBestMoveDone() { changePhase(*this, phase == kPhaseNewBest, kPhaseNormal); }

void TimeControl::failLowResolved() { changePhase(*this, phase == kPhaseFailLow, kPhaseNormal); }

// The first root move's score fell from the last iteration: the position may be worse than
// it looked, and the extra time goes to finding the way out. Near equality a tenth of a pawn
// already counts, since it may turn a drawn game into a lost one.
void TimeControl::checkScoreDrop(int score) {
    if (phase == kPhaseFailLow || depthDone < kDropDepth) return;
    const bool nearEqual = std::abs(lastScore) <= kNearEqual || std::abs(score) <= kNearEqual;
    if (score + kSharpDrop < lastScore || (score + kSmallDrop < lastScore && nearEqual))
        selectPhase(kPhaseFailLow);
}

bool TimeControl::ponderHit(int rootMoveCount, int iterationDepth) {
    if (rootMoveCount == 1 && iterationDepth >= kSingleMoveDepth) {
        logMessage("ponderhit & single move!\n");
        return true;
    }
    std::atomic_ref<uint8_t> liveInfinite(infinite);
    liveInfinite.store(0, std::memory_order_relaxed);
    // The master thread may change the phase between our read and our write: read again until
    // the budget written belongs to the phase in force.
    std::atomic_ref<int32_t> livePhase(phase);
    for (;;) {
        const int32_t p = livePhase.load();
        std::atomic_ref<int32_t>(limitMs).store(static_cast<int32_t>(timeLimitMs[p]),
                                                std::memory_order_relaxed);
        const int32_t now = livePhase.load();
        if (now == p) break;
        logMessage("TimeControl: ponderhit detected phase change from %i to %i\n", p, now);
    }
    // Once more now that the budget is in force.
    liveInfinite.store(0, std::memory_order_relaxed);
    return false;
}

uint32_t TimeControl::iterationCutoffMs(int heldIterations) const {
    const uint32_t share = timeLimitMs[1];
    if (!clockGoverns) return share;
    const int percent = heldIterations == 0                    ? kChangedPercent
                        : heldIterations >= kSettledIterations ? kSettledPercent
                        : heldIterations >= kSteadyIterations  ? kSteadyPercent
                                                               : kFreshPercent;
    int trend = 0;
    if (lastSearchScore != kNoTrend)
        trend = std::clamp(lastSearchScore - lastScore, -kTrendRiseCap, kTrendFallCap);
    const uint64_t cutoff = static_cast<uint64_t>(share) * static_cast<uint64_t>(percent) *
                            static_cast<uint64_t>(kTrendUnit + trend) /
                            (uint64_t{100} * kTrendUnit);
    // Never past the hard budget of the normal phase: the iteration would be cut off anyway.
    return static_cast<uint32_t>(std::min<uint64_t>(cutoff, timeLimitMs[kPhaseNormal]));
}

// Polled every 256 nodes. The budget compares unsigned, so limitMs -1 (infinite) never ends a
// search; the clock difference is taken modulo 2^32, so its wrap is harmless.
bool TimeControl::outOfBudget(uint64_t nodes) const {
    if (nodeLimitNow != 0 && nodes >= static_cast<uint64_t>(nodeLimitNow)) return true;
    return clockMs() - startMs > static_cast<uint32_t>(budgetInForce());
}

}  // namespace quarn
