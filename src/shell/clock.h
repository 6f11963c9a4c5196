// Wall-clock milliseconds and the processor's cycle counter.
#pragma once

#include <sys/time.h>
#include <x86intrin.h>

#include <cstdint>

namespace quarn {

// Milliseconds, 32 bits and wrapping: only differences of two readings mean anything.
inline uint32_t clockMs() {
    timeval tv;
    gettimeofday(&tv, nullptr);
    return static_cast<uint32_t>(tv.tv_sec) * 1000u + static_cast<uint32_t>(tv.tv_usec / 1000);
}

// Milliseconds as a double, for timing long operations such as perft.
inline double wallMs() {
    timeval tv;
    gettimeofday(&tv, nullptr);
    const long wholeMs = tv.tv_usec / 1000;  // the clock counts whole milliseconds
    return static_cast<double>(tv.tv_sec) * 1000.0 + static_cast<double>(wholeMs);
}

inline uint64_t cycleCount() { return __rdtsc(); }

}  // namespace quarn
