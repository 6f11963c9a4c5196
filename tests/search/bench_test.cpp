// The bench node count: the same on every run and in every build, and equal to the record.
#include "shell/bench.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "search/pool.h"
#include "search/tt.h"
#include "support.h"

namespace quarn::test {

// The search's signature: the node total of `quarn bench 5`. Any change of search behaviour
// changes it; update it on purpose and say "Bench: <count>" in the commit message. Debug,
// sanitizer and Release builds must all give this same count.
constexpr unsigned long long kBenchSignature = 191326;

TEST(Bench, CountIsRepeatableAndMatchesTheRecord) {
    tt.resize(16384);  // the size `quarn bench` searches with
    initThreads();
    setQuiet(true);
    EXPECT_EQ(benchNodes(5, nullptr), kBenchSignature);
    EXPECT_EQ(benchNodes(5, nullptr), kBenchSignature);
    const std::string out = runEngine("", {"bench", "5"}).out;
    EXPECT_NE(out.find("Nodes searched: " + std::to_string(kBenchSignature) + "\n"),
              std::string::npos) << out;
}

// "g" clears the table, so a second search of the same position takes exactly the nodes of the
// first at every depth: nothing else a search leaves behind may change the next one.
TEST(Bench, ConsoleSearchRepeatsAfterClearing) {
    // Depth and nodes of a console line: "  [6/6]     0.003    7800       11  ok/4.4".
    const std::regex line(R"(\[(\d+)/\d+\]\s+\S+\s+(\S+))");
    const std::string out = runEngine("mt 1000\nmd 6\ng\ng\n").out;
    std::string all;
    for (std::sregex_iterator it(out.begin(), out.end(), line), end; it != end; ++it)
        all += (*it)[1].str() + ":" + (*it)[2].str() + " ";
    const std::string first = all.substr(0, all.size() / 2);
    EXPECT_NE(first.find(" 6:"), std::string::npos) << all;
    EXPECT_EQ(first + first, all);
}

}  // namespace quarn::test
