// SPDX-License-Identifier: Apache-2.0
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

namespace TAVO::Veltra {

LogCapture::LogCapture()
{
    SetScrivoHook([](const ScrivoRecord& record, void* context) { static_cast<LogCapture*>(context)->Add(record); },
                  this);
}

void LogCapture::Add(const ScrivoRecord& record)
{
    std::string line = std::string(1, "DIWEF"[record.level - SCRIVO_DEBUG]) + ' ';
    std::cmatch parts;
    const bool isClient = record.type == 3 && record.domain == 0xD00470A && std::string(record.tag) == "VeltraPerf";
    if (isClient && std::regex_match(record.text, parts, std::regex(R"(\[\((\w+):\d+\)\](.*))"))) {
        line += parts[1].str() + ": " + parts[2].str();
    } else {
        line += std::string(record.tag) + ' ' + record.text;
    }
    MutexLock lock(mutex_);
    lines_.push_back(line);
}

std::vector<std::string> LogCapture::Lines() const
{
    MutexLock lock(mutex_);
    return lines_;
}

long LogCapture::Count(const std::string& text) const
{
    const std::vector<std::string> lines = Lines();
    return std::count_if(lines.begin(), lines.end(),
                         [&text](const std::string& line) { return line.find(text) != std::string::npos; });
}

void ExpectLog(const std::vector<std::string>& expected, const std::function<void()>& job)
{
    const LogCapture log;
    job();
    EXPECT_EQ(log.Lines(), expected);
}

}  // namespace TAVO::Veltra
