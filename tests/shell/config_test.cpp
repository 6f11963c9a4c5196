#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <utility>

#include "shell/config.h"
#include "support.h"

namespace quarn::test {

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

Pairs pairsOf(const ConfigTable& table) {
    Pairs pairs;
    for (uint32_t i = 0; i < table.count(); ++i)
        pairs.emplace_back(table.at(i).key.chars(), table.at(i).value.chars());
    return pairs;
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
    for (size_t p = text.find(from); p != std::string::npos; p = text.find(from, p + to.size()))
        text.replace(p, from.size(), to);
    return text;
}

}  // namespace

TEST(Config, ReadsKeyValueLinesWithEitherLineEnd) {
    const std::string longValue(998, 'v');  // "k=" and this make a 1000-character line
    const struct {
        std::string text;
        Pairs pairs;
    } cases[] = {
        {"  hash = 64  \n", {{"hash", "64"}}},
        {"a=b=c\n", {{"a", "b=c"}}},
        {"k=1\nz=2\nk=3\n", {{"k", "3"}, {"z", "2"}}},
        {"# x=1\nx\n\ny=2\n", {{"y", "2"}}},
        {"=v\nk= \n", {{"", "v"}, {"k", ""}}},
        {"t\t=\tv\n", {{"t\t", "\tv"}}},  // only the space character is trimmed
        {"p=1\nq=2", {{"p", "1"}, {"q", "2"}}},
        {"k=" + longValue + "\nz=1\n", {{"k", longValue}, {"z", "1"}}},
        {"", {}},
    };
    TempDir dir;
    for (const auto& c : cases) {
        for (const char* end : {"\n", "\r\n"}) {
            writeFile(dir.file("q.ini"), replaceAll(c.text, "\n", end));
            ConfigTable table;
            EXPECT_TRUE(table.read(dir.file("q.ini").c_str()));
            EXPECT_EQ(pairsOf(table), c.pairs) << c.text.substr(0, 40) << (end[1] ? "CRLF" : "LF");
        }
    }
    ConfigTable table;
    EXPECT_FALSE(table.read(dir.file("missing.ini").c_str()));
    EXPECT_EQ(table.count(), 0u);
}

TEST(Config, LineReaderDoublesItsBufferForLongLines) {
    TempDir dir;
    const std::string line(1000, 'x');
    writeFile(dir.file("lines"), "a\r\n" + line + "\nb\r");
    FILE* in = std::fopen(dir.file("lines").c_str(), "r");
    ASSERT_NE(in, nullptr);
    ConfigLineReader reader;
    EXPECT_STREQ(reader.next(in), "a");
    EXPECT_EQ(reader.bufferSize(), 128u);
    EXPECT_EQ(reader.next(in), line);
    EXPECT_EQ(reader.bufferSize(), 1024u);  // 128 -> 256 -> 512 -> 1024
    EXPECT_STREQ(reader.next(in), "b");
    EXPECT_EQ(reader.next(in), nullptr);
    EXPECT_EQ(reader.next(nullptr), nullptr);
    std::fclose(in);
}

TEST(Config, SetGetDumpAndGrowth) {
    ConfigTable table;
    EXPECT_STREQ(table.get("hash", "dflt"), "dflt");
    table.set(nullptr, "1");
    table.set("k", nullptr);
    EXPECT_EQ(table.count(), 0u);
    Pairs expected;
    // Capacity goes 4, 8, 16, 32, 64: several reallocations with pairs in them.
    for (int i = 0; i < 40; ++i) {
        const std::string key = "key" + std::to_string(i), value = std::to_string(i * 7);
        table.set(key.c_str(), value.c_str());
        expected.emplace_back(key, value);
    }
    table.set("key3", "new");
    expected[3].second = "new";
    EXPECT_EQ(pairsOf(table), expected);
    EXPECT_STREQ(table.get("key39", "dflt"), "273");
    EXPECT_EQ(table.find("nokey"), nullptr);

    ConfigTable small;
    small.set("hash", "64");
    small.set("a", "b=c");
    char* text = nullptr;
    size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    small.dump(out);
    std::fclose(out);
    EXPECT_STREQ(text, "hash=64\na=b=c\n");
    std::free(text);
}

TEST(Config, StartUpReportsTheIniFileInTheWorkingDirectory) {
    const struct {
        const char* content;  // null: no file
        bool reported;
    } cases[] = {{nullptr, false}, {"", true}, {"hash=64\n", true}};
    for (const auto& c : cases) {
        TempDir dir;
        if (c.content) writeFile(dir.file("quarn.ini"), c.content);
        const EngineRun run = runEngine("quit\n", {}, dir.path());
        EXPECT_EQ(run.status, 0);
        const size_t at = run.out.find("inifile=quarn.ini\n");
        EXPECT_EQ(at != std::string::npos, c.reported) << run.out;
        if (c.reported) {
            EXPECT_LT(at, run.out.find("initialized"));
        }
    }
}

}  // namespace quarn::test
