// SPDX-License-Identifier: Apache-2.0
// Each machine gets the answer that its own files give, and nothing that they do not.
#include "base/device_state.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "probes/cpu_load.h"
#include "probes/machine_source.h"
#include "service/fake_clock.h"
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

DeviceState StateOf(const std::string& rootDir, const FakeClock& clock = {})
{
    MachineSettings settings;
    settings.now = clock.Now();
    return DeviceState(std::make_unique<MachineSource>(rootDir, settings));
}

constexpr pid_t GAME = 4242;  // of which the recorded handheld has the descriptors

Json::Value Describe(DeviceState& state, std::vector<int32_t> queryTypes = {}, pid_t game = 0)
{
    std::vector<QueryDeviceStateDetail> details;
    for (const int32_t type : queryTypes) {
        details.push_back({type, {{"any", "thing"}}});
    }
    const DeviceInfoResult info = state.Describe(details, game);
    EXPECT_EQ(info.retCode, 0);
    return JsonUtils::StringToJson(info.result);
}

// The answer that a game gets, without the parts that only name sources and units.
TEST(DeviceState, RecordedMachinesGetAnswersOfTheirOwn)
{
    const struct {
        const char* machine;
        const char* levelSource;
        const char* document;
    } rows[] = {
        {"laptop", "hwmon coretemp/temp1",
         R"({"tempLevel": 2, "tempLevelFrom": "sensor", "temperature": 88,
            "thermalInfo": {"thermalMargin": 12, "throttling": 0, "fanRpm": 3240},
            "gpuInfo": {"known": ["gpuLoadLevel", "bandwidthLoadLevel", "currentFrequency"], "gpuLoadLevel": 1,
                "gpuLoadPercent": 37, "bandwidthLoadLevel": 0, "currentFrequency": 1200, "gpuFrequencyMax": 2100,
                "gpuMemoryUsedBytes": 1073741824, "gpuMemoryTotalBytes": 4294967296, "gpuPowerMilliwatts": 35000},
            "cpuPressurePercent": 62, "cpuFrequencies": {"policy0": 3400, "policy10": 800},
            "cpuFrequencyCaps": {"policy0": 3800, "policy10": 3500},
            "cpuFrequencyMaxima": {"policy0": 4700, "policy10": 3500},
            "memoryInfo": {"memoryAvailableBytes": 9216000000, "memoryTotalBytes": 16384000000,
                "memoryPressurePercent": 2},
            "powerInfo": {"batteryPercent": 64, "batteryCharging": 0, "powerDrawMilliwatts": 23400,
                "platformProfile": "balanced"}})"},
        {"handheld", "hwmon k10temp/temp1",
         R"({"tempLevel": 2, "tempLevelFrom": "sensor", "temperature": 78,
            "thermalInfo": {"throttling": 0, "fanRpm": 4100},
            "gpuInfo": {"known": ["gpuLoadLevel", "currentFrequency"], "gpuLoadLevel": 5, "gpuLoadPercent": 99,
                "currentFrequency": 1600, "gpuFrequencyMax": 1600, "gpuMemoryUsedBytes": 900000000,
                "gpuMemoryTotalBytes": 1073741824, "gpuPowerMilliwatts": 14500, "gameGpuMemoryBytes": 805306368},
            "cpuPressurePercent": 4, "cpuFrequencies": {"policy0": 2800}, "cpuFrequencyCaps": {"policy0": 3500},
            "cpuFrequencyMaxima": {"policy0": 3500},
            "memoryInfo": {"memoryAvailableBytes": 2560000000, "memoryTotalBytes": 15360000000,
                "memoryPressurePercent": 13},
            "powerInfo": {"batteryPercent": 41, "batteryCharging": 0, "powerDrawMilliwatts": 15405,
                "platformProfile": "performance"}})"},
        {"phone", "cooling_device1 thermal-devfreq-0",
         R"({"tempLevel": 3, "tempLevelFrom": "throttling", "temperature": 81,
            "thermalInfo": {"thermalMargin": 14, "throttling": 1},
            "gpuInfo": {"known": ["gpuLoadLevel", "currentFrequency"], "gpuLoadLevel": 4, "gpuLoadPercent": 91,
                "currentFrequency": 587, "gpuFrequencyCap": 660, "gpuFrequencyMax": 840},
            "cpuPressurePercent": 8, "cpuFrequencies": {"policy0": 1804, "policy7": 2200},
            "cpuFrequencyCaps": {"policy0": 1804, "policy7": 2000},
            "cpuFrequencyMaxima": {"policy0": 1804, "policy7": 2841},
            "memoryInfo": {"memoryAvailableBytes": 1945600000, "memoryTotalBytes": 7782400000,
                "memoryPressurePercent": 0},
            "powerInfo": {"batteryPercent": 100, "batteryCharging": 1},
            "ignoredSensors": {"thermal soc_thermal/thermal_zone7": "127 C: the input is not connected",
                               "thermal xo-therm/thermal_zone6": "-273 C: absolute zero"}})"},
        {"server", "hwmon coretemp@hwmon2/temp1",
         R"({"tempLevel": 0, "tempLevelFrom": "sensor", "temperature": 58,
            "thermalInfo": {"thermalMargin": 32, "fanRpm": 3600},
            "gpuInfo": {"known": []}, "cpuPressurePercent": 0, "cpuFrequencies": {"policy0": 2100},
            "cpuFrequencyCaps": {"policy0": 3000}, "cpuFrequencyMaxima": {"policy0": 3000},
            "memoryInfo": {"memoryAvailableBytes": 409600000000, "memoryTotalBytes": 524288000000,
                "memoryPressurePercent": 0},
            "ignoredSensors": {"hwmon nct6798/temp2": "127 C: the input is not connected",
                               "hwmon nct6798/temp3": "127 C: the input is not connected",
                               "hwmon nct6798/temp5": "-128 C: the input is not connected"}})"},
        {"desktop", "hwmon amdgpu@hwmon2/temp1",
         R"({"tempLevel": 0, "tempLevelFrom": "sensor", "temperature": 59, "thermalInfo": {"thermalMargin": 41},
            "gpuInfo": {"known": ["gpuLoadLevel", "bandwidthLoadLevel", "currentFrequency"], "gpuLoadLevel": 5,
                "gpuLoadPercent": 97, "bandwidthLoadLevel": 2, "currentFrequency": 2450, "gpuFrequencyMax": 2600,
                "gpuMemoryUsedBytes": 9663676416, "gpuMemoryTotalBytes": 17163091968, "gpuPowerMilliwatts": 212000},
            "ignoredSensors": {"hwmon nct6798/temp1": "-62 C: out of range"}})"},
        {"virtual", "", R"({"tempLevel": -1, "tempLevelFrom": "unknown", "thermalInfo": {"throttling": 0},
            "gpuInfo": {"known": []}, "cpuPressurePercent": 17})"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.machine);
        DeviceState state = StateOf(Recorded(row.machine));
        Json::Value document = Describe(state, {}, GAME);
        EXPECT_EQ(document["sources"].get("tempLevel", ""), row.levelSource);
        document.removeMember("sources");
        document.removeMember("units");
        EXPECT_EQ(document, JsonUtils::StringToJson(row.document));
    }
}

