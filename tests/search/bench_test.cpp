// The bench node count: the same on every run and in every build, and equal to the record.
#include "shell/bench.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "search/pool.h"
#include "search/tt.h"
#include "support.h"

namespace quarn::test {

namespace {

// The search's signature: the node total of `quarn bench 5`. Any change of search behaviour
// changes it; update it on purpose and say "Bench: <count>" in the commit message. Debug,
// sanitizer and Release builds must all give this same count.
constexpr int kBenchDepth = 5;
constexpr unsigned long long kBenchSignature = 191326;

// "depth:nodes" of the last console search line ("  [6/6]     0.003    7800       11  ok/4.4").
std::string lastDepthAndNodes(const std::string& out) {
    static const std::regex line(R"(\[(\d+)/\d+\]\s+\S+\s+(\S+))");
    std::string last;
    for (std::sregex_iterator it(out.begin(), out.end(), line), end; it != end; ++it)
        last = (*it)[1].str() + ":" + (*it)[2].str();
    return last;
}

}  // namespace

TEST(Bench, CountIsRepeatableAndMatchesTheRecord) {
    tt.resize(16384);  // the size `quarn bench` searches with
    initThreads();
    setQuiet(true);
    const unsigned long long first = benchNodes(kBenchDepth, nullptr);
    EXPECT_EQ(benchNodes(kBenchDepth, nullptr), first);
    EXPECT_EQ(first, kBenchSignature);
    const EngineRun run = runEngine("", {"bench", std::to_string(kBenchDepth)});
    const std::string expected = "Nodes searched: " + std::to_string(kBenchSignature) + "\n";
    EXPECT_NE(run.out.find(expected), std::string::npos) << run.out;
}

// "g" clears the table, so a second search of the same position takes exactly the nodes of the
// first: nothing else a search leaves behind may change the next one.
TEST(Bench, ConsoleSearchRepeatsAfterClearing) {
    const std::string once = lastDepthAndNodes(runEngine("mt 1000\nmd 6\ng\n").out);
    EXPECT_EQ(once.rfind("6:", 0), 0u) << once;
    EXPECT_EQ(lastDepthAndNodes(runEngine("mt 1000\nmd 6\ng\ng\n").out), once);
}

}  // namespace quarn::test
