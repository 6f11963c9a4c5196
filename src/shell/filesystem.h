// The few file system operations the engine needs.
#pragma once

namespace quarn {

class FileSystem {
public:
    // getcwd into a fixed 256-byte buffer (empty when the path does not fit).
    static const char* currentDirectory();
    static bool changeDirectory(const char* path);
    // mkdir with `mode`; any failure, an existing directory included, is reported on stderr.
    static bool makeDirectory(const char* path, unsigned mode);
    // True when the file can be opened for reading.
    static bool fileExists(const char* path);
};

}  // namespace quarn
