// The console: commands a person types at the terminal, on the same input as the protocol.
#pragma once

#include <cstddef>

#include "board/position.h"

namespace quarn {

// The game position shared by the console and the protocol layer.
Position& gamePosition();

// From now on Ctrl-C stops a search started at the console instead of ending the engine.
void installInterruptHandler();

enum class LineOutcome { CONTINUE, QUIT };

// Handles one input line (line end already removed); the text may be modified.
LineOutcome handleLine(char* input);

// Runs a console command. strtok has cut the first word off `input` (the word is read from the
// input's start, leading blanks included); `length` is the input's length before the cut.
LineOutcome consoleCommand(char* input, size_t length);

}  // namespace quarn
