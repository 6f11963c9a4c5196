// Fuzz target: the input as a configuration file, read by the line reader alone and into a
// table. The file lives in memory (a memfd opened by its /proc path), so no disk is touched.
//
// For every input the table's keys must be unique, trimmed, without "=" or a line end. When the
// input holds no NUL byte and no carriage return, the lines are exactly the pieces between
// line feeds, and the table must equal one built from those pieces here.
#ifdef QUARN_FUZZ_TARGET

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "shell/config.h"

namespace {

using namespace quarn;

int fileFd = -1;
char filePath[64];

[[noreturn]] void fail(const char* what, std::string_view detail) {
    std::fprintf(stderr, "fuzz_config: %s: '%.*s'\n", what, static_cast<int>(detail.size()),
                 detail.data());
    __builtin_trap();
}

std::string_view trimmed(std::string_view s) {
    while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
    while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
    return s;
}

// The lines of text without NUL or carriage return: the pieces between line feeds, the empty
// piece after a final line feed excluded.
std::vector<std::string_view> splitLines(std::string_view text) {
    std::vector<std::string_view> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t stop = text.find('\n', start);
        if (stop == std::string_view::npos) stop = text.size();
        lines.push_back(text.substr(start, stop - start));
        start = stop + 1;
    }
    return lines;
}

using Model = std::vector<std::pair<std::string, std::string>>;

Model modelTable(const std::vector<std::string_view>& lines) {
    Model model;
    for (std::string_view line : lines) {
        if (line.empty() || line.front() == '#') continue;
        const size_t equals = line.find('=');
        if (equals == std::string_view::npos) continue;
        const std::string key(trimmed(line.substr(0, equals)));
        const std::string value(trimmed(line.substr(equals + 1)));
        bool found = false;
        for (auto& [k, v] : model) {
            if (k == key) {
                v = value;
                found = true;
            }
        }
        if (!found) model.emplace_back(key, value);
    }
    return model;
}

void checkTable(const ConfigTable& table) {
    for (uint32_t i = 0; i < table.count(); ++i) {
        const std::string_view key = table.at(i).key.chars();
        const std::string_view value = table.at(i).value.chars();
        if (table.find(table.at(i).key.chars()) != &table.at(i)) fail("key not unique", key);
        if (key.find('=') != std::string_view::npos) fail("key holds '='", key);
        if (trimmed(key) != key) fail("key not trimmed", key);
        if (trimmed(value) != value) fail("value not trimmed", value);
        if (key.find('\n') != std::string_view::npos || value.find('\n') != std::string_view::npos)
            fail("line feed kept", key);
        if (std::strcmp(table.get(table.at(i).key.chars(), nullptr), value.data()))
            fail("get disagrees with the pair", key);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fileFd = memfd_create("quarn-fuzz-config", 0);
    if (fileFd < 0) return 1;
    std::snprintf(filePath, sizeof filePath, "/proc/self/fd/%d", fileFd);
    // The reader logs lines it cannot take whole; dump prints the table.
    if (!std::freopen("/dev/null", "w", stdout)) return 1;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (ftruncate(fileFd, 0) || pwrite(fileFd, data, size, 0) != static_cast<ssize_t>(size))
        __builtin_trap();
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const bool plain = text.find('\0') == std::string_view::npos &&
                       text.find('\r') == std::string_view::npos;

    // The line reader on its own.
    std::vector<std::string> read;
    if (FILE* in = std::fopen(filePath, "r")) {
        ConfigLineReader reader;
        while (const char* line = reader.next(in)) {
            if (std::strchr(line, '\n')) fail("line feed in a line", line);
            read.emplace_back(line);
        }
        std::fclose(in);
    }
    const std::vector<std::string_view> lines = splitLines(text);
    if (plain) {
        if (read.size() != lines.size()) fail("line count differs", text);
        for (size_t i = 0; i < lines.size(); ++i)
            if (read[i] != lines[i]) fail("line differs", read[i]);
    }

    // The table, and the calls made on it afterwards.
    ConfigTable table;
    if (!table.read(filePath)) fail("readable file refused", filePath);
    checkTable(table);
    if (plain) {
        const Model model = modelTable(lines);
        if (model.size() != table.count()) fail("pair count differs", text);
        for (uint32_t i = 0; i < table.count(); ++i) {
            if (model[i].first != table.at(i).key.chars()) fail("key differs", model[i].first);
            if (model[i].second != table.at(i).value.chars())
                fail("value differs", model[i].second);
        }
    }
    table.dump(stdout);
    if (table.count()) {
        table.set(table.at(0).key.chars(), "x");
        if (std::strcmp(table.get(table.at(0).key.chars(), nullptr), "x"))
            fail("set of an existing key", table.at(0).key.chars());
    }
    table.set(nullptr, "x");
    table.set("x", nullptr);
    checkTable(table);
    table.clear();
    if (table.count() || table.find("")) fail("clear left pairs", "");
    return 0;
}

#endif  // QUARN_FUZZ_TARGET
