#include "shell/lineinput.h"

#include "shell/historyfile.h"

// readline.h needs stdio declared first.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <readline/history.h>
#include <readline/readline.h>
#include <unistd.h>

namespace quarn {

namespace {

// How long a line waits for the history file before it is handled anyway. A write takes half
// a millisecond, under 5 in 99 cases of 100 even during a build; only a stalled disk takes
// longer, and an "isready" during a search must not pay for that.
constexpr int kHistoryWaitMs = 5;
// How long the end of the process waits for the last lines to reach the file.
constexpr int kHistoryExitWaitMs = 1000;

std::unique_ptr<HistoryFile>& historyFile() {
    static std::unique_ptr<HistoryFile> file;
    return file;
}

}  // namespace

void initHistory() {
    using_history();
    stifle_history(kHistoryLines);
    read_history(kHistoryFileName);
    // The writing thread keeps its own copy of the lines: readline's list belongs to this one.
    std::vector<std::string> loaded;
    if (HIST_ENTRY** list = history_list())
        for (int i = 0; list[i]; ++i) loaded.emplace_back(list[i]->line);
    historyFile() = std::make_unique<HistoryFile>(kHistoryFileName, kHistoryLines, loaded);
}

void flushHistory() {
    if (historyFile()) historyFile()->flush(kHistoryExitWaitMs);
}

void stripLineEnd(char* line) {
    size_t n = std::strlen(line);
    while (n > 0 && (line[n - 1] == '\n' || line[n - 1] == '\r')) line[--n] = 0;
}

char* readInputLine(const char* prompt) {
    char* line = nullptr;
    if (isatty(STDIN_FILENO)) {
        line = readline(prompt);
    } else {
        // Readline would copy every piped line back to stdout, the GUI's channel.
        if (prompt) std::fputs(prompt, stdout);
        size_t capacity = 0;
        if (getline(&line, &capacity, stdin) < 0) {
            std::free(line);
            return nullptr;
        }
    }
    if (!line) return nullptr;
    stripLineEnd(line);
    if (line[0]) {
        add_history(line);
        if (historyFile()) historyFile()->add(line, kHistoryWaitMs);
    }
    return line;
}

}  // namespace quarn