TEST(DeviceState, AnswersHaveOnlyTheRequestedParts)
{
    const struct {
        std::vector<int32_t> queryTypes;
        std::vector<std::string> keys;
    } rows[] = {
        {{1}, {"sources", "tempLevel", "tempLevelFrom", "temperature", "thermalInfo", "units"}},
        {{2, 3},
         {"cpuFrequencies", "cpuFrequencyCaps", "cpuFrequencyMaxima", "cpuPressurePercent", "gpuInfo", "sources",
          "tempLevel", "tempLevelFrom", "units"}},
        {{4, 5}, {"memoryInfo", "powerInfo", "sources", "tempLevel", "tempLevelFrom", "units"}},
        {{-1, 99}, {"sources", "tempLevel", "tempLevelFrom"}},
    };
    for (const auto& row : rows) {
        DeviceState state = StateOf(Recorded("laptop"));
        EXPECT_EQ(Describe(state, row.queryTypes).getMemberNames(), row.keys);
    }
}

TEST(DeviceState, OnlyAMachineThatReportsNothingAtAllHasNoAnswer)
{
    const ScratchDir root;
    root.Write("proc/pressure/cpu", "some avg10=nan avg60=0.00\n");
    root.Write("sys/class/thermal/thermal_zone0/temp", "255000\n");
    DeviceState state = StateOf(root.Path());
    const DeviceInfoResult info = state.Describe({});
    EXPECT_EQ(info.retCode, SERVICE_NO_SENSOR);
    EXPECT_EQ(info.result, "");
    EXPECT_FALSE(state.ReportsAnything());
    EXPECT_FALSE(state.ReportsGpu());
    root.Write("proc/pressure/cpu", "some avg10=99.00 avg60=0.00\n");
    DeviceState loaded = StateOf(root.Path());
    EXPECT_EQ(Describe(loaded, {1})["tempLevel"], -1) << "asked for what is not known, though something is";
    EXPECT_EQ(Describe(loaded)["cpuPressurePercent"], 99);
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
        root.Write(zone + "type", "x86_pkg_temp\n");
        root.Write(zone + "trip_point_0_type", "critical\n");
        root.Write(zone + "trip_point_0_temp", row.critical);
        root.Write(zone + "trip_point_3_type", "passive\n");
        root.Write(zone + "trip_point_3_temp", row.passive);
        DeviceState state = StateOf(root.Path());
        const Json::Value document = Describe(state);
        EXPECT_EQ(document["tempLevel"], row.level);
        EXPECT_EQ(document["thermalInfo"]["thermalMargin"], row.margin ? Json::Value(*row.margin) : Json::Value());
        EXPECT_EQ(document["sources"]["tempLevel"], "thermal x86_pkg_temp/thermal_zone0");
    }
}

