// Speed of the static evaluation and of the exchange evaluator over the opening positions.
#include <benchmark/benchmark.h>

#include <memory>
#include <utility>
#include <vector>

#include "board/movegen.h"
#include "eval/evaluate.h"
#include "eval/see.h"
#include "positions.h"

namespace {

using namespace quarn;

bench::EpdPositions openings("openings.epd");

// A repeated position is answered from the evaluation cache in a few nanoseconds, which would
// time the cache and not the evaluation. So before each call the position's cache slot gets a key
// that cannot match: every call then takes the path of a search node that misses the cache, all
// terms and the cache store included, and nothing else is added to the timing but one store.
// The pawn table is left to work as it does in a search. With 131072 entries every structure
// is kept after the first pass, as most probes of a search hit; with one entry nearly every
// structure is rebuilt, which is the price of a pawn-table miss.
void BM_Evaluate(benchmark::State& state) {
    if (!openings.ready(state)) return;
    auto ctx = std::make_unique<EvalContext>();
    initEvalContext(*ctx, &openings.list().front());
    resizePawnTable(ctx->pawnTable, static_cast<uint32_t>(state.range(0)));
    int64_t count = 0;
    for (auto _ : state) {
        for (Position& pos : openings.list()) {
            ctx->pos = &pos;
            const uint64_t key = pos.hashKey ^ pos.sideToMove;
            ctx->cache[key & (kEvalCacheSize - 1)].key = ~key;
            benchmark::DoNotOptimize(evaluate(*ctx));
        }
        count += static_cast<int64_t>(openings.list().size());
    }
    state.SetItemsProcessed(count);
    state.counters["pawn hits %"] =
        100.0 * ctx->pawnTable.hits / (ctx->pawnTable.hits + ctx->pawnTable.stores + 1e-9);
    freeEvalContext(*ctx);
}
BENCHMARK(BM_Evaluate)->ArgName("pawn entries")->Arg(kSearchPawnEntries)->Arg(1);

// Every capture of every opening position, en passant and capturing promotions included.
void BM_See(benchmark::State& state) {
    if (!openings.ready(state)) return;
    std::vector<std::pair<const Position*, Move>> captures;
    for (Position& pos : openings.list()) {
        Move list[kMaxMoves];
        for (Move *m = list, *end = generateMoves(pos, list); m != end; ++m)
            if (capturedCode(*m)) captures.emplace_back(&pos, *m);
    }
    int64_t count = 0;
    for (auto _ : state) {
        for (const auto& [pos, m] : captures) benchmark::DoNotOptimize(see(*pos, m));
        count += static_cast<int64_t>(captures.size());
    }
    state.SetItemsProcessed(count);
    state.counters["captures"] = static_cast<double>(captures.size());
}
BENCHMARK(BM_See);

}  // namespace
