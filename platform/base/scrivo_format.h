// SPDX-License-Identifier: Apache-2.0
// Turns a log call's format and arguments into text: printf with privacy marks, no exceptions, bounded.
#ifndef TAVO_BASE_SCRIVO_FORMAT_H
#define TAVO_BASE_SCRIVO_FORMAT_H

#include <cstdarg>

#include "base/text_buffer.h"

namespace TAVO {

// Appends `format` with its arguments. Conversions are printf's but for positions ("%1$s"), and %n stores nothing;
// "%{private}d" appends "<private>", "%{public}d" and "%d" the value, any other word in braces counts as private.
// After a conversion that is not understood, the rest of the format is appended unchanged.
void FormatLog(TextBuffer& out, const char* format, va_list arguments) noexcept;

}  // namespace TAVO

#endif
