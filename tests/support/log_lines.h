// SPDX-License-Identifier: Apache-2.0
// Writes down which lines the library should log, word for word, and compares.
#ifndef VELTRA_TESTS_SUPPORT_LOG_LINES_H
#define VELTRA_TESTS_SUPPORT_LOG_LINES_H

#include <functional>
#include <string>
#include <vector>

#include "tavo/scrivo_print.h"

namespace TAVO::Veltra {

inline const std::string PREFIX = "[%{public}s(%{public}s:%{public}d)]";

struct Line {
    int level;
    std::string text;  // the format without the prefix
    std::string said;  // the values in their places; empty: the text has none
};

inline Line Info(const char* text, const char* said = "")
{
    return {SCRIVO_INFO, text, said};
}
inline Line Warn(const char* text, const char* said = "")
{
    return {SCRIVO_WARN, text, said};
}
inline Line Error(const char* text, const char* said = "")
{
    return {SCRIVO_ERROR, text, said};
}
// With a status in the place of the only conversion.
Line ErrorWith(const std::string& text, int status);

// Runs `job` and compares all that it logs; `operations` names those that speak, the last one for all further lines.
void ExpectLines(const std::vector<std::string>& operations, const std::vector<Line>& expected,
                 const std::function<void()>& job);

}  // namespace TAVO::Veltra

#endif
