#include "shell/historyfile.h"

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace quarn {

HistoryFile::HistoryFile(std::string path, size_t maxLines, const std::vector<std::string>& lines,
                         Writer writer)
    : path_(std::move(path)), maxLines_(maxLines), writer_(std::move(writer)) {
    for (const std::string& line : lines) lines_.push_back(std::make_shared<const std::string>(line));
    while (lines_.size() > maxLines_) lines_.pop_front();
    thread_ = std::thread(&HistoryFile::run, this);
}

HistoryFile::~HistoryFile() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

bool HistoryFile::add(const std::string& line, int waitMs) {
    auto shared = std::make_shared<const std::string>(line);
    std::unique_lock<std::mutex> lock(mutex_);
    lines_.push_back(std::move(shared));
    while (lines_.size() > maxLines_) lines_.pop_front();
    const uint64_t generation = ++wanted_;
    wake_.notify_one();
    return waitWritten(lock, generation, waitMs);
}

bool HistoryFile::flush(int waitMs) {
    std::unique_lock<std::mutex> lock(mutex_);
    return waitWritten(lock, wanted_, waitMs);
}

bool HistoryFile::waitWritten(std::unique_lock<std::mutex>& lock, uint64_t generation, int waitMs) {
    return written_.wait_for(lock, std::chrono::milliseconds(waitMs),
                             [&] { return writtenGeneration_ >= generation; });
}

void HistoryFile::run() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        wake_.wait(lock, [&] { return stopping_ || wanted_ > writtenGeneration_; });
        if (wanted_ == writtenGeneration_) return;  // stopping, and nothing left to write
        // Lines added while this write is on its way are taken together by the next one.
        const uint64_t generation = wanted_;
        const Lines lines = lines_;
        lock.unlock();
        writer_(path_, lines);  // a failed write is not retried: the next line writes it all
        lock.lock();
        writtenGeneration_ = generation;
        written_.notify_all();
    }
}

bool HistoryFile::writeFileAtomically(const std::string& path, const Lines& lines) {
    const std::string temporary = path + "-" + std::to_string(getpid()) + ".tmp";
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    FILE* out = fdopen(fd, "w");
    if (!out) {
        close(fd);
        unlink(temporary.c_str());
        return false;
    }
    bool complete = true;
    for (const auto& line : lines)
        complete = complete && std::fwrite(line->data(), 1, line->size(), out) == line->size() &&
                   std::fputc('\n', out) != EOF;
    complete = std::fclose(out) == 0 && complete;
    if (complete && std::rename(temporary.c_str(), path.c_str()) == 0) return true;
    unlink(temporary.c_str());
    return false;
}

}  // namespace quarn
