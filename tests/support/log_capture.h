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

// Collects while it lives, below the current level too. One at a time.
class LogCapture {
public:
    LogCapture();
    ~LogCapture() { SetScrivoHook(nullptr, nullptr); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // "I CallAuth: text" is a line of the client library: level, operation and text; "W Tavo text" any other, by its tag.
    std::vector<std::string> Lines() const;
    // How many lines hold `text`.
    long Count(const std::string& text) const;

private:
    void Add(const ScrivoRecord& record);

    mutable Mutex mutex_;
    std::vector<std::string> lines_ TAVO_GUARDED_BY(mutex_);
};

// Runs `job` and compares all that it logs.
void ExpectLog(const std::vector<std::string>& expected, const std::function<void()>& job);

}  // namespace TAVO::Veltra

#endif
