#include <gtest/gtest.h>

#include "shell/config.h"
#include "shell/sharedstring.h"

namespace quarn::test {

TEST(SharedString, NextWordSkipsBlanksButNeverTabs) {
    const struct {
        const char* text;
        std::vector<std::pair<std::string, std::string>> steps;  // word, then the text left
    } cases[] = {
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

TEST(SharedString, CountsCopyOnWriteAndRelease) {
    const int32_t live = liveStringCount();
    {
        SharedString a = SharedString::fromText("ab"), b = a, c = a;
        EXPECT_EQ(a.refCount(), 3u);
        b.append("cd", 2);  // shared: b gets its own copy
        b.append("efg", 3);  // sole owner: grown in place
        b.append("xyz", 0);
        b.append(nullptr, 5);
        EXPECT_STREQ(a.chars(), "ab");
        EXPECT_STREQ(b.chars(), "abcdefg");
        EXPECT_EQ(b.length(), 8u);
        EXPECT_EQ(b.refCount(), 1u);
        EXPECT_EQ(liveStringCount(), live + 2);
        c.release();
        EXPECT_TRUE(c.isNull());
        EXPECT_EQ(a.refCount(), 1u);
        a = a;
        a.release();
        a.release();
        EXPECT_EQ(liveStringCount(), live + 1);
        EXPECT_EQ(SharedString::fromText(nullptr).length(), 1u);
        EXPECT_FALSE(b.equals(nullptr));
        EXPECT_FALSE(b.equals("abcdef"));
        c.append("tail", 4);
        EXPECT_STREQ(c.chars(), "tail");
        ConfigTable table;  // its strings go with it
        table.set("k", "1");
        table.set("k", "2");
    }
    EXPECT_EQ(liveStringCount(), live);
}

}  // namespace quarn::test
