#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "shell/config.h"
#include "support.h"

namespace quarn::test {
namespace {

// The table's "key=value" lines.
std::string dumped(const ConfigTable& table) {
    char* text = nullptr;
    size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    table.dump(out);
    std::fclose(out);
    const std::string lines(text, size);
    std::free(text);
    return lines;
}

TEST(Config, ReadsKeyValueLinesWithEitherLineEnd) {
    const std::string longValue(998, 'v');  // "l=" and this make a 1000-character line
    const std::string lines[] = {"  hash = 64  ", "a=b=c", "# x=1", "x", "", "=v", "k= ",
                                 "t\t=\tv", "hash=3", "l=" + longValue, "last=1"};
    // A key met again keeps its place and takes the new value; only blanks are trimmed.
    const std::string expected = "hash=3\na=b=c\n=v\nk=\nt\t=\tv\nl=" + longValue + "\nlast=1\n";
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
    EXPECT_EQ(table.count(), 0u);
}

TEST(Config, SetGetDumpAndGrowth) {
    ConfigTable table;
    EXPECT_STREQ(table.get("hash", "dflt"), "dflt");
    table.set(nullptr, "1");
    table.set("k", nullptr);
    std::string expected;
    // Capacity goes 4, 8, 16, 32, 64: several reallocations with pairs in them.
    for (int i = 0; i < 40; ++i) {
        const std::string key = "key" + std::to_string(i), value = std::to_string(i * 7);
        table.set(key.c_str(), value.c_str());
        expected += key + "=" + (i == 3 ? "a=b" : value) + "\n";
    }
    table.set("key3", "a=b");
    EXPECT_STREQ(table.get("key39", "dflt"), "273");
    EXPECT_EQ(table.find("nokey"), nullptr);
    EXPECT_EQ(dumped(table), expected);
}

}  // namespace
}  // namespace quarn::test
