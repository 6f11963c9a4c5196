#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>

#include "shell/clock.h"
#include "shell/filesystem.h"
#include "shell/log.h"
#include "support.h"

namespace {
// mkdir fails on a directory that exists, so the log file search only ever meets an empty
// directory. While this is set, mkdir answers 17, a value the directory maker accepts as
// success, which lets a test run the search in a directory that already holds log files.
bool mkdirAnswers17 = false;
}  // namespace

// Stands in for the C library's mkdir in this test binary and passes every other call through.
extern "C" int mkdir(const char* path, mode_t mode) noexcept {
    return mkdirAnswers17 ? 17 : mkdirat(AT_FDCWD, path, mode);
}

namespace quarn::test {

namespace {

// Puts the log stream, level and directory back when a test ends.
struct LogSettings {
    FILE* stream = logStream();
    int level = logLevel();
    SharedString directory = logDirectory();
    ~LogSettings() {
        setLogStream(stream);
        setLogLevel(level);
        setLogDirectory(directory.chars());
        mkdirAnswers17 = false;
    }
};

std::string readFile(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// What `action` writes to file descriptor 2.
std::string captureStderr(const std::function<void()>& action) {
    FILE* sink = std::tmpfile();
    const int saved = dup(2);
    dup2(fileno(sink), 2);
    action();
    dup2(saved, 2);
    close(saved);
    std::string text(4096, 0);
    text.resize(std::max<ssize_t>(0, pread(fileno(sink), text.data(), text.size(), 0)));
    std::fclose(sink);
    return text;
}

}  // namespace

TEST(Log, LevelsAndNullStream) {
    LogSettings keep;
    const struct {
        int level;
        bool stream, message, warning;
    } cases[] = {{kLogNormal, true, true, true},    {kLogQuiet, true, false, true},
                 {3, true, false, false},           {kLogNormal, false, false, false},
                 {kLogQuiet, false, false, false}};
    for (const auto& c : cases) {
        char* text = nullptr;
        size_t size = 0;
        FILE* out = open_memstream(&text, &size);
        setLogStream(c.stream ? out : nullptr);
        setLogLevel(c.level);
        logMessage("m%d;", 1);
        logWarning("w%s;", "2");
        std::fclose(out);
        EXPECT_EQ(std::string(text), std::string(c.message ? "m1;" : "") + (c.warning ? "w2;" : ""))
            << "level " << c.level << " stream " << c.stream;
        std::free(text);
    }
}

TEST(Log, ProtocolEchoIsStampedAndFlushed) {
    LogSettings keep;
    TempDir dir;
    FILE* out = std::fopen(dir.file("echo").c_str(), "w");  // fully buffered
    ASSERT_NE(out, nullptr);
    setLogStream(out);
    setLogLevel(kLogNormal);
    const uint32_t before = clockMs();
    logProtocol(nullptr, nullptr);
    logProtocol("<--uciok", nullptr);
    logProtocol("go()...", " depth 5");
    const uint32_t after = clockMs();
    const std::string text = readFile(dir.file("echo"));  // read before closing the stream
    std::istringstream lines(text);
    std::string line;
    for (const char* rest : {":?", ":<--uciok", ":go()... depth 5"}) {
        ASSERT_TRUE(std::getline(lines, line));
        EXPECT_EQ(line.find_first_not_of("0123456789"), 10u) << line;
        EXPECT_EQ(line.substr(10), rest);
        const auto stamp = static_cast<uint32_t>(std::strtoul(line.c_str(), nullptr, 10));
        EXPECT_LE(stamp - before, after - before) << line;  // the clock wraps: compare differences
    }
    EXPECT_FALSE(std::getline(lines, line));
    setLogLevel(kLogQuiet);
    logProtocol("quiet", nullptr);
    std::fclose(out);
    EXPECT_EQ(readFile(dir.file("echo")), text);
}

TEST(Log, LogFileSetUp) {
    LogSettings keep;
    TempDir dir;
    const std::string logs = dir.file("logs");
    auto setUp = [&](const std::string& directory) {
        setLogStream(stdout);
        setLogLevel(kLogNormal);
        setLogDirectory(directory.c_str());
        return captureStderr(setUpLogFile);
    };
    auto probe = [](const std::string& file) {
        logMessage("probe\n");
        std::fclose(logStream());
        return readFile(file).find("probe\n") != std::string::npos;
    };
    // No directory: logging off.
    EXPECT_EQ(setUp(""), "");
    EXPECT_EQ(logStream(), nullptr);
    // A new directory gets the first file.
    EXPECT_EQ(setUp(logs), "");
    ASSERT_NE(logStream(), nullptr);
    EXPECT_TRUE(probe(logs + "/quarn-0000.log"));
    // mkdir fails on a directory that exists; so does a second set-up, which runs without a log.
    bool made = true;
    EXPECT_EQ(captureStderr([&] { made = FileSystem::makeDirectory(logs.c_str(), 0755); }),
              "FileSystem: error -1 creating directory '" + logs + "'\n");
    EXPECT_FALSE(made);
    EXPECT_FALSE(FileSystem::makeDirectory(nullptr, 0755));
    EXPECT_EQ(setUp(logs), "FileSystem: error -1 creating directory '" + logs +
                               "'\ncould not create logdir: " + logs + "\n");
    EXPECT_EQ(logStream(), nullptr);
    EXPECT_FALSE(FileSystem::fileExists((logs + "/quarn-0001.log").c_str()));
    // Where the directory counts as made although it exists, the first free number is taken.
    std::ofstream(logs + "/quarn-0001.log") << "one\n";
    mkdirAnswers17 = true;
    EXPECT_EQ(setUp(logs), "");
    ASSERT_NE(logStream(), nullptr);
    EXPECT_TRUE(probe(logs + "/quarn-0002.log"));
    EXPECT_EQ(readFile(logs + "/quarn-0001.log"), "one\n");
}

TEST(Log, ErrorLogAppendsStderrInTheWorkingDirectory) {
    TempDir dir;
    std::ofstream(dir.file("quarn-0.3a-error.log")) << "earlier run\n";
    const pid_t pid = fork();
    if (pid == 0) {
        // stderr is reopened for good, so only a child process may try it.
        if (chdir(dir.path().c_str()) != 0) _exit(2);
        openErrorLog();
        std::fputs("this run\n", stderr);
        _exit(0);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(readFile(dir.file("quarn-0.3a-error.log")), "earlier run\nthis run\n");
}

}  // namespace quarn::test
