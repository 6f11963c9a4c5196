#include "shell/bench.h"

#include <cstdint>
#include <cstdio>

#include "board/bitboard.h"
#include "board/fen.h"
#include "board/position.h"
#include "eval/kpk.h"
#include "eval/loneking.h"
#include "search/pool.h"
#include "search/timecontrol.h"
#include "search/tt.h"
#include "shell/clock.h"
#include "shell/searchlines.h"

namespace quarn {

namespace {

constexpr uint32_t kBenchHashKb = 16384;

// Openings, middlegames with tactics and endgames: standard test positions, positions from
// public-domain games and problems, and a few composed here.
constexpr const char* kBenchPositions[] = {
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1",
    "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1",
    "r3k2r/Pppp1ppp/1b3nbN/nP6/BBP1P3/q4N2/Pp1P2PP/R2Q1RK1 w kq - 0 1",
    "rnbq1k1r/pp1Pbppp/2p5/8/2B5/8/PPP1NnPP/RNBQK2R w KQ - 1 8",
    "r4rk1/1pp1qppp/p1np1n2/2b1p1B1/2B1P1b1/P1NP1N2/1PP1QPPP/R4RK1 w - - 0 10",
    "r1bqkb1r/pppnpppp/3p1n2/8/8/2PP3P/PP2PPP1/RNBQKBNR w KQkq - 0 4",
    "rnbqkbnr/1pp2ppp/p3p3/3p4/4PP2/1P6/P1PP2PP/RNBQKBNR w KQkq - 0 4",
    "r1bqkbnr/pp1ppppp/2n5/2p5/4P3/5N2/PPPP1PPP/RNBQKB1R w KQkq - 2 3",
    "rnbqk2r/ppp1bppp/4pn2/3p4/2PP4/2N2N2/PP2PPPP/R1BQKB1R w KQkq - 4 5",
    "r1bq1rk1/ppp2ppp/2np1n2/2b1p3/2B1P3/2PP1N2/PP3PPP/RNBQ1RK1 w - - 0 7",
    "rnbqkb1r/pp3ppp/4pn2/2pp4/3P4/2PBPN2/PP3PPP/RNBQK2R b KQkq - 1 5",
    "2rr3k/pp3pp1/1nnqbN1p/3pN3/2pP4/2P3Q1/PPB4P/R4RK1 w - - 0 1",
    "5rk1/1ppb3p/p1pb4/6q1/3P1p1r/2P1R2P/PP1BQ1P1/5RKN w - - 0 1",
    "r1bq2rk/pp3pbp/2p1p1pQ/7P/3P4/2PB1N2/PP3PPR/2KR4 w - - 0 1",
    "r4q1k/p2bR1rp/2p2Q1N/5p2/5p2/2P5/PP3PPP/R5K1 w - - 0 1",
    "3q1rk1/p4pp1/2pb3p/3p4/6Pr/1PNQ4/P1PB1PP1/4RRK1 b - - 0 1",
    "2br2k1/2q3rn/p2NppQ1/2p1P3/Pp5R/4P3/1P3PPP/3R2K1 w - - 0 1",
    "r1b1kb1r/3q1ppp/pBp1pn2/8/Np3P2/5B2/PPP3PP/R2Q1RK1 w kq - 0 1",
    "4k1r1/2p3r1/1pR1p3/3pP2p/3P2qP/P4N2/1PQ4P/5R1K b - - 0 1",
    "r2rb1k1/pp1q1p1p/2n1p1p1/2bp4/5P2/PP1BPR1Q/1BPN2PP/R5K1 w - - 0 1",
    "r4rk1/ppp2ppp/2n5/2bqp3/8/P2PB3/1PP1NPPP/R2Q1RK1 w - - 0 1",
    "1k5r/pppbn1pp/4q1r1/1P3p2/2NPp3/1QP5/P4PPP/R1B1R1K1 w - - 0 1",
    "r1b2rk1/ppbn1ppp/4p3/1QP4q/3P4/N4N2/5PPP/R1B2RK1 w - - 0 1",
    "r3nrk1/2p2p1p/p1p1b1p1/2NpPq2/3R4/P1N1Q3/1PP2PPP/4R1K1 w - - 0 1",
    "6k1/1b1nqpbp/pp4p1/5P2/1PN5/4Q3/P5PP/1B2B1K1 b - - 0 1",
    "r2q2k1/pp1rbppp/4pn2/2P5/1P3B2/6P1/P3QPBP/1R3RK1 w - - 0 1",
    "1r3r2/4q1kp/b1pp2p1/5p2/pPn1N3/6P1/P3PPBP/2QRR1K1 w - - 0 1",
    "r1br2k1/pp2bppp/2nppn2/8/2P1PB2/2N2P2/PqN1B1PP/R2Q1R1K w - - 0 1",
    "8/7p/5k2/5p2/p1p2P2/Pr1pPK2/1P1R3P/8 b - - 0 1",
    "7k/p7/1R5K/6r1/6p1/6P1/8/8 w - - 0 1",
    "R7/P4k2/8/8/8/8/r7/6K1 w - - 0 1",
    "8/8/4k3/3p4/3P4/4K3/8/8 w - - 0 1",
    "8/5pk1/6p1/8/8/6P1/5PK1/8 w - - 0 1",
    "8/8/1p6/1P1k4/8/2K5/8/8 w - - 0 1",
    "6k1/5ppp/8/8/8/8/5PPP/3R2K1 w - - 0 1",
    "8/8/8/3k4/8/8/2BN4/4K3 w - - 0 1",
    "8/p7/8/1P6/K7/8/7k/8 w - - 0 1",
    "4r1k1/5ppp/8/8/3Q4/8/5PPP/6K1 w - - 0 1",
    "8/3r4/8/3k4/8/3K4/3R4/3B4 w - - 0 1",
};

}  // namespace

unsigned long long benchNodes(int depth, double* seconds) {
    static Position pos;
    unsigned long long nodes = 0;
    // The count needs every endgame table in use (a search does without one still building),
    // and the time leaves their building out, as the engine builds them beside its start-up.
    buildKpkTable();
    buildLoneKingTables();
    const double start = wallMs();
    for (const char* fen : kBenchPositions) {
        if (!setFen(pos, fen)) continue;
        tt.clear();
        clearSearchHistory();
        SearchLimits limits;
        limits.depth = depth;
        timeControl.apply(limits);
        startSearch(pos, nullptr);
        waitIdle();
        for (int i = 0; i < pool.threadCount; ++i) nodes += pool.threads[i]->stats.total();
    }
    if (seconds) *seconds = (wallMs() - start) / 1000.0;
    return nodes;
}

int runBench(int depth, int threads) {
    if (depth <= 0) depth = kDefaultBenchDepth;
    initTables();
    initCastleKeys();
    tt.resize(kBenchHashKb);
    initThreads();
    setThreads(threads);
    setQuiet(true);
    double seconds = 0;
    const unsigned long long nodes = benchNodes(depth, &seconds);
    std::printf("Nodes searched: %llu\n", nodes);
    std::printf("Nodes/second: %llu\n", seconds > 0 ? static_cast<unsigned long long>(nodes / seconds) : 0ULL);
    return 0;
}

}  // namespace quarn
