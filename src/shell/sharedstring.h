// Reference-counted text shared by the command handlers and the configuration table.
#pragma once

#include <cstdint>

namespace quarn {

// One heap block of exactly length + 8 bytes: count, length (NUL included) and the characters.
// A null block stands for no string at all. Copies share the block; the last owner frees it.
class SharedString {
public:
    SharedString() = default;
    SharedString(const SharedString& other) : block_(other.block_) { retain(); }
    SharedString(SharedString&& other) noexcept : block_(other.block_) { other.block_ = nullptr; }
    SharedString& operator=(const SharedString& other);
    SharedString& operator=(SharedString&& other) noexcept;
    ~SharedString() { release(); }

    // A string of `length` bytes (NUL included), zero-filled, with count 1.
    static SharedString withLength(uint32_t length);
    // A copy of C text; a null text gives the empty string.
    static SharedString fromText(const char* text);
    static SharedString fromText(const char* text, uint32_t count);

    // Drops this owner's share: frees the block at count 1 and nulls the pointer.
    void release();
    // Appends `count` characters, copying the block first when it is shared.
    void append(const char* chars, uint32_t count);
    // True when the text equals `text`; false for a null text.
    bool equals(const char* text) const;

    bool isNull() const { return block_ == nullptr; }
    // Characters (the empty string for a null block).
    const char* chars() const { return block_ ? block_->chars : ""; }
    char* data() { return block_ ? block_->chars : nullptr; }
    // Length including the terminating NUL; 0 for a null block.
    uint32_t length() const { return block_ ? block_->length : 0; }
    uint32_t refCount() const { return block_ ? block_->refCount : 0; }

private:
    struct Block {
        uint32_t refCount;
        uint32_t length;
        char chars[1];
    };
    static Block* allocate(uint32_t length);
    void retain() {
        if (block_) ++block_->refCount;
    }
    Block* block_ = nullptr;
};

// Blocks allocated and not yet freed, for leak checks.
int32_t liveStringCount();

// Takes the next word off `current` (separators blank and tab). A blank and the blanks after
// it are skipped; a tab is not, so a tab at the front yields an empty word every time.
SharedString nextWord(SharedString& current);

}  // namespace quarn
