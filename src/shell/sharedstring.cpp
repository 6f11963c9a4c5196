#include "shell/sharedstring.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace quarn {

namespace {
int32_t liveStrings = 0;
constexpr uint32_t kHeaderBytes = 8;
}  // namespace

int32_t liveStringCount() { return liveStrings; }

SharedString::Block* SharedString::allocate(uint32_t length) {
    auto* b = static_cast<Block*>(std::calloc(1, static_cast<size_t>(length) + kHeaderBytes));
    if (!b) {
        std::puts("malloc failed");
        std::abort();
    }
    b->refCount = 1;
    b->length = length;
    ++liveStrings;
    return b;
}

SharedString& SharedString::operator=(const SharedString& other) {
    if (this != &other && block_ != other.block_) {
        release();
        block_ = other.block_;
        retain();
    }
    return *this;
}

SharedString& SharedString::operator=(SharedString&& other) noexcept {
    if (this != &other) {
        release();
        block_ = other.block_;
        other.block_ = nullptr;
    }
    return *this;
}

SharedString SharedString::withLength(uint32_t length) {
    SharedString s;
    s.block_ = allocate(length);
    return s;
}

SharedString SharedString::fromText(const char* text) {
    return fromText(text, text ? static_cast<uint32_t>(std::strlen(text)) : 0);
}

SharedString SharedString::fromText(const char* text, uint32_t count) {
    SharedString s = withLength(count + 1);
    if (text) std::memcpy(s.block_->chars, text, count);
    s.block_->chars[count] = 0;
    return s;
}

void SharedString::release() {
    if (!block_) return;
    if (block_->refCount <= 1) {
        std::free(block_);
        --liveStrings;
    } else {
        --block_->refCount;
    }
    block_ = nullptr;
}

void SharedString::append(const char* chars, uint32_t count) {
    if (!chars || count == 0) return;
    const uint32_t oldLength = block_ ? block_->length : 1;
    const uint32_t newLength = oldLength + count;
    if (block_ && block_->refCount < 2) {
        auto* grown = static_cast<Block*>(std::realloc(block_, static_cast<size_t>(newLength) + kHeaderBytes));
        if (!grown) {
            std::puts("realloc failed");
            std::abort();
        }
        block_ = grown;
    } else {
        // Copy on write: the other owners keep the old text.
        Block* copy = allocate(newLength);
        if (block_) {
            std::memcpy(copy->chars, block_->chars, oldLength);
            --block_->refCount;
        }
        block_ = copy;
    }
    std::memcpy(block_->chars + oldLength - 1, chars, count);
    block_->length = newLength;
    block_->chars[newLength - 1] = 0;
}

bool SharedString::equals(const char* text) const {
    if (!text) return false;
    if (block_ && block_->chars == text) return true;
    return std::strcmp(chars(), text) == 0;
}

SharedString nextWord(SharedString& current) {
    const char* text = current.chars();
    const size_t cut = std::strcspn(text, " \t");
    if (text[cut] == 0) {
        SharedString word = SharedString::fromText(text);
        current = SharedString::fromText("");
        return word;
    }
    SharedString word = SharedString::fromText(text, static_cast<uint32_t>(cut));
    size_t rest = cut;
    if (text[cut] == ' ')
        while (text[rest] == ' ') ++rest;
    if (rest > 0) current = SharedString::fromText(text + rest);
    return word;
}

}  // namespace quarn
