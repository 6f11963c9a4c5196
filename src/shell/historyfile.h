// The console's history file: the last lines read, rewritten after every line by a thread of
// its own. A disk that stalls (a journal commit under load can hold a rename for a quarter of
// a second) then delays the file, never the reply to the line or the search it starts.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace quarn {

class HistoryFile {
public:
    // Shared lines: the writer copies the list, not the text, while it holds the lock.
    using Lines = std::deque<std::shared_ptr<const std::string>>;
    // Puts `lines` into the file at `path`, each ended by a line feed; false when it could not.
    using Writer = std::function<bool(const std::string& path, const Lines& lines)>;

    // Starts the writing thread. `lines` are the history so far (already in the file); at
    // most `maxLines` are kept, the newest.
    HistoryFile(std::string path, size_t maxLines, const std::vector<std::string>& lines,
                Writer writer = writeFileAtomically);
    // Writes what is still pending, then stops the thread.
    ~HistoryFile();
    HistoryFile(const HistoryFile&) = delete;
    HistoryFile& operator=(const HistoryFile&) = delete;

    // Adds a line and has the file rewritten, waiting at most `waitMs` for the write: in the
    // common case the file holds the line before the caller acts on it. True when written.
    bool add(const std::string& line, int waitMs);
    // Waits at most `waitMs` until every line added is in the file. True when so.
    bool flush(int waitMs);

    // The default writer: a temporary file beside `path`, renamed over it, so that a reader
    // (or a crash) never sees half a history. Line by line: a history of long lines is never
    // gathered into one buffer.
    static bool writeFileAtomically(const std::string& path, const Lines& lines);

private:
    void run();
    bool waitWritten(std::unique_lock<std::mutex>& lock, uint64_t generation, int waitMs);

    const std::string path_;
    const size_t maxLines_;
    const Writer writer_;
    std::mutex mutex_;
    std::condition_variable wake_;     // a new line, or the end
    std::condition_variable written_;  // a write has finished
    Lines lines_;
    uint64_t wanted_ = 0;   // generation of the newest line added
    uint64_t writtenGeneration_ = 0;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace quarn
