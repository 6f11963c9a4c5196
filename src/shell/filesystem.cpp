#include "shell/filesystem.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

namespace quarn {

namespace {
constexpr int kPathBufferSize = 256;
// mkdir's "exists" error number, accepted as success should mkdir ever return it.
constexpr int kAlreadyExists = 17;
}  // namespace

const char* FileSystem::currentDirectory() {
    static char buffer[kPathBufferSize];
    if (!getcwd(buffer, sizeof buffer)) buffer[0] = 0;
    return buffer;
}

bool FileSystem::changeDirectory(const char* path) { return path && chdir(path) == 0; }

bool FileSystem::makeDirectory(const char* path, unsigned mode) {
    if (!path) return false;
    // mkdir gives -1 for every failure, so an existing directory is reported too.
    const int result = mkdir(path, static_cast<mode_t>(mode));
    if (result == 0 || result == kAlreadyExists) return true;
    std::fprintf(stderr, "FileSystem: error %i creating directory '%s'\n", result, path);
    return false;
}

bool FileSystem::fileExists(const char* path) {
    FILE* f = path ? std::fopen(path, "r") : nullptr;
    if (!f) return false;
    std::fclose(f);
    return true;
}

}  // namespace quarn
