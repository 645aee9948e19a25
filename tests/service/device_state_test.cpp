// SPDX-License-Identifier: Apache-2.0
// Each machine gets the answer that its own files give, and nothing that they do not.
#include "device_state.h"

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "machine_source.h"
#include "reading_history.h"
#include "service_result.h"
#include "support/scratch_dir.h"
#include "support/threads.h"
#include "utils/json_utils.h"

namespace TAVO::Veltra {
namespace {

std::string Recorded(const std::string& machine)
{
    return VELTRA_TEST_ROOTS "/" + machine;
}

DeviceState StateOf(const std::string& rootDir)
{
    return DeviceState(std::make_unique<MachineSource>(rootDir));
}

Json::Value Describe(DeviceState& state, std::vector<int32_t> queryTypes = {})
{
    std::vector<QueryDeviceStateDetail> details;
    for (const int32_t type : queryTypes) {
        details.push_back({type, {{"any", "thing"}}});
    }
    const DeviceInfoResult info = state.Describe(details);
    EXPECT_EQ(info.retCode, 0);
    return JsonUtils::StringToJson(info.result);
}

TEST(DeviceState, RecordedMachinesGetAnswersOfTheirOwn)
{
    const struct {
        const char* machine;
        const char* document;
    } rows[] = {
        {"laptop",
         R"({"tempLevel": 2, "tempLevelFrom": "sensor", "temperature": 88, "thermalInfo": {"thermalMargin": 12},
            "gpuInfo": {"currentFrequency": 650}, "cpuFrequencies": {"policy0": 3400, "policy10": 800}, "sources": {
                "tempLevel": "hwmon coretemp/temp1", "temperature": "hwmon coretemp/temp1",
                "thermalMargin": "hwmon coretemp/temp1", "currentFrequency": "drm card0/gt_act_freq_mhz",
                "cpuFrequencies": "cpufreq scaling_cur_freq"}})"},
        {"desktop",
         R"({"tempLevel": 0, "tempLevelFrom": "sensor", "temperature": 59, "thermalInfo": {"thermalMargin": 41},
            "gpuInfo": {"gpuLoadLevel": 5, "gpuLoadPercent": 97, "bandwidthLoadLevel": 2, "currentFrequency": 2450},
            "sources": {
                "tempLevel": "hwmon amdgpu/temp1", "temperature": "hwmon amdgpu/temp1",
                "thermalMargin": "hwmon amdgpu/temp1", "gpuLoadLevel": "drm card1/device/gpu_busy_percent",
                "gpuLoadPercent": "drm card1/device/gpu_busy_percent",
                "bandwidthLoadLevel": "drm card1/device/mem_busy_percent",
                "currentFrequency": "drm card1/device/hwmon/hwmon2/freq1_input"}})"},
        {"virtual", R"({
            "tempLevel": 2, "tempLevelFrom": "cpuPressure",
            "sources": {"tempLevel": "proc/pressure/cpu some avg10"}})"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.machine);
        DeviceState state = StateOf(Recorded(row.machine));
        EXPECT_EQ(Describe(state), JsonUtils::StringToJson(row.document));
    }
}

TEST(DeviceState, OnlyWhatIsAskedForIsAnswered)
{
    const struct {
        std::vector<int32_t> queryTypes;
        std::vector<std::string> keys;
    } rows[] = {
        {{0}, {"cpuFrequencies", "gpuInfo", "sources", "tempLevel", "tempLevelFrom", "temperature", "thermalInfo"}},
        {{1}, {"sources", "tempLevel", "tempLevelFrom", "temperature", "thermalInfo"}},
        {{2, 3}, {"cpuFrequencies", "gpuInfo", "sources", "tempLevel", "tempLevelFrom"}},
        {{-1, 4}, {"sources", "tempLevel", "tempLevelFrom"}},
    };
    for (const auto& row : rows) {
        DeviceState state = StateOf(Recorded("laptop"));
        EXPECT_EQ(Describe(state, row.queryTypes).getMemberNames(), row.keys);
    }
}

TEST(DeviceState, AMachineThatTellsNothingGetsACodeAndNoText)
{
    const ScratchDir root;
    root.Write("proc/pressure/cpu", "some avg10=nan avg60=0.00\n");
    root.Write("sys/class/thermal/thermal_zone0/temp", "255000\n");
    DeviceState state = StateOf(root.Path());
    const DeviceInfoResult info = state.Describe({});
    EXPECT_EQ(info.retCode, SERVICE_NO_SENSOR);
    EXPECT_EQ(info.result, "");
    EXPECT_FALSE(state.TellsLevel());
    EXPECT_FALSE(state.TellsGpu());
}

