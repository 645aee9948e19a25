// SPDX-License-Identifier: Apache-2.0
#include "support/log_capture.h"

namespace TAVO::Veltra {

LogCapture::LogCapture()
{
    SetScrivoHook(
        [](const ScrivoRecord& record, void* context) {
            auto* const capture = static_cast<LogCapture*>(context);
            MutexLock lock(capture->mutex_);
            capture->lines_.push_back(
                {record.type, record.level, record.domain, record.tag, record.format, record.text});
        },
        this);
}

LogCapture::~LogCapture()
{
    SetScrivoHook(nullptr, nullptr);
}

std::vector<LogLine> LogCapture::Lines() const
{
    MutexLock lock(mutex_);
    return lines_;
}

}  // namespace TAVO::Veltra
