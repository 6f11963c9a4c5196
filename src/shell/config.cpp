#include "shell/config.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "shell/log.h"

namespace quarn {

namespace {
constexpr uint32_t kInitialLineBuffer = 128;
constexpr uint32_t kMinimumCapacity = 4;

// Removes blanks (the space character only) from both ends, in place.
char* trimBlanks(char* text) {
    while (*text == ' ') ++text;
    size_t n = std::strlen(text);
    while (n > 0 && text[n - 1] == ' ') text[--n] = 0;
    return text;
}
}  // namespace

ConfigTable& configTable() {
    static ConfigTable table;
    return table;
}

void ConfigTable::clear() {
    for (uint32_t i = 0; i < count_; ++i) pairs_[i].~ConfigPair();
    std::free(pairs_);
    pairs_ = nullptr;
    count_ = capacity_ = 0;
}

const ConfigPair* ConfigTable::find(const char* key) const {
    for (uint32_t i = 0; key && i < count_; ++i)
        if (!std::strcmp(pairs_[i].key.chars(), key)) return &pairs_[i];
    return nullptr;
}

const char* ConfigTable::get(const char* key, const char* fallback) const {
    const ConfigPair* pair = find(key);
    return pair ? pair->value.chars() : fallback;
}

void ConfigTable::set(const char* key, const char* value) {
    if (!key || !value) return;
    if (const ConfigPair* pair = find(key)) {
        const_cast<ConfigPair*>(pair)->value = SharedString::fromText(value);
        return;
    }
    if (count_ == capacity_) {
        uint32_t grown = capacity_ * 2;
        if (grown < count_ + 1) grown = count_ + 1;
        if (grown < kMinimumCapacity) grown = kMinimumCapacity;
        // Pairs hold only pointers, so they move with realloc.
        auto* moved = static_cast<ConfigPair*>(std::realloc(static_cast<void*>(pairs_), grown * sizeof(ConfigPair)));
        if (!moved) {
            std::puts("realloc failed");
            std::abort();
        }
        pairs_ = moved;
        capacity_ = grown;
    }
    new (&pairs_[count_]) ConfigPair{SharedString::fromText(key), SharedString::fromText(value)};
    ++count_;
}

void ConfigTable::dump(FILE* out) const {
    for (uint32_t i = 0; i < count_; ++i)
        std::fprintf(out, "%s=%s\n", pairs_[i].key.chars(), pairs_[i].value.chars());
}

bool ConfigTable::read(const char* path) {
    FILE* in = path ? std::fopen(path, "r") : nullptr;
    if (!in) return false;
    ConfigLineReader reader;
    while (const char* text = reader.next(in)) {
        if (!text[0] || text[0] == '#') continue;
        char* line = const_cast<char*>(text);
        char* equals = std::strchr(line, '=');
        if (!equals) continue;
        *equals = 0;
        set(trimBlanks(line), trimBlanks(equals + 1));
    }
    std::fclose(in);
    return true;
}

ConfigLineReader::~ConfigLineReader() { std::free(buffer_); }

const char* ConfigLineReader::next(FILE* in) {
    if (!in || std::feof(in)) return nullptr;
    if (!buffer_) {
        buffer_ = static_cast<char*>(std::malloc(kInitialLineBuffer));
        if (!buffer_) return nullptr;
        size_ = kInitialLineBuffer;
    }
    size_t length = 0;
    buffer_[0] = 0;
    for (;;) {
        if (!std::fgets(buffer_ + length, static_cast<int>(size_ - length), in)) {
            if (length == 0) {
                std::free(buffer_);
                buffer_ = nullptr;
                size_ = 0;
                return nullptr;
            }
            return buffer_;  // the last line had no line end
        }
        length = std::strlen(buffer_);
        if (length && buffer_[length - 1] == '\n') {
            buffer_[--length] = 0;
            if (length && buffer_[length - 1] == '\r') buffer_[--length] = 0;
            return buffer_;
        }
        if (length && buffer_[length - 1] == '\r') {
            buffer_[--length] = 0;
            if (length && buffer_[length - 1] == '\n') buffer_[--length] = 0;
            return buffer_;
        }
        if (std::feof(in)) return buffer_;
        if (length >= size_ / 2) {
            const uint32_t grown = size_ * 2;
            char* bigger = static_cast<char*>(std::realloc(buffer_, grown));
            if (!bigger) {
                logWarning("out of memory allocating %i bytes\n", static_cast<int>(grown));
                return nullptr;
            }
            buffer_ = bigger;
            size_ = grown;
        } else {
            // fgets stopped early without a line end: a NUL byte in the line.
            logMessage("??n=%i, size=%i, line=%s\n", static_cast<int>(length), static_cast<int>(size_), buffer_);
        }
    }
}

}  // namespace quarn
