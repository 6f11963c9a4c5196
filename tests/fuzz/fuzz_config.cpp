// Fuzz target: the input as a configuration file, read by the line reader alone and into a
// table. The file lives in memory (a memfd opened by its /proc path), so no disk is touched.
//
// For every input the table's keys must be unique, trimmed, without "=" or a line end. When the
// input holds no NUL byte and no carriage return, the lines are exactly the pieces between
// line feeds, and the table must equal one built from those pieces here.
#ifdef QUARN_FUZZ_TARGET

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "fuzz_support.h"
#include "shell/config.h"

namespace {

using namespace quarn;
using namespace quarn::test;

int fileFd = -1;
char filePath[64];

std::string trimmed(std::string_view s) {
    const size_t first = s.find_first_not_of(' ');
    if (first == std::string_view::npos) return "";
    return std::string(s.substr(first, s.find_last_not_of(' ') + 1 - first));
}

// Later values replace earlier ones in the place of the first.
using Model = std::vector<std::pair<std::string, std::string>>;

Model modelTable(const std::vector<std::string_view>& lines) {
    Model model;
    for (std::string_view text : lines) {
        const size_t equals = text.find('=');
        if (text.empty() || text.front() == '#' || equals == std::string_view::npos) continue;
        const std::string key = trimmed(text.substr(0, equals));
        const auto it = std::find_if(model.begin(), model.end(),
                                     [&](const auto& pair) { return pair.first == key; });
        if (it == model.end()) model.emplace_back(key, trimmed(text.substr(equals + 1)));
        else it->second = trimmed(text.substr(equals + 1));
    }
    return model;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fileFd = memfd_create("quarn-fuzz-config", 0);
    std::snprintf(filePath, sizeof filePath, "/proc/self/fd/%d", fileFd);
    // The reader logs lines it cannot take whole; dump prints the table.
    return fileFd < 0 || initTarget();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (ftruncate(fileFd, 0) || pwrite(fileFd, data, size, 0) != static_cast<ssize_t>(size))
        __builtin_trap();
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const bool plain = text.find_first_of(std::string_view("\0\r", 2)) == std::string_view::npos;

    // The line reader on its own.
    const std::vector<std::string_view> lines = splitLines(text);
    std::vector<std::string> read;
    if (FILE* in = std::fopen(filePath, "r")) {
        ConfigLineReader reader;
        while (const char* got = reader.next(in)) read.emplace_back(got);
        std::fclose(in);
    }
    for (const std::string& got : read)
        if (got.find('\n') != std::string::npos) fail("line feed in a line", got);
    if (plain && !std::equal(read.begin(), read.end(), lines.begin(), lines.end()))
        fail("lines differ", std::string(text));

    ConfigTable table;
    if (!table.read(filePath)) fail("readable file refused", filePath);
    for (uint32_t i = 0; i < table.count(); ++i) {
        const std::string key = table.at(i).key.chars(), value = table.at(i).value.chars();
        if (table.find(key.c_str()) != &table.at(i) || key.find_first_of("=\n") != key.npos ||
            value.find('\n') != value.npos || trimmed(key) != key || trimmed(value) != value ||
            table.get(key.c_str(), nullptr) != value)
            fail("pair breaks the table's rules", key + "=" + value);
    }
    if (plain) {
        const Model model = modelTable(lines);
        for (uint32_t i = 0; i < std::min<size_t>(table.count(), model.size()); ++i)
            if (model[i] != std::pair{std::string(table.at(i).key.chars()),
                                      std::string(table.at(i).value.chars())})
                fail("pair differs", model[i].first + "=" + model[i].second);
        if (model.size() != table.count()) fail("pair count differs", std::string(text));
    }
    table.dump(stdout);
    table.clear();
    if (table.count() || table.find("")) fail("clear left pairs", "");
    return 0;
}

#endif  // QUARN_FUZZ_TARGET
