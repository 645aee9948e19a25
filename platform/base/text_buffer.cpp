// SPDX-License-Identifier: Apache-2.0
// The text begins in an array of the object and moves to the heap once it needs more, by steps of at least four times
// the room. If out of memory it stays where it is and loses its end: appending never fails, it only appends less.
// `size_` never exceeds `capacity_`, one byte behind which is the NUL's. Not aware of UTF-8 when it cuts: the last
// character of a text that was cut may be incomplete.
#include "base/text_buffer.h"

#include <cstdlib>
#include <cstring>

namespace TAVO {

TextBuffer::TextBuffer(size_t limitBytes) noexcept
    : capacity_(std::min(limitBytes, sizeof(stack_) - 1)), limit_(limitBytes)
{
    stack_[0] = '\0';
}

TextBuffer::~TextBuffer()
{
    if (text_ != stack_) {
        std::free(text_);
    }
}

size_t TextBuffer::Provide(size_t bytes) noexcept
{
    if (bytes > capacity_ - size_ && capacity_ < limit_) {
        // Compared by subtraction: the sum could wrap around.
        const size_t needed = bytes > limit_ - size_ ? limit_ : size_ + bytes;
        const size_t capacity = std::min(std::max(needed, 4 * capacity_), limit_);
        const bool isOnStack = text_ == stack_;
        auto* grown = static_cast<char*>(std::realloc(isOnStack ? nullptr : text_, capacity + 1));
        if (grown != nullptr) {
            if (isOnStack) {
                std::memcpy(grown, stack_, size_ + 1);
            }
            text_ = grown;
            capacity_ = capacity;
        }
    }
    return std::min(bytes, capacity_ - size_);
}

void TextBuffer::Append(std::string_view text) noexcept
{
    const size_t room = Provide(text.size());
    std::copy_n(text.data(), room, text_ + size_);
    size_ += room;
    text_[size_] = '\0';
}

std::string_view TextBuffer::EndLine() noexcept
{
    // A full buffer gives up its last byte: a line without its end would run into the next one.
    if (Provide(1) == 0) {
        --size_;
    }
    Append("\n");
    return {text_, size_};
}

void TextBuffer::AppendEscaped(std::string_view text) noexcept
{
    size_t clean = 0;  // start of what needs no escape
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        // The second range of control characters is two bytes long in UTF-8: c2 80 to c2 9f.
        const bool isLongControl = byte == 0xc2 && i + 1 < text.size() && (text[i + 1] & 0xe0) == 0x80;
        if (byte >= 0x20 && byte != 0x7f && !isLongControl) {
            continue;
        }
        Append(text.substr(clean, i - clean));
        clean = i + 1;
        if (byte == '\n') {
            Append("\\n");
        } else {
            AppendValue("\\x%02x", static_cast<unsigned>(byte));
        }
    }
    Append(text.substr(clean));
}

}  // namespace TAVO
