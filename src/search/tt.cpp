#include "search/tt.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "shell/log.h"

namespace quarn {

constinit Tt tt;

namespace {

// Below this a table is no use; give up.
constexpr uint32_t kSmallestTry = 64;
// Requests below this many kilobytes (after rounding down) get the floor size instead.
constexpr uint32_t kFloorKilobytes = 256;

// Bytes for a request of k kilobytes: the largest power of two p with 2 <= p <= k, in KB,
// unless that is under 256 KB, when the floor applies.
uint32_t bytesFor(uint32_t kilobytes) {
    if (kilobytes <= 1) return Tt::kMinBytes;
    uint32_t p = 2;
    while (p <= kilobytes / 2) p *= 2;
    return p < kFloorKilobytes ? Tt::kMinBytes : p * 1024;
}

// Once "uci" has run, stderr is the error log, so one write reaches it.
[[noreturn]] void failAllocation() {
    std::fputs("FATAL: failed to malloc Tt!\n", stderr);
    std::fflush(stderr);
    std::abort();
}

}  // namespace

uint32_t Tt::resize(uint32_t kilobytes) {
    const uint32_t bytes = bytesFor(kilobytes);
    if (bytes == sizeBytes_) return bytes;

    release();
    sizeBytes_ = bytes;
    void* raw;
    // Halve on every failure: a smaller table is better than none.
    // calloc hands over fresh zero pages without touching them, which keeps start-up fast.
    while (!(raw = std::calloc(1, static_cast<size_t>(sizeBytes_) + kAlignment))) {
        logWarning("tt: malloc(%u) failed, retrying...\n", sizeBytes_);
        sizeBytes_ /= 2;
        if (sizeBytes_ < kSmallestTry) failAllocation();
    }
    rawBlock_ = raw;
    const uintptr_t start = reinterpret_cast<uintptr_t>(raw) + kAlignment - 1;
    entries_ = reinterpret_cast<TtEntry*>(start & ~static_cast<uintptr_t>(kAlignment - 1));
    entryCount_ = sizeBytes_ / sizeof(TtEntry);
    mask_ = entryCount_ - 1;
    generation_ = 1;
    return bytes;
}

void Tt::clear() {
    if (entries_) std::memset(static_cast<void*>(entries_), 0, sizeBytes_);
    generation_ = 1;
}

void Tt::release() {
    std::free(rawBlock_);
    rawBlock_ = nullptr;
    entries_ = nullptr;
    sizeBytes_ = entryCount_ = mask_ = 0;
}

bool Tt::remove(const Position& pos) {
    const uint32_t home = homeIndex(pos), check = ttCheck(pos.hashKey);
    bool removed = false;
    for (uint32_t i = 0; i < kWays; ++i) {
        TtEntry& e = entries_[home ^ i];
        if (e.check != check) continue;
        e = TtEntry{};
        removed = true;
    }
    return removed;
}

}  // namespace quarn
