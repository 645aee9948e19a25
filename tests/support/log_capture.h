// SPDX-License-Identifier: Apache-2.0
// Collects what this process logs, and compares it with lines that a test wrote down word for word.
#ifndef VELTRA_TESTS_SUPPORT_LOG_CAPTURE_H
#define VELTRA_TESTS_SUPPORT_LOG_CAPTURE_H

#include <functional>
#include <string>
#include <vector>

#include "tavo/mutex.h"
#include "tavo/scrivo_print.h"

namespace TAVO::Veltra {

struct LogLine {
    int type;
    int level;
    uint32_t domain;
    std::string tag;
    std::string format;
    std::string text;
};

// Collects while it lives, below the current level too. One at a time.
class LogCapture {
public:
    LogCapture();
    ~LogCapture() { SetScrivoHook(nullptr, nullptr); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> Lines() const;
    // How many lines hold `text`.
    long Count(const std::string& text) const;

private:
    mutable Mutex mutex_;
    std::vector<LogLine> lines_ TAVO_GUARDED_BY(mutex_);
};

struct Line {
    int level;
    std::string text;                 // the format without the prefix
    std::vector<std::string> values;  // what stands in the places of its conversions
};

inline Line Debug(const char* text, std::vector<std::string> values = {})
{
    return {SCRIVO_DEBUG, text, values};
}
inline Line Info(const char* text, std::vector<std::string> values = {})
{
    return {SCRIVO_INFO, text, values};
}
inline Line Warn(const char* text, std::vector<std::string> values = {})
{
    return {SCRIVO_WARN, text, values};
}
inline Line Error(const std::string& text, std::vector<std::string> values = {})
{
    return {SCRIVO_ERROR, text, values};
}

// Runs `job` and compares all that it logs; `operations` names those that speak, the last one for all further lines.
void ExpectLines(const std::vector<std::string>& operations, const std::vector<Line>& expected,
                 const std::function<void()>& job);

}  // namespace TAVO::Veltra

#endif
