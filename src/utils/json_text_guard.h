// SPDX-License-Identifier: Apache-2.0
// Decides whether a JSON text can be parsed on the current thread: the parser recurses once per level of nesting.
#ifndef VELTRA_UTILS_JSON_TEXT_GUARD_H
#define VELTRA_UTILS_JSON_TEXT_GUARD_H

#include <cstddef>
#include <string_view>

namespace TAVO::Veltra {

// The deepest nesting of objects and arrays that the parser can meet in `text`: never less than what it meets, more
// only in texts that do not parse. One pass, no recursion.
size_t JsonNestingDepth(std::string_view text);

// False when `text` is nested deeper than the parser allows, or too deep for what is left of this thread's stack.
bool IsJsonSafeToParse(std::string_view text);

}  // namespace TAVO::Veltra

#endif
