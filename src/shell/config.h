// The configuration file: key=value lines read at start-up into a table of strings.
#pragma once

#include <cstdint>
#include <cstdio>

#include "shell/sharedstring.h"

namespace quarn {

struct ConfigPair {
    SharedString key;
    SharedString value;
};

// Keys are unique and keep the order of their first appearance.
class ConfigTable {
public:
    ConfigTable() = default;
    ConfigTable(const ConfigTable&) = delete;
    ConfigTable& operator=(const ConfigTable&) = delete;
    ~ConfigTable() { clear(); }

    // Reads key=value lines; false when the file cannot be opened (true for an empty file).
    bool read(const char* path);
    // A null key or value is ignored; an existing key gets the new value.
    void set(const char* key, const char* value);
    const ConfigPair* find(const char* key) const;
    // The value's characters, or `fallback` when the key is absent.
    const char* get(const char* key, const char* fallback) const;
    // Every pair as "key=value" lines.
    void dump(FILE* out = stdout) const;
    void clear();

    uint32_t count() const { return count_; }
    const ConfigPair& at(uint32_t i) const { return pairs_[i]; }

private:
    ConfigPair* pairs_ = nullptr;
    uint32_t count_ = 0;
    uint32_t capacity_ = 0;
};

// The process-wide table that start-up fills from "quarn.ini".
ConfigTable& configTable();
inline constexpr char kConfigFileName[] = "quarn.ini";

// Reads one line of any length into a buffer kept between calls, without its line end ("\n",
// "\r\n", "\r" or "\n\r"). Returns null at the end of the input, freeing the buffer.
class ConfigLineReader {
public:
    ConfigLineReader() = default;
    ConfigLineReader(const ConfigLineReader&) = delete;
    ConfigLineReader& operator=(const ConfigLineReader&) = delete;
    ~ConfigLineReader();
    const char* next(FILE* in);
    uint32_t bufferSize() const { return size_; }

private:
    char* buffer_ = nullptr;
    uint32_t size_ = 0;
};

}  // namespace quarn
