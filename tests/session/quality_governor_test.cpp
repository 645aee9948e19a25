// SPDX-License-Identifier: Apache-2.0
#include "veltra_quality_governor.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace TAVO::Veltra {
namespace {

using std::chrono::seconds;

struct Second {
    int64_t level;  // -1: unknown
    int64_t margin = 50;
    int64_t trend = 0;
    int repeated = 1;
};

struct Story {
    const char* name;
    GovernorOptions options;
    std::vector<Second> seconds;
    std::string steps;  // of each second
};

void PrintTo(const Story& story, std::ostream* stream)
{
    *stream << story.name;
}

GovernorOptions SlowToLower()
{
    GovernorOptions options;
    options.lowerDwell = seconds(2);
    return options;
}

const std::vector<Story>& Stories()
{
    static const std::vector<Story> stories = {
        {"DownAtOnceUpByOneStepAfterEachDwell", {}, {{0}, {3}, {0, 50, 0, 12}}, "52222223333344"},
        {"AShortCoolSpellRaisesNothing", {}, {{3}, {0, 50, 0, 4}, {3}, {0, 50, 0, 5}, {0}}, "222222222223"},
        {"ARisingTemperatureNearTheLimitCostsAStep", {}, {{1, 9, 1}, {1, 7, 0}, {1, 7, 1}}, "443"},
        {"TheLimitHasToBeLeftByTheHysteresis", {}, {{1, 7, 1}, {1, 9, 0, 6}, {1, 10, 0, 6}}, "3333333333334"},
        {"ALowerStepIsTakenAfterItsDwell", SlowToLower(), {{0}, {2}, {0}, {2, 50, 0, 3}}, "555553"},
        {"WithoutALevelTheStepStays", {}, {{-1}, {4}, {-1, 50, 0, 9}}, "51111111111"},
        {"ALevelThatNeverExistsIsClamped", {}, {{900}, {0, 50, 0, 6}}, "1111112"},
    };
    return stories;
}

class Governor : public ::testing::TestWithParam<Story> {};

TEST_P(Governor, StepsFollowLevelMarginAndTime)
{
    QualityGovernor governor(GetParam().options);
    std::string steps;
    for (const Second& second : GetParam().seconds) {
        for (int i = 0; i < second.repeated; ++i) {
            Heat heat{second.level, second.margin, second.trend};
            if (second.level < 0) {
                heat.level.reset();
            }
            steps += std::to_string(governor.Update(heat, seconds(steps.size())));
        }
    }
    EXPECT_EQ(steps, GetParam().steps);
}

INSTANTIATE_TEST_SUITE_P(Stories, Governor, ::testing::ValuesIn(Stories()),
                         [](const auto& story) { return std::string(story.param.name); });

}  // namespace
}  // namespace TAVO::Veltra
