// The positions the benchmarks run over, read from an EPD file of the test data.
#pragma once

#include <benchmark/benchmark.h>

#include <fstream>
#include <string>
#include <vector>

#include "board/fen.h"
#include "board/position.h"

namespace quarn::bench {

// The FEN part (before any ';') of every line of the file, set up as positions (attack words
// included, as setFen leaves them). Read at the first use, once main has built the tables.
class EpdPositions {
public:
    explicit EpdPositions(const char* name)
        : path_(std::string(QUARN_BENCH_DATA) + "/" + name),
          missing_("no positions read from " + path_) {}

    std::vector<Position>& list() {
        if (!read_) read();
        return list_;
    }

    // False, and the benchmark skipped with the file named, when the file gave no position.
    bool ready(benchmark::State& state) {
        if (!list().empty()) return true;
        state.SkipWithError(missing_.c_str());
        return false;
    }

private:
    void read() {
        read_ = true;
        std::ifstream in(path_);
        for (std::string line; std::getline(in, line);) {
            const std::string fen = line.substr(0, line.find(';'));
            if (fen.find_first_not_of(' ') == std::string::npos) continue;
            list_.emplace_back();
            if (!setFen(list_.back(), fen.c_str())) list_.pop_back();
        }
    }

    std::string path_, missing_;
    std::vector<Position> list_;
    bool read_ = false;
};

}  // namespace quarn::bench
