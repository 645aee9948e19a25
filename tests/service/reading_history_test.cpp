// SPDX-License-Identifier: Apache-2.0
// Nothing is said from one reading, and nothing false from two that are too near, too far or odd.
#include "reading_history.h"

#include <gtest/gtest.h>

namespace TAVO::Veltra {
namespace {

using std::chrono::seconds;
using TimePoint = std::chrono::steady_clock::time_point;

TEST(CpuLoad, IsTheShareOfTimeSinceTheReadingBefore)
{
    const struct {
        CpuTimes now;
        std::optional<int32_t> percent;
    } steps[] = {
        {{1000, 900}, std::nullopt},  // the first
        {{1009, 900}, std::nullopt},  // too near, and the first stays the reading to compare with
        {{1100, 975}, 25},
        {{1109, 975}, 25},  // too near: as before
        {{1200, 975}, 100},
        {{1300, 1075}, 0},
        {{200, 100}, std::nullopt},  // the counters started afresh
        {{300, 150}, 50},
        {{400, 140}, std::nullopt},  // idle time ran backwards, as it may while a processor goes offline
        {{500, 190}, 50},
    };
    CpuLoad load;
    for (const auto& step : steps) {
        SCOPED_TRACE(step.now.total);
        EXPECT_EQ(load.Update(step.now), step.percent);
    }
}

TEST(ThermalTrend, IsTheLastMoveOfADegreeUntilItHasStayed)
{
    const struct {
        const char* source;
        int64_t temperature;
        int second;
        std::optional<int32_t> trend;
    } steps[] = {
        {"cpu", 50000, 0, std::nullopt}, {"cpu", 50999, 1, std::nullopt},  {"cpu", 51000, 2, 1},  {"cpu", 51500, 3, 1},
        {"cpu", 50000, 4, -1},           {"cpu", 50500, 13, -1},           {"cpu", 50500, 14, 0}, {"cpu", 51400, 15, 0},
        {"cpu", 51500, 16, 1},           {"gpu", 90000, 17, std::nullopt}, {"gpu", 90000, 27, 0},
    };
    ThermalTrend trend;
    for (const auto& step : steps) {
        SCOPED_TRACE(step.second);
        EXPECT_EQ(trend.Update(step.source, step.temperature, TimePoint() + seconds(step.second)), step.trend);
    }
}

}  // namespace
}  // namespace TAVO::Veltra