// Without a trip point that makes sense 95 degrees are assumed, which is no margin to tell.
TEST(DeviceState, LevelAndMarginFollowTheTripPoints)
{
    const struct {
        const char* temperature;
        const char* passive;
        const char* critical;
        int32_t level;
        std::optional<int32_t> margin;
    } rows[] = {
        {"49999", "80000", "100000", 0, 30}, {"50000", "80000", "100000", 1, 30},  {"60000", "80000", "100000", 2, 20},
        {"70000", "80000", "100000", 3, 10}, {"80000", "80000", "100000", 4, 20},  {"94999", "80000", "100000", 4, 5},
        {"95000", "80000", "100000", 5, 5},  {"103000", "80000", "100000", 5, -3}, {"95000", "", "100000", 5, 5},
        {"99000", "80000", "", 4, -19},      {"96000", "0", "-274000", 4, {}},     {"64999", "", "", 0, {}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.temperature);
        const ScratchDir root;
        const std::string zone = "sys/class/thermal/thermal_zone0/";
        root.Write(zone + "temp", row.temperature);
        root.Write(zone + "trip_point_0_type", "critical\n");
        root.Write(zone + "trip_point_0_temp", row.critical);
        root.Write(zone + "trip_point_3_type", "passive\n");
        root.Write(zone + "trip_point_3_temp", row.passive);
        DeviceState state = StateOf(root.Path());
        const Json::Value document = Describe(state);
        EXPECT_EQ(document["tempLevel"], row.level);
        EXPECT_EQ(document["thermalInfo"]["thermalMargin"], row.margin ? Json::Value(*row.margin) : Json::Value());
        EXPECT_EQ(document["sources"]["tempLevel"], "thermal unnamed/thermal_zone0");
    }
}

TEST(DeviceState, PressureStandsInWhereThereIsNoSensor)
{
    const struct {
        const char* avg10;
        std::optional<int32_t> level;
    } rows[] = {{"0.00", 0},  {"4.99", 0},  {"5.00", 1},   {"14.99", 1},          {"15.00", 2},
                {"30.00", 3}, {"50.00", 4}, {"75.00", 5},  {"100.99", 5},         {"101.00", {}},
                {"5.0", {}},  {"5", {}},    {"-5.00", {}}, {"99999999999.00", {}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.avg10);
        const ScratchDir root;
        root.Write("proc/pressure/cpu", std::string("some avg10=") + row.avg10 + " avg60=0.00 avg300=0.00 total=1\n");
        DeviceState state = StateOf(root.Path());
        EXPECT_EQ(state.TellsLevel(), row.level.has_value());
        if (row.level) {
            EXPECT_EQ(Describe(state)["tempLevel"], *row.level);
        }
    }
}

TEST(DeviceState, TheSecondReadingTellsCpuLoadAndTrend)
{
    const ScratchDir root;
    DeviceState state = StateOf(root.Path());
    root.Write("sys/class/hwmon/hwmon0/temp1_input", "50000");
    root.Write("proc/stat", "cpu  100 0 100 700 100 0 0 0 5 5\n");
    const Json::Value first = Describe(state);
    EXPECT_FALSE(first.isMember("cpuLoadPercent"));
    EXPECT_FALSE(first["thermalInfo"].isMember("thermalTrend"));
    root.Write("sys/class/hwmon/hwmon0/temp1_input", "52000");
    root.Write("proc/stat", "cpu  130 0 145 720 105 0 0 0 95 95\n");
    const Json::Value second = Describe(state);
    EXPECT_EQ(second["cpuLoadPercent"], 75);
    EXPECT_EQ(second["thermalInfo"]["thermalTrend"], 1);
    EXPECT_EQ(second["sources"]["cpuLoadPercent"], "proc/stat");
    EXPECT_EQ(second["sources"]["thermalTrend"], "hwmon hwmon0/temp1");
    for (const char* nonsense : {"", "cpu \n", "cpu  1 2 3\n", "cpux 1 2 3 4 5 6 7 8\n",
                                 "cpu  18446744073709551615 18446744073709551615 1 1 1 1 1 1\n",
                                 "cpu  99999999999999999999 1 1 1 1 1 1 1\n", "cpu  -1 1 1 1 1 1 1 1\n"}) {
        root.Write("proc/stat", nonsense);
        EXPECT_FALSE(Describe(state).isMember("cpuLoadPercent")) << nonsense;
    }
}

// Nothing is said from one reading, and nothing false from two that are too near, too far or odd.
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
        EXPECT_EQ(trend.Update(step.source, step.temperature,
                               std::chrono::steady_clock::time_point() + std::chrono::seconds(step.second)),
                  step.trend);
    }
}

TEST(DeviceState, ManyAskAtOnce)
{
    DeviceState state = StateOf(Recorded("desktop"));
    const TestSupport::Threads askers(4, [&state](size_t) {
        for (int round = 0; round < 20; ++round) {
            EXPECT_EQ(Describe(state)["temperature"], 59);
        }
    });
}

}  // namespace
}  // namespace TAVO::Veltra
