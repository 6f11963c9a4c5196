// The shell's pieces: configuration table, shared strings and logging.
// GCC 12 with the sanitizers reports a false "maybe uninitialized" inside <regex>.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <fcntl.h>
#include <sys/stat.h>

#include <fstream>
#include <regex>

#include "shell/config.h"
#include "shell/log.h"
#include "shell/sharedstring.h"
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

std::string dumped(const ConfigTable& table) {
    return printed([&](FILE* out) { table.dump(out); });
}

// A key met again keeps its place and takes the new value; only blanks are trimmed; comments,
// lines without "=" and null arguments are skipped.
TEST(Config, ReadSetGetAndDump) {
    const std::string longValue(998, 'v');  // "l=" and this make a 1000-character line
    const std::string lines[] = {"  hash = 64  ", "a=b=c", "# x=1", "x", "", "=v", "k= ",
                                 "t\t=\tv", "hash=3", "l=" + longValue, "last=1"};
    std::string expected = "hash=3\na=b=c\n=v\nk=\nt\t=\tv\nl=" + longValue + "\nlast=1\n";
    TempDir dir;
    for (const std::string end : {"\n", "\r\n"}) {
        std::string text;
        for (const std::string& line : lines) text += (text.empty() ? "" : end) + line;
        // The last line ends in a lone carriage return, or in nothing at all.
        std::ofstream(dir.file("q.ini"), std::ios::binary) << text + (end[0] == '\r' ? "\r" : "");
        ConfigTable table;
        EXPECT_TRUE(table.read(dir.file("q.ini").c_str()));
        EXPECT_EQ(dumped(table), expected) << (end[0] == '\r' ? "CRLF" : "LF");
        EXPECT_STREQ(table.get("a", ""), "b=c");
    }
    ConfigTable table;
    EXPECT_FALSE(table.read(dir.file("missing.ini").c_str()));
    EXPECT_STREQ(table.get("hash", "dflt"), "dflt");
    table.set(nullptr, "1");
    table.set("k", nullptr);
    EXPECT_EQ(table.count(), 0u);
    expected.clear();
    for (int i = 0; i < 40; ++i) {  // capacity 4, 8, ..., 64: reallocations with pairs in them
        const std::string key = "key" + std::to_string(i), value = std::to_string(i * 7);
        table.set(key.c_str(), value.c_str());
        expected += key + "=" + (i == 3 ? "a=b" : value) + "\n";
    }
    table.set("key3", "a=b");
    EXPECT_EQ(table.find("nokey"), nullptr);
    EXPECT_EQ(dumped(table), expected);
}

TEST(SharedString, NextWordSkipsBlanksButNeverTabs) {
    using Steps = std::vector<std::pair<std::string, std::string>>;  // a word, the text left
    const struct { const char* text; Steps steps; } cases[] = {
        {"a  b", {{"a", "b"}, {"b", ""}, {"", ""}}},
        {"a\tb", {{"a", "\tb"}, {"", "\tb"}, {"", "\tb"}}},
        {"a \tb", {{"a", "\tb"}, {"", "\tb"}}},
        {" a", {{"", "a"}, {"a", ""}}},
        {"go depth 5 ", {{"go", "depth 5 "}, {"depth", "5 "}, {"5", ""}}},
    };
    const int32_t live = liveStringCount();
    for (const auto& c : cases) {
        SharedString current = SharedString::fromText(c.text);
        for (const auto& [word, left] : c.steps) {
            const SharedString w = nextWord(current);
            EXPECT_TRUE(w.equals(word.c_str())) << c.text << " gave '" << w.chars() << "'";
            EXPECT_EQ(w.refCount(), 1u);
            EXPECT_EQ(std::string(current.chars()), left) << c.text;
            EXPECT_EQ(current.length(), left.size() + 1) << c.text;
        }
    }
    EXPECT_EQ(liveStringCount(), live);
}

// Copies share the text until one of them is written; every string is freed by its last owner.
TEST(SharedString, CountsCopyOnWriteAndRelease) {
    const int32_t live = liveStringCount();
    {
        SharedString a = SharedString::fromText("ab"), b = a, c = a;
        b.append("cd", 2);   // shared: b gets its own copy
        b.append("efg", 3);  // sole owner: grown in place
        b.append(nullptr, 5);
        EXPECT_TRUE(a.equals("ab") && b.equals("abcdefg") && !b.equals("abcdef") &&
                    !b.equals(nullptr) && SharedString::fromText(nullptr).length() == 1);
        EXPECT_EQ(b.length(), 8u);
        EXPECT_EQ(liveStringCount(), live + 2);
        c.release();
        EXPECT_TRUE(c.isNull());
        EXPECT_EQ(a.refCount(), 1u);
        a = a;
        a.release();
        a.release();
        EXPECT_EQ(liveStringCount(), live + 1);
        c.append("tail", 4);
        EXPECT_STREQ(c.chars(), "tail");
        ConfigTable table;  // its strings go with it
        table.set("k", "1");
        table.set("k", "2");
    }
    EXPECT_EQ(liveStringCount(), live);
}

TEST(Log, QuietKeepsWarningsAndTheEchoIsStampedAndFlushed) {
    const struct { int level; bool stream; const char* written; } cases[] = {
        {kLogNormal, true, "m1;w2;"}, {kLogQuiet, true, "w2;"}, {3, true, ""},
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
