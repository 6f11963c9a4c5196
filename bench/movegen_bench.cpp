// Speed of the move generator and of make/unmake over the perft positions.
#include <benchmark/benchmark.h>

#include <vector>

#include "board/bitboard.h"
#include "board/movegen.h"
#include "positions.h"

namespace {

using namespace quarn;

bench::EpdPositions positions("perft.epd");

void BM_MakeUnmake(benchmark::State& state) {
    if (!positions.ready(state)) return;
    std::vector<std::vector<Move>> moves;
    for (Position& pos : positions.list()) {
        Move list[kMaxMoves];
        moves.emplace_back(list, generateMoves(pos, list));  // also sets the attack words
    }
    int64_t count = 0;
    for (auto _ : state) {
        for (size_t i = 0; i < moves.size(); ++i) {
            Position& pos = positions.list()[i];
            for (Move m : moves[i]) {
                const UndoState saved = pos.state;
                makeMove(pos, m);
                benchmark::DoNotOptimize(pos.hashKey);
                unmakeMove(pos, m, saved);
            }
            count += static_cast<int64_t>(moves[i].size());
        }
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(count);
}
BENCHMARK(BM_MakeUnmake);

void BM_GenerateMoves(benchmark::State& state) {
    if (!positions.ready(state)) return;
    Move list[kMaxMoves];
    int64_t count = 0;
    for (auto _ : state) {
        for (Position& pos : positions.list()) {
            Move* end = generateMoves(pos, list);
            benchmark::DoNotOptimize(end);
            count += end - list;
        }
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(count);
}
BENCHMARK(BM_GenerateMoves);

}  // namespace

int main(int argc, char** argv) {
    quarn::initTables();
    quarn::initCastleKeys();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
