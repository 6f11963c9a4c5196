// GCC 12 with the sanitizers reports a false "maybe uninitialized" inside <regex>.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>

#include "shell/log.h"
#include "support.h"

namespace {
// mkdir fails on a directory that exists, so a log file search only ever meets an empty
// directory. While this is set, mkdir answers 17, which the directory maker takes for success:
// that lets a test run the search in a directory that already holds log files.
bool mkdirAnswers17 = false;
}  // namespace

// Stands in for the C library's mkdir in this test binary and passes every other call through.
extern "C" int mkdir(const char* path, mode_t mode) noexcept {
    return mkdirAnswers17 ? 17 : mkdirat(AT_FDCWD, path, mode);
}

namespace quarn::test {
namespace {

TEST(Log, QuietKeepsWarningsAndTheEchoIsStampedAndFlushed) {
    const struct {
        int level;
        bool stream;
        const char* written;
    } cases[] = {{kLogNormal, true, "m1;w2;"}, {kLogQuiet, true, "w2;"}, {3, true, ""},
                 {kLogNormal, false, ""}};
    TempDir dir;
    for (const auto& c : cases) {
        FILE* out = std::fopen(dir.file("log").c_str(), "w");  // fully buffered
        setLogStream(c.stream ? out : nullptr);
        setLogLevel(c.level);
        logMessage("m%d;", 1);
        logWarning("w%s;", "2");
        std::fclose(out);
        EXPECT_EQ(readFile(dir.file("log")), c.written) << c.level << c.stream;
    }
    FILE* out = std::fopen(dir.file("log").c_str(), "w");
    setLogStream(out);
    setLogLevel(kLogNormal);
    logProtocol(nullptr, nullptr);
    logProtocol("go()...", " depth 5");
    EXPECT_TRUE(std::regex_match(readFile(dir.file("log")),  // read before the stream is closed
                                 std::regex("\\d{10}:\\?\n\\d{10}:go\\(\\)\\.\\.\\. depth 5\n")));
    std::fclose(out);
    setLogStream(stdout);
}

TEST(Log, NumberedFilesInTheLogDirectory) {
    TempDir dir;
    const std::string logs = dir.file("logs");
    EXPECT_EQ(runEngine("uci\nquit\n", {"--logdir", logs}, dir.path()).err, "");
    EXPECT_NE(readFile(logs + "/quarn-0000.log").find(":<--uciok\n"), std::string::npos);
    // mkdir fails on a directory that exists, so a second start runs without a log.
    EXPECT_EQ(runEngine("uci\nquit\n", {"--logdir", logs}, dir.path()).err,
              "FileSystem: error -1 creating directory '" + logs +
                  "'\ncould not create logdir: " + logs + "\n");
    // Where the directory counts as made although it exists, the first free number is taken.
    std::ofstream(logs + "/quarn-0001.log") << "one\n";
    mkdirAnswers17 = true;
    setLogDirectory(logs.c_str());
    setUpLogFile();
    mkdirAnswers17 = false;
    setLogDirectory("");
    ASSERT_NE(logStream(), nullptr);
    logMessage("probe\n");
    std::fclose(logStream());
    setLogStream(stdout);
    EXPECT_NE(readFile(logs + "/quarn-0002.log").find("probe\n"), std::string::npos);
    EXPECT_EQ(readFile(logs + "/quarn-0001.log"), "one\n");
}

}  // namespace
}  // namespace quarn::test
