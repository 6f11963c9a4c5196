// Reading positions from FEN text, writing them back, and the console's board diagram.
#pragma once

#include <cstdio>

#include "board/position.h"
// The one include of the shell from the board: getFen hands its text to the command handlers
// as their shared string type.
#include "shell/sharedstring.h"

namespace quarn {

// The start position; empty ranks may be written as nothing between two slashes.
inline constexpr char kStartFen[] = "rnbqkbnr/pppppppp/////PPPPPPPP/RNBQKBNR w KQkq - -";

// Sets pos from FEN text: 1 on success, 0 on failure with a message on stderr (the position is
// then half built and must not be used). Text left over is reported on stdout and accepted.
int setFen(Position& pos, const char* text);

// The position as FEN; the last two fields are the plies since the last capture or pawn move
// and the plies since the position was set up.
SharedString getFen(const Position& pos);

// The diagram with recent moves, material balance, FEN and keys; debug prints piece codes.
void printBoard(const Position& pos, FILE* out, bool debug);

}  // namespace quarn
