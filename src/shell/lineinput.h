// Reading console and protocol lines from standard input, with a history file.
#pragma once

namespace quarn {

inline constexpr char kHistoryFileName[] = ".quarnhistory";
constexpr int kHistoryLines = 100;

// Loads the history of earlier sessions from the current directory.
void initHistory();

// Waits a moment for the last lines to reach the history file: for an end of the process that
// skips destructors.
void flushHistory();

// The next line without its line end (trailing "\n" and "\r" removed), malloc'ed for the
// caller to free; null at end of input. A terminal gets line editing and the prompt; a pipe
// gets the prompt and no echo of what it sent. A null prompt prints nothing. Every non-empty
// line goes into the history, and the history file is rewritten at once (a stalled disk
// holds the line back a few milliseconds at most; the file follows when the disk does).
char* readInputLine(const char* prompt);

// Removes trailing line-end characters in place.
void stripLineEnd(char* line);

}  // namespace quarn
