// SPDX-License-Identifier: Apache-2.0
// The parser recurses, so a short text of brackets can exhaust the stack and end the process, which no exception
// handler prevents. The text is therefore read once beforehand, without recursion, for its nesting; strings and
// comments are skipped, as brackets in them count for nothing. The depth times the measured cost of a level is then
// compared with what is left of this thread's stack. The bounds of the stack are asked for once per thread.
#include "utils/json_text_guard.h"

#include <pthread.h>

#include <algorithm>
#include <cstdint>

namespace TAVO::Veltra {
namespace {

// The parser refuses deeper texts by an exception; here they do not reach it. It counts a plain value as a level too
// and so refuses a thousand objects around one: that one level is left to it.
constexpr size_t MAX_DEPTH = 1000;
// The stack that the parser takes, from a call of the helpers in json_utils.h down to the lowest byte that it writes.
// Measured with JsonCpp 1.9.5 on x86-64, both readers, on stacks filled with a pattern before: 544 bytes a level for
// objects and 368 for arrays, from 1 to 1000 levels; on arm64 512 and 352. Beside that at most 5.1 KiB for the first text of a process, with
// a number like 1.5e300 in the innermost level, and 1.8 KiB for an exception. The rest of the reserve is for larger
// processor states, other builds of the libraries and a signal handler of the game.
constexpr size_t STACK_PER_LEVEL_BYTES = 600;
constexpr size_t STACK_RESERVE_BYTES = 16 * 1024;
// Assumed where the stack is none that the system knows, such as a fibre's.
constexpr size_t UNKNOWN_STACK_ROOM_BYTES = 128 * 1024;

constexpr std::string_view BYTE_ORDER_MARK = "\xef\xbb\xbf";

// The three below return the position of the last character of what begins at `at`, or the end of the text.
size_t EndOfString(std::string_view text, size_t at)
{
    for (++at; at < text.size() && text[at] != '"'; ++at) {
        if (text[at] == '\\') {
            ++at;
        }
    }
    return std::min(at, text.size());
}

size_t EndOfBlockComment(std::string_view text, size_t at)
{
    const size_t end = text.find("*/", at + 2);
    return end == std::string_view::npos ? text.size() : end + 1;
}

size_t EndOfComment(std::string_view text, size_t at)
{
    const char kind = at + 1 < text.size() ? text[at + 1] : '\0';
    if (kind == '*') {
        return EndOfBlockComment(text, at);
    }
    return kind == '/' ? std::min(text.find_first_of("\r\n", at), text.size()) : at;
}

bool IsSpace(char character)
{
    return character == ' ' || character == '\t' || character == '\r' || character == '\n';
}

struct StackBounds {
    uintptr_t lowest = 0;
    uintptr_t end = 0;  // 0: unknown
};

StackBounds FindStack()
{
    StackBounds bounds;
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) {
        return bounds;
    }
    void* lowest = nullptr;
    size_t sizeBytes = 0;
    if (pthread_attr_getstack(&attributes, &lowest, &sizeBytes) == 0) {
        bounds.lowest = reinterpret_cast<uintptr_t>(lowest);
        bounds.end = bounds.lowest + sizeBytes;
    }
    pthread_attr_destroy(&attributes);
    return bounds;
}

size_t StackRoom()
{
    thread_local const StackBounds BOUNDS = FindStack();  // for the main thread the system has to read a file
    const auto here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    return here >= BOUNDS.lowest && here < BOUNDS.end ? here - BOUNDS.lowest : UNKNOWN_STACK_ROOM_BYTES;
}

}  // namespace

// Follows the parser up to its first complaint, after which it does not recurse; it stops at the end of the first
// value, since what follows is not read.
size_t JsonNestingDepth(std::string_view text)
{
    size_t open = 0;
    size_t deepest = 0;
    size_t at = text.substr(0, BYTE_ORDER_MARK.size()) == BYTE_ORDER_MARK ? BYTE_ORDER_MARK.size() : 0;
    for (; at < text.size(); ++at) {
        const char character = text[at];
        // Nesting counts whichever bracket closes it: a wrong one is the parser's first complaint, and it recurses no
        // further.
        if (character == '[' || character == '{') {
            deepest = std::max(deepest, ++open);
        } else if (character == '/') {
            at = EndOfComment(text, at);
        } else if (open == 0) {
            if (!IsSpace(character)) {
                return deepest;
            }
        } else if (character == '"') {
            at = EndOfString(text, at);
        } else if (character == ']' || character == '}') {
            if (--open == 0) {
                return deepest;
            }
        }
    }
    return deepest;
}

bool IsJsonSafeToParse(std::string_view text)
{
    const size_t depth = JsonNestingDepth(text);
    return depth <= MAX_DEPTH && depth * STACK_PER_LEVEL_BYTES + STACK_RESERVE_BYTES <= StackRoom();
}

}  // namespace TAVO::Veltra
