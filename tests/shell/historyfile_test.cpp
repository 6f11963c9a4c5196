// The history file's writing thread: a stalled disk holds no line back and loses none.
#include <gtest/gtest.h>

#include <condition_variable>
#include <dirent.h>
#include <mutex>

#include "shell/historyfile.h"
#include "support.h"

namespace quarn::test {
namespace {

// A disk that holds every write until released, and remembers what it was given.
struct StalledDisk {
    std::mutex mutex;
    std::condition_variable released;
    bool open = false;
    std::vector<std::string> writes;

    HistoryFile::Writer writer() {
        return [this](const std::string&, const HistoryFile::Lines& lines) {
            std::unique_lock<std::mutex> lock(mutex);
            released.wait(lock, [&] { return open; });
            std::string text;
            for (const auto& line : lines) text += *line + "\n";
            writes.push_back(text);
            return true;
        };
    }
    void release() {
        std::lock_guard<std::mutex> lock(mutex);
        open = true;
        released.notify_all();
    }
};

TEST(HistoryFile, AStalledDiskDelaysTheFileNotTheLines) {
    StalledDisk disk;
    HistoryFile file("unused", 3, {"a", "b"}, disk.writer());
    // Each add gives up waiting: the first write hangs on the disk.
    EXPECT_FALSE(file.add("c", 10));
    EXPECT_FALSE(file.add("d", 10));
    EXPECT_FALSE(file.add("e", 10));
    EXPECT_FALSE(file.flush(10));
    disk.release();
    EXPECT_TRUE(file.flush(10000));
    // The lines that came during the stall go out together, the oldest beyond three dropped.
    EXPECT_EQ(disk.writes, (std::vector<std::string>{"a\nb\nc\n", "c\nd\ne\n"}));
}

TEST(HistoryFile, EndingWritesWhatIsPending) {
    StalledDisk disk;
    {
        HistoryFile file("unused", 100, {}, disk.writer());
        file.add("first", 0);
        file.add("second", 0);
        disk.release();
    }
    ASSERT_FALSE(disk.writes.empty());
    EXPECT_EQ(disk.writes.back(), "first\nsecond\n");
}

TEST(HistoryFile, TheFileIsReplacedWholeAndNoTemporaryStays) {
    TempDir dir;
    const std::string path = dir.file(".history");
    {
        HistoryFile file(path, 2, {"old"}, HistoryFile::writeFileAtomically);
        EXPECT_TRUE(file.add("one", 10000));
        EXPECT_EQ(readFile(path), "old\none\n");
        EXPECT_TRUE(file.add("two", 10000));
        EXPECT_EQ(readFile(path), "one\ntwo\n");
    }
    std::vector<std::string> names;
    DIR* d = opendir(dir.path().c_str());
    ASSERT_NE(d, nullptr);
    while (const dirent* e = readdir(d))
        if (std::string(e->d_name) != "." && std::string(e->d_name) != "..") names.emplace_back(e->d_name);
    closedir(d);
    EXPECT_EQ(names, std::vector<std::string>{".history"});
    // A directory that cannot take the file: the write fails, and nothing else does.
    const HistoryFile::Lines lines{std::make_shared<const std::string>("x")};
    EXPECT_FALSE(HistoryFile::writeFileAtomically(dir.file("missing/.history"), lines));
}

}  // namespace
}  // namespace quarn::test
