// The protocol handler's output channel.
#pragma once

#include <cstdarg>
#include <cstdio>

namespace quarn {

class OutputChannel {
public:
    virtual ~OutputChannel() = default;
    virtual void flush() = 0;
    virtual void putChar(int c) = 0;
    virtual void putString(const char* s) = 0;
    virtual void vprint(const char* format, va_list args) = 0;
    void print(const char* format, ...) __attribute__((format(printf, 2, 3)));
};

// Writes to a stdio stream (standard output for the GUI).
class StreamWriter : public OutputChannel {
public:
    explicit StreamWriter(FILE* file) : file_(file) {}
    ~StreamWriter() override { delete[] buffer_; }
    StreamWriter(const StreamWriter&) = delete;
    StreamWriter& operator=(const StreamWriter&) = delete;

    void flush() override { std::fflush(file_); }
    void putChar(int c) override { std::fputc(c, file_); }
    void putString(const char* s) override { std::fputs(s, file_); }
    void vprint(const char* format, va_list args) override { std::vfprintf(file_, format, args); }
    FILE* file() const { return file_; }

private:
    FILE* file_;
    char* buffer_ = nullptr;
};

}  // namespace quarn
