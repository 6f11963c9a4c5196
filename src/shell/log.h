// The diagnostic log stream, its levels, the protocol echo, log files and the error log.
#pragma once

#include <cstdio>

#include "shell/sharedstring.h"

namespace quarn {

// Level 1 logs everything; level 2 (quiet) keeps only warnings.
constexpr int kLogNormal = 1;
constexpr int kLogQuiet = 2;

// The stream diagnostics go to: stdout at first, null when logging is off.
FILE* logStream();
void setLogStream(FILE* stream);
int logLevel();
void setLogLevel(int level);

// Written while the level is at most 1 and the stream is set.
void logMessage(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Written while the level is at most 2: allocation failures and the like.
void logWarning(const char* format, ...) __attribute__((format(printf, 1, 2)));
// "%010u:%s%s\n" with the millisecond clock and two texts (null shown as "?" and ""), flushed.
void logProtocol(const char* first, const char* second);

// The directory for numbered log files; empty means no log files.
const SharedString& logDirectory();
void setLogDirectory(const char* path);

// Opens the next free "quarn-NNNN.log" in the log directory as the log stream; without a
// directory, or when it cannot be made or opened, logging is switched off.
void setUpLogFile();
// Appends stderr to "quarn-0.3a-error.log" in the current directory from now on.
void openErrorLog();

}  // namespace quarn
