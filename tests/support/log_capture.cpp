// SPDX-License-Identifier: Apache-2.0
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

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

std::vector<LogLine> LogCapture::Lines() const
{
    MutexLock lock(mutex_);
    return lines_;
}

long LogCapture::Count(const std::string& text) const
{
    const std::vector<LogLine> lines = Lines();
    return std::count_if(lines.begin(), lines.end(),
                         [&text](const LogLine& line) { return line.text.find(text) != std::string::npos; });
}

void ExpectLines(const std::vector<std::string>& operations, const std::vector<Line>& expected,
                 const std::function<void()>& job)
{
    const LogCapture log;
    job();
    const std::vector<LogLine> lines = log.Lines();
    for (size_t i = 0; i < std::min(lines.size(), expected.size()); ++i) {
        EXPECT_EQ(lines[i].type, 3);
        EXPECT_EQ(lines[i].domain, 0xD00470Au);
        EXPECT_EQ(lines[i].tag, "VeltraPerf");
        EXPECT_EQ(lines[i].level, expected[i].level) << lines[i].text;
        EXPECT_EQ(lines[i].format, "[%{public}s(%{public}s:%{public}d)]" + expected[i].text);
        const std::string begin = "[(" + operations[std::min(i, operations.size() - 1)] + ":";
        EXPECT_EQ(lines[i].text.substr(0, begin.size()), begin);
        const size_t numberEnd = lines[i].text.find_first_not_of("0123456789", begin.size());
        ASSERT_NE(numberEnd, begin.size()) << lines[i].text;
        std::string said = expected[i].text;
        for (const std::string& value : expected[i].values) {
            said = std::regex_replace(said, std::regex("%(\\{public\\})?[dsu]"), value,
                                      std::regex_constants::format_first_only);
        }
        EXPECT_EQ(lines[i].text.substr(numberEnd), ")]" + said);
    }
    EXPECT_EQ(lines.size(), expected.size());
}

}  // namespace TAVO::Veltra
