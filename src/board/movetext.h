// Moves as text: the long form, standard algebraic notation, and a forgiving parser.
#pragma once

#include <cstdio>

#include "board/move.h"
#include "board/position.h"

namespace quarn {

// Longest move text of either form plus its terminator, with room to spare.
constexpr int kMoveTextSize = 16;

// Piece letter (not for pawns), from square, "x" for a capture, to square, "=" and the
// promotion letter; castling as O-O / O-O-O and the null move as "%". Works before and after
// the move is made. Returns the position of the terminator.
char* writeMoveLong(const Position& pos, char* buf, Move m);
void printMove(const Position& pos, FILE* out, Move m);

// SAN of a move of the position, before it is made (no check signs).
struct SanWriter {
    Position& pos;
    char text[kMoveTextSize];
};
const char* writeMoveSan(SanWriter& writer, Move m);

// The one legal move the text describes, or 0 when it matches none, is ambiguous (reported on
// stderr) or holds a character no move text has (reported on stderr).
Move parseMove(Position& pos, const char* text);

}  // namespace quarn
