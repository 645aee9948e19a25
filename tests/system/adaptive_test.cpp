// SPDX-License-Identifier: Apache-2.0
// The adaptive game against a heat wave: the service's values are good enough to act on in time, and do not flap.
#include <algorithm>
#include <cstdio>

#include "system/system_fixture.h"

namespace SystemTest {
namespace {

struct Row {
    int level = 0;
    int quality = 0;
    double frame = 0;
    double fixedFrame = 0;
};

TEST_F(SystemFixture, AdaptiveGameLowersItsQualityBeforeTheMachineThrottles)
{
    constexpr int HIGHEST = 5;
    constexpr double BUDGET_MS = 16.7;
    WriteAbility("veltra_server", {"--scenario", VELTRA_SHARE "/scenarios/heat-wave.json", "--speed", "10"});
    StartManager();
    Child game = Child::Start({"veltra_adaptive", "--seconds", "90", "--speed", "10"});
    std::vector<Row> rows;
    while (const std::optional<std::string> line = game.Pipe().Receive()) {
        Row row;
        const size_t level = line->find("level");
        if (level != std::string::npos &&
            std::sscanf(line->c_str() + level, "level %d quality %*s %d frame %*s %lf ms (fixed quality %lf",
                        &row.level, &row.quality, &row.frame, &row.fixedFrame) == 4) {
            rows.push_back(row);
        }
    }
    EXPECT_EQ(game.WaitForExit(), "exit 0");
    ASSERT_EQ(rows.size(), 90u);
    const auto quality = [](const Row& left, const Row& right) { return left.quality < right.quality; };
    const auto lowest = std::min_element(rows.begin(), rows.end(), quality);
    EXPECT_EQ(rows.front().quality, HIGHEST);
    EXPECT_LE(lowest->quality, 2);
    EXPECT_EQ(rows.back().quality, HIGHEST) << "it does not come back";
    EXPECT_TRUE(std::is_sorted(rows.begin(), lowest, [&](const Row& a, const Row& b) { return quality(b, a); }))
        << "it flaps on the way down";
    EXPECT_TRUE(std::is_sorted(lowest, rows.end(), quality)) << "it flaps on the way up";

    const auto throttled =
        std::find_if(rows.begin(), rows.end(), [](const Row& row) { return row.fixedFrame > BUDGET_MS; });
    ASSERT_NE(throttled, rows.end()) << "the heat wave did not throttle";
    EXPECT_LE(throttled->quality, 2) << "it waited for the throttling";
    EXPECT_TRUE(std::all_of(rows.begin(), rows.end(), [](const Row& row) { return row.frame <= BUDGET_MS; }));
}

}  // namespace
}  // namespace SystemTest
