#include "shell/log.h"

#include <cstdarg>
#include <cstring>

#include "shell/clock.h"
#include "shell/filesystem.h"
#include "shell/version.h"

namespace quarn {

namespace {

FILE* stream = stdout;
int level = kLogNormal;
SharedString directory;

constexpr int kWarningThreshold = 3;
constexpr unsigned kDirectoryMode = 0755;

void vlog(int threshold, const char* format, va_list args) {
    if (level >= threshold || !stream) return;
    // The analyser loses track of a va_list passed on by value; both callers start it.
    std::vfprintf(stream, format, args);  // NOLINT(clang-analyzer-valist.Uninitialized)
}

}  // namespace

FILE* logStream() { return stream; }
void setLogStream(FILE* s) { stream = s; }
int logLevel() { return level; }
void setLogLevel(int l) { level = l; }

void logMessage(const char* format, ...) {
    va_list args;
    va_start(args, format);
    vlog(kLogQuiet, format, args);
    va_end(args);
}

void logWarning(const char* format, ...) {
    va_list args;
    va_start(args, format);
    vlog(kWarningThreshold, format, args);
    va_end(args);
}

void logProtocol(const char* first, const char* second) {
    logMessage("%010u:%s%s\n", clockMs(), first ? first : "?", second ? second : "");
    if (stream) std::fflush(stream);
}

const SharedString& logDirectory() { return directory; }
void setLogDirectory(const char* path) { directory = SharedString::fromText(path); }

void setUpLogFile() {
    if (directory.length() < 2) {
        stream = nullptr;
        return;
    }
    if (!FileSystem::makeDirectory(directory.chars(), kDirectoryMode)) {
        std::fprintf(stderr, "could not create logdir: %s\n", directory.chars());
        stream = nullptr;
        return;
    }
    SharedString name;
    for (unsigned counter = 0;; ++counter) {
        char suffix[32];
        std::snprintf(suffix, sizeof suffix, "%s-%04u.log", kEngineName, counter);
        name = SharedString::fromText(directory.chars());
        name.append("/", 1);
        name.append(suffix, static_cast<uint32_t>(std::strlen(suffix)));
        if (!FileSystem::fileExists(name.chars())) break;
    }
    FILE* file = std::fopen(name.chars(), "w");
    if (!file) {
        std::fputs("redirect failed!\n", stderr);
        stream = nullptr;
        return;
    }
    // The note goes into the new file: stdout belongs to the GUI by now.
    stream = file;
    logMessage("redirecting output to %s, file=%s\n", FileSystem::currentDirectory(), name.chars());
}

void openErrorLog() {
    char name[64];
    std::snprintf(name, sizeof name, "%s-%s-error.log", kEngineName, kEngineVersion);
    if (!std::freopen(name, "a", stderr)) return;
    std::setvbuf(stderr, nullptr, _IONBF, 0);
}

}  // namespace quarn
