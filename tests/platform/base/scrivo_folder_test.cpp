// SPDX-License-Identifier: Apache-2.0
// Repeated lines are counted, none gets lost, and distinct ones are never suppressed.
#include "base/scrivo_folder.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace TAVO {
namespace {

constexpr int64_t SECOND = 1'000'000'000;

class ScrivoFolderTest : public testing::Test {
protected:
    void Log(const std::string& text, int64_t now, int level = SCRIVO_WARN)
    {
        ScrivoFolder::Summary summary;
        const ScrivoFolder::Result result = folder.Fold({level, 1, "T", text.c_str()}, now, summary);
        written += result.hasSummary ? std::string(summary.text) + "\n" : "";
        written += result.isFolded ? "" : text + "\n";
    }
    void End()
    {
        for (ScrivoFolder::Summary summary; folder.TakeAny(summary);) {
            written += std::string(summary.text) + "\n";
        }
    }

    ScrivoFolder folder;
    std::string written;
};

TEST_F(ScrivoFolderTest, AlternatingLinesCostOneLineEachIn10s)
{
    for (int64_t now = 0; now < 25 * SECOND; now += SECOND / 10) {
        Log("a", now);
        Log("b", now);
    }
    EXPECT_EQ(written,
              "a\nb\na (repeated 100 times)\nb (repeated 100 times)\na (repeated 100 times)\n"
              "b (repeated 100 times)\n");
    written.clear();
    End();
    EXPECT_EQ(written, "a (repeated 49 times)\nb (repeated 49 times)\n");
}

TEST_F(ScrivoFolderTest, OtherLinesBringOutWhatWasRepeatedAndAPauseStartsAnew)
{
    Log("a", 0);
    Log("a", 1);
    Log("a", 2, SCRIVO_ERROR);  // a level of its own
    Log("b", 11 * SECOND);
    Log("a", 12 * SECOND);
    EXPECT_EQ(written, "a\na\na (repeated 1 times)\nb\na\n");
}

TEST_F(ScrivoFolderTest, OfManyDistinctLinesEachIsWrittenAndEachRepetitionCounted)
{
    std::map<std::string, int> expected;
    for (int i = 0; i < 1000; ++i) {
        const std::string text = std::to_string(i % 40 < 30 ? i % 40 : i);
        Log(text, i);
        ++expected[text];
    }
    Log(std::string(1000, 'x'), 1001);
    Log(std::string(1000, 'x'), 1002);
    End();
    std::map<std::string, int> counted;
    for (size_t at = 0; at < written.size(); at = written.find('\n', at) + 1) {
        const std::string line = written.substr(at, written.find('\n', at) - at);
        int times = 1;
        const size_t repeated = line.find(" (repeated ");
        if (repeated != std::string::npos) {
            times = std::stoi(line.substr(repeated + 11));
        }
        counted[line.substr(0, repeated)] += times;
    }
    for (const auto& [text, count] : expected) {
        EXPECT_EQ(counted[text], count) << text;
    }
    EXPECT_EQ(counted[std::string(1000, 'x')], 1);
    EXPECT_EQ(counted[std::string(ScrivoFolder::MAX_TEXT_BYTES - 1, 'x')], 1) << "cut";
}

}  // namespace
}  // namespace TAVO
