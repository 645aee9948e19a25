// SPDX-License-Identifier: Apache-2.0
// Collects what this process logs while it lives, below the current level too. One at a time.
#ifndef VELTRA_TESTS_SUPPORT_LOG_CAPTURE_H
#define VELTRA_TESTS_SUPPORT_LOG_CAPTURE_H

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

class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> Lines() const;

private:
    mutable Mutex mutex_;
    std::vector<LogLine> lines_ TAVO_GUARDED_BY(mutex_);
};

}  // namespace TAVO::Veltra

#endif
