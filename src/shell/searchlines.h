// The console's lines about a running search: "[depth/seldepth] time nodes score" and then the
// new best line, a root move being re-searched, or how the iteration ended.
#pragma once

#include "search/root.h"

namespace quarn {

// The console's implementation of the search's commentary.
SearchLines* consoleSearchLines();

// Quiet: no search lines and the log down to warnings (benchmarks, tests); loud: both back.
void setQuiet(bool on);

}  // namespace quarn
