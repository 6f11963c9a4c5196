#include "search/tt.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/mman.h>

#include "shell/log.h"

namespace quarn {

constinit Tt tt;

TtCounters& Tt::counters() {
    thread_local TtCounters mine;
    return mine;
}

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

// Every probe lands on a random line of the table, so with small pages nearly every one
// misses the TLB as well as the cache. A table of a huge page or more starts on a huge-page
// boundary and asks for huge pages before its zero pages are first touched; where the kernel
// will not give them, nothing changes.
constexpr size_t kHugePage = size_t{1} << 21;

size_t alignmentFor(uint32_t bytes) { return bytes >= kHugePage ? kHugePage : Tt::kAlignment; }

void askForHugePages(void* start, uint32_t bytes) {
#ifdef MADV_HUGEPAGE
    if (bytes >= kHugePage) madvise(start, bytes, MADV_HUGEPAGE);
#else
    (void)start;
    (void)bytes;
#endif
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
    while (!(raw = std::calloc(1, size_t{sizeBytes_} + alignmentFor(sizeBytes_)))) {
        logWarning("tt: malloc(%u) failed, retrying...\n", sizeBytes_);
        sizeBytes_ /= 2;
        if (sizeBytes_ < kSmallestTry) failAllocation();
    }
    rawBlock_ = raw;
    const uintptr_t alignment = alignmentFor(sizeBytes_);
    const uintptr_t start = reinterpret_cast<uintptr_t>(raw) + alignment - 1;
    entries_ = reinterpret_cast<TtEntry*>(start & ~(alignment - 1));
    askForHugePages(entries_, sizeBytes_);
    entryCount_ = sizeBytes_ / sizeof(TtEntry);
    mask_ = entryCount_ - 1;
    generation_ = 1;
    prefaulted_ = false;
    return bytes;
}

void Tt::prefault() {
    // One write per small page maps it (a huge page on its first write); calloc's pages are
    // zero already, so a zero changes nothing but where the cost falls.
    constexpr size_t kPage = 4096;
    volatile char* bytes = reinterpret_cast<volatile char*>(entries_);
    for (size_t i = 0; i < sizeBytes_; i += kPage) bytes[i] = bytes[i];
    prefaulted_ = true;
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
        if (load(home ^ i).check != check) continue;
        save(home ^ i, TtEntry{});
        removed = true;
    }
    return removed;
}

}  // namespace quarn
