// `quarn bench [depth [threads]]`: a fixed set of positions searched to a fixed depth. With one
// thread the node total is the search's signature: any change of search behaviour changes it.
// With more, the threads race for the table and the count varies; the speed is the figure.
#pragma once

namespace quarn {

// Depth used when none is given: about five seconds in a Release build.
constexpr int kDefaultBenchDepth = 11;

// Initialises the engine, searches every position (table cleared before each, console lines
// off), prints "Nodes searched: <total>" and "Nodes/second: <rate>". Returns the exit status.
int runBench(int depth, int threads = 1);

// Node total of searching the bench positions to `depth` on an initialised engine.
unsigned long long benchNodes(int depth, double* seconds);

}  // namespace quarn
