#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "support.h"

namespace quarn::test {

namespace {

using Lines = std::vector<std::string>;

Lines fileLines(const std::string& path) {
    Lines lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Starts the engine in `dir` reading `in` and writing `out` (standard error too), or, given a
// terminal name, on that terminal as its controlling terminal.
pid_t startEngine(const std::string& dir, int in, int out, const char* terminal = nullptr) {
    const pid_t pid = fork();
    if (pid == 0) {
        if (terminal && (setsid() < 0 || (in = out = open(terminal, O_RDWR)) < 0)) _exit(125);
        if (chdir(dir.c_str()) != 0) _exit(126);
        dup2(in, 0);
        dup2(out, 1);
        dup2(out, 2);
        setenv("TERM", "dumb", 1);
        execl(QUARN_BINARY, QUARN_BINARY, static_cast<char*>(nullptr));
        _exit(127);
    }
    return pid;
}

// Reads `fd` into `seen` until `text` turns up; false at end of output or after 20 s.
bool awaitOutput(int fd, const std::string& text, std::string& seen) {
    for (int waitedMs = 0; seen.find(text) == std::string::npos;) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 100) == 0) {
            if ((waitedMs += 100) > 20000) return false;
            continue;
        }
        char buffer[4096];
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n <= 0) return false;
        seen.append(buffer, static_cast<size_t>(n));
    }
    return true;
}

}  // namespace

TEST(LineInput, PipedLinesAreNeverEchoedAndGoStraightIntoTheHistory) {
    TempDir dir;
    int toEngine[2], fromEngine[2];
    ASSERT_EQ(pipe2(toEngine, O_CLOEXEC) | pipe2(fromEngine, O_CLOEXEC), 0);
    const pid_t pid = startEngine(dir.path(), toEngine[0], fromEngine[1]);
    close(toEngine[0]);
    close(fromEngine[1]);
    std::string seen;
    EXPECT_EQ(write(toEngine[1], "zq-unique-1\n", 12), 12);
    EXPECT_TRUE(awaitOutput(fromEngine[0], "unknown command: 'zq-unique-1'", seen)) << seen;
    // Written before the line is handled, while the session goes on.
    EXPECT_EQ(fileLines(dir.file(".quarnhistory")), Lines{"zq-unique-1"});
    const std::string rest = "zq-unique-2 zq-tail\nfen 8/8/8/8/8/8/8/K6k w - - 0 1\n%\n"
                             "8/8/8/7k/8/8/8/K7\nquit\n";
    EXPECT_EQ(write(toEngine[1], rest.data(), rest.size()), ssize_t(rest.size()));
    close(toEngine[1]);
    awaitOutput(fromEngine[0], "\x01", seen);  // never printed: reads to the end
    close(fromEngine[0]);
    waitpid(pid, nullptr, 0);
    // A prompt, then straight away the reply: nothing of the line in between.
    EXPECT_NE(seen.find("% unknown command: 'zq-unique-1'\n% unknown command: 'zq-unique-2'\n% "),
              std::string::npos);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), '%'), 6);  // one prompt per line read
    // The printed boards show the positions in FEN, always with a side to move after them.
    for (const char* printed : {"unknown command: 'zq-unique-", "8/8/8/8/8/8/8/K6k w",
                                "8/8/8/7k/8/8/8/K7 w"})
        for (size_t at; (at = seen.find(printed)) != std::string::npos;)
            seen.erase(at, std::strlen(printed));
    for (const char* echo : {"zq-", "fen ", "K6k", "7k/8/8/8/K7", "quit"})
        EXPECT_EQ(seen.find(echo), std::string::npos) << echo << " in\n" << seen;
}

TEST(LineInput, CarriageReturnLineEndsWorkLikeLineFeeds) {
    const std::string lines = "zq-x\n\nfen 8/8/8/8/8/8/8/K6k w - - 0 1\n%\nKb1\n\nquit\n";
    std::string crlf;
    for (char c : lines) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
    EXPECT_EQ(runEngine(crlf).out, runEngine(lines).out);
    EXPECT_NE(runEngine("perft 1\r\nquit\r\n").out.find(" 20 ops in "), std::string::npos);
}

TEST(LineInput, HistoryFileKeepsTheLastHundredLines) {
    TempDir dir;
    std::string input;
    Lines sent;
    for (int i = 1; i <= 150; ++i) {
        sent.push_back("zq-h" + std::to_string(i));
        input += sent.back() + (i % 10 ? "\n" : "\n\n");
    }
    sent.push_back("quit");
    EXPECT_EQ(runEngine(input + "quit\n", {}, dir.path()).status, 0);
    Lines kept(sent.end() - 100, sent.end());
    EXPECT_EQ(fileLines(dir.file(".quarnhistory")), kept);
    // The next session starts from the history it finds.
    runEngine("zq-next\nquit\n", {}, dir.path());
    kept.erase(kept.begin(), kept.begin() + 2);
    kept.insert(kept.end(), {"zq-next", "quit"});
    EXPECT_EQ(fileLines(dir.file(".quarnhistory")), kept);
}

TEST(LineInput, TerminalShowsThePromptAndTakesTypedLines) {
    TempDir dir;
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(master, 0);
    ASSERT_EQ(grantpt(master) | unlockpt(master), 0);
    const pid_t pid = startEngine(dir.path(), -1, -1, ptsname(master));
    std::string seen;
    bool ok = awaitOutput(master, "initialized", seen) && awaitOutput(master, "% ", seen) &&
              write(master, "zq-tty\r", 7) == 7 &&
              awaitOutput(master, "unknown command: 'zq-tty'", seen) &&
              write(master, "quit\r", 5) == 5;
    EXPECT_TRUE(ok) << seen;
    int status = -1;
    for (int i = 0; ok && i < 2000 && !waitpid(pid, &status, WNOHANG); ++i) usleep(10000);
    if (!WIFEXITED(status)) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << seen;
    EXPECT_EQ(fileLines(dir.file(".quarnhistory")), (Lines{"zq-tty", "quit"}));
    close(master);
}

}  // namespace quarn::test
