#include "shell/lineinput.h"

// readline.h needs stdio declared first.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <readline/history.h>
#include <readline/readline.h>
#include <unistd.h>

namespace quarn {

void initHistory() {
    using_history();
    stifle_history(kHistoryLines);
    read_history(kHistoryFileName);
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
        write_history(kHistoryFileName);
    }
    return line;
}

}  // namespace quarn
