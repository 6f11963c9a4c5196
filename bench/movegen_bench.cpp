// Speed of the move generator and of make/unmake over the perft positions.
#include <benchmark/benchmark.h>

#include <fstream>
#include <string>
#include <vector>

#include "board/bitboard.h"
#include "board/fen.h"
#include "board/movegen.h"
#include "board/position.h"

namespace {

using namespace quarn;

// The FEN part (before the first ';') of every line of perft.epd, set up as positions.
std::vector<Position>& positions() {
    static std::vector<Position> list = [] {
        std::vector<Position> out;
        std::ifstream in(QUARN_BENCH_DATA "/perft.epd");
        for (std::string line; std::getline(in, line);) {
            const std::string fen = line.substr(0, line.find(';'));
            if (fen.find_first_not_of(' ') == std::string::npos) continue;
            out.emplace_back();
            if (!setFen(out.back(), fen.c_str())) out.pop_back();
        }
        return out;
    }();
    return list;
}

bool checkPositions(benchmark::State& state) {
    if (!positions().empty()) return true;
    state.SkipWithError("no positions read from " QUARN_BENCH_DATA "/perft.epd");
    return false;
}

void BM_MakeUnmake(benchmark::State& state) {
    if (!checkPositions(state)) return;
    std::vector<std::vector<Move>> moves;
    for (Position& pos : positions()) {
        Move list[kMaxMoves];
        moves.emplace_back(list, generateMoves(pos, list));  // also sets the attack words
    }
    int64_t count = 0;
    for (auto _ : state) {
        for (size_t i = 0; i < moves.size(); ++i) {
            Position& pos = positions()[i];
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
    if (!checkPositions(state)) return;
    Move list[kMaxMoves];
    int64_t count = 0;
    for (auto _ : state) {
        for (Position& pos : positions()) {
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
