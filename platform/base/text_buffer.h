// SPDX-License-Identifier: Apache-2.0
// A text under construction that throws nothing and knows its limit.
#ifndef TAVO_BASE_TEXT_BUFFER_H
#define TAVO_BASE_TEXT_BUFFER_H

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string_view>

namespace TAVO {

// A text that is NUL-terminated at any time. Starts on the stack, moves to the heap when it gets long, and is cut
// silently at its limit or where memory ends.
class TextBuffer {
public:
    static constexpr size_t MAX_TEXT_BYTES = 65536;

    // At most `limitBytes` of text.
    explicit TextBuffer(size_t limitBytes = MAX_TEXT_BYTES) noexcept;
    ~TextBuffer();
    TextBuffer(const TextBuffer&) = delete;
    TextBuffer& operator=(const TextBuffer&) = delete;

    void Append(std::string_view text) noexcept;
    // Appends with control characters made visible ("\n", "\x1b"), so that the text cannot leave its line.
    void AppendEscaped(std::string_view text) noexcept;
    // Appends one value by a printf format with exactly one conversion.
    template <typename V>
    void AppendValue(const char* spec, V value) noexcept;

    // Ends with a newline, in place of the last character when there is no room, and returns the whole text.
    std::string_view EndLine() noexcept;

    const char* Text() const noexcept { return text_; }

private:
    // Tries to make room for `bytes` more and returns how many of them there is room for.
    size_t Provide(size_t bytes) noexcept;

    char stack_[1024];
    char* text_ = stack_;
    size_t size_ = 0;
    size_t capacity_;  // without the NUL, never above limit_
    const size_t limit_;
};

template <typename V>
void TextBuffer::AppendValue(const char* spec, V value) noexcept
{
    size_t room = capacity_ - size_;
    int length = std::snprintf(text_ + size_, room + 1, spec, value);
    if (length > 0 && static_cast<size_t>(length) > room) {
        room = Provide(static_cast<size_t>(length));
        length = std::snprintf(text_ + size_, room + 1, spec, value);
    }
    if (length > 0) {  // else the value has no text in this locale
        size_ += std::min(static_cast<size_t>(length), room);
    }
    text_[size_] = '\0';
}

}  // namespace TAVO

#endif
