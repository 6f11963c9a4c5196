// Reading console and protocol lines from standard input.
#pragma once

namespace quarn {

// The next line without its line end (trailing "\n" and "\r" removed), malloc'ed for the
// caller to free; null at end of input. A terminal gets line editing and the prompt; a pipe
// gets the prompt and no echo of what it sent. A null prompt prints nothing.
char* readInputLine(const char* prompt);

// Removes trailing line-end characters in place.
void stripLineEnd(char* line);

}  // namespace quarn
