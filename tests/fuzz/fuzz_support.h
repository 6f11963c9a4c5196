// What the fuzz targets share.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "board/bitboard.h"
#include "board/fen.h"
#include "board/movetext.h"
#include "board/position.h"

namespace quarn::test {

// Reports a broken property and stops where libFuzzer sees it.
[[noreturn]] inline void fail(const char* what, const std::string& detail) {
    std::fprintf(stderr, "fuzz: %s: %s\n", what, detail.c_str());
    __builtin_trap();
}

// The move and the position, for a report.
inline std::string where(const Position& p, Move m) {
    char text[kMoveTextSize];
    writeMoveLong(p, text, m);
    return std::string("move ") + text + " in " + getFen(p).chars();
}

// Board tables as start-up builds them; stdout (reader messages, boards, info lines) silenced.
inline int initTarget() {
    initTables();
    initCastleKeys();
    return std::freopen("/dev/null", "w", stdout) ? 0 : 1;
}

// The pieces between line feeds, the empty piece after a final line feed excluded.
inline std::vector<std::string_view> splitLines(std::string_view text) {
    std::vector<std::string_view> lines;
    for (size_t start = 0, stop; start < text.size(); start = stop + 1) {
        stop = std::min(text.find('\n', start), text.size());
        lines.push_back(text.substr(start, stop - start));
    }
    return lines;
}

// The board part: what a FEN describes (the move counters aside) and the keys made from it.
inline bool sameBoard(const Position& a, const Position& b) {
    for (int c = 0; c < 2; ++c) {
        if (std::memcmp(a.side[c].pieces, b.side[c].pieces, sizeof a.side[c].pieces) ||
            a.side[c].kingSquare != b.side[c].kingSquare ||
            a.side[c].material != b.side[c].material)
            return false;
    }
    return !std::memcmp(a.board, b.board, sizeof a.board) && a.occupied == b.occupied &&
           a.hashKey == b.hashKey && a.sideToMove == b.sideToMove &&
           a.state.pawnKey == b.state.pawnKey && a.state.castling == b.state.castling &&
           a.state.epSquare == b.state.epSquare;
}

}  // namespace quarn::test