TEST(DeviceState, CpuLoadIsKnownFromTheSecondReadingAndNotReadInEveryFrame)
{
    const ScratchDir root;
    FakeClock clock;
    DeviceState state = StateOf(root.Path(), clock);
    root.Write("proc/stat", "cpu  100 0 100 700 100 0 0 0 5 5\n");
    root.Write("proc/pressure/cpu", "some avg10=1.00 avg60=0.00\n");
    EXPECT_FALSE(Describe(state).isMember("cpuLoadPercent"));
    root.Write("proc/stat", "cpu  130 0 145 720 105 0 0 0 95 95\n");
    clock.Advance(std::chrono::milliseconds(100));
    EXPECT_FALSE(Describe(state).isMember("cpuLoadPercent")) << "read again within the interval";
    clock.Advance(std::chrono::milliseconds(200));
    EXPECT_EQ(Describe(state)["cpuLoadPercent"], 75);
    EXPECT_EQ(Describe(state)["sources"]["cpuLoadPercent"], "proc/stat");
    for (const char* nonsense : {"", "cpu \n", "cpu  1 2 3\n", "cpux 1 2 3 4 5 6 7 8\n",
                                 "cpu  18446744073709551615 18446744073709551615 1 1 1 1 1 1\n",
                                 "cpu  99999999999999999999 1 1 1 1 1 1 1\n", "cpu  -1 1 1 1 1 1 1 1\n"}) {
        root.Write("proc/stat", nonsense);
        clock.Advance(std::chrono::seconds(1));
        EXPECT_FALSE(Describe(state).isMember("cpuLoadPercent")) << nonsense;
    }
}

// Nothing is concluded from one reading, and nothing false from two that are too near, too far or odd.
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

// Whether every value of the document is one that its field may have.
bool IsWithinBounds(const Json::Value& document)
{
    for (const DeviceField& field : DeviceFields()) {
        const Json::Value& section = field.section == nullptr ? document : document[field.section];
        const Json::Value& value = section.isObject() ? section[field.key] : section;
        const bool isUnknownLevel = std::string("tempLevel") == field.key && value == -1;
        if (!value.isNull() && !isUnknownLevel &&
            (!value.isInt64() || value.asInt64() < field.least || value.asInt64() > field.most)) {
            ADD_FAILURE() << field.key << ": " << value.toStyledString();
            return false;
        }
    }
    return true;
}

// Each file of each machine in turn, after a first reading of the machine as it is.
TEST(DeviceState, NoFileMakesAnAnswerThatIsOutOfBounds)
{
    namespace fs = std::filesystem;
    const std::string contents[] = {std::string(100000, '9'), std::string("\0\1\xff\n7", 5), "-9223372036854775808\n",
                                    "9223372036854775807 9223372036854775807: 9223372036854775807Mhz"};
    for (const char* machine : {"laptop", "handheld", "phone"}) {
        const ScratchDir root;
        fs::copy(Recorded(machine), root.Path(), fs::copy_options::recursive);
        FakeClock clock;
        DeviceState state = StateOf(root.Path(), clock);
        std::vector<fs::path> files;
        for (const auto& entry : fs::recursive_directory_iterator(root.Path())) {
            if (entry.is_regular_file()) {
                files.push_back(entry.path());
            }
        }
        for (const fs::path& file : files) {
            SCOPED_TRACE(file);
            const fs::path kept = root.Path() + "/kept";
            fs::rename(file, kept);
            for (const std::string& content : contents) {
                std::ofstream(file, std::ios::binary) << content;
                clock.Advance(std::chrono::seconds(1));
                ASSERT_TRUE(IsWithinBounds(Describe(state, {}, GAME)));
            }
            fs::remove(file);
            fs::create_directory(file);
            clock.Advance(std::chrono::seconds(1));
            ASSERT_TRUE(IsWithinBounds(Describe(state, {}, GAME)));
            fs::remove(file);
            fs::rename(kept, file);
        }
    }
}

TEST(DeviceState, FilesMayVanishAndComeBackWhileTheyAreRead)
{
    namespace fs = std::filesystem;
    const ScratchDir root;
    fs::copy(Recorded("laptop"), root.Path(), fs::copy_options::recursive);
    FakeClock clock;
    DeviceState state = StateOf(root.Path(), clock);
    std::atomic<bool> isOver{false};
    const TestSupport::Threads changer(1, [&](size_t) {
        while (!isOver) {
            for (const char* folder : {"sys/class/hwmon", "sys/class/drm/card1", "proc"}) {
                fs::rename(root.Path() + "/" + folder, root.Path() + "/gone");
                fs::rename(root.Path() + "/gone", root.Path() + "/" + folder);
            }
        }
    });
    for (int round = 0; round < 200; ++round) {
        clock.Advance(std::chrono::seconds(1));
        EXPECT_TRUE(IsWithinBounds(Describe(state)));
    }
    isOver = true;
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
