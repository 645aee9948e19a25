// SPDX-License-Identifier: Apache-2.0
#include "support/log_lines.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/log_capture.h"

namespace TAVO::Veltra {

Line ErrorWith(const std::string& text, int status)
{
    const std::string conversion = "%{public}d";
    std::string said = text;
    const size_t place = said.find(conversion);
    EXPECT_NE(place, std::string::npos);
    return {SCRIVO_ERROR, text, said.replace(place, conversion.size(), std::to_string(status))};
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
        EXPECT_EQ(lines[i].format, PREFIX + expected[i].text);
        const std::string begin = "[(" + operations[std::min(i, operations.size() - 1)] + ":";
        EXPECT_EQ(lines[i].text.substr(0, begin.size()), begin);
        const size_t numberEnd = lines[i].text.find_first_not_of("0123456789", begin.size());
        ASSERT_NE(numberEnd, begin.size()) << lines[i].text;
        EXPECT_EQ(lines[i].text.substr(numberEnd),
                  ")]" + (expected[i].said.empty() ? expected[i].text : expected[i].said));
    }
    EXPECT_EQ(lines.size(), expected.size());
}

}  // namespace TAVO::Veltra
