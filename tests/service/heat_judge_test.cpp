// SPDX-License-Identifier: Apache-2.0
// Which sensor decides, which readings are believed, and that the level neither flaps nor misses throttling.
#include "probes/heat_judge.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "probes/power_probe.h"
#include "support/scratch_dir.h"

namespace TAVO::Veltra {
namespace {

using std::chrono::seconds;
using TimePoint = HeatJudge::TimePoint;
using Seconds = std::chrono::duration<double>;

TimePoint At(double second)
{
    return TimePoint(std::chrono::duration_cast<TimePoint::duration>(Seconds(second)));
}

Sensor SensorOf(SensorClass sensorClass, int64_t current, std::vector<int64_t> trips = {})
{
    Sensor sensor;
    sensor.sensorClass = sensorClass;
    sensor.key = sensor.source = NameOf(sensorClass);
    sensor.current = current;
    sensor.trips = std::move(trips);
    return sensor;
}

ThrottleReading Cooling(int64_t state)
{
    return {{{"cooling", true, state}}, {}, {}, false};
}

// "chip/label" of a hwmon input, or the type of a thermal zone.
TEST(SensorClass, FollowsDriverZoneAndLabel)
{
    const std::pair<SensorClass, std::vector<std::string>> rows[] = {
        {SensorClass::CPU,
         {"coretemp/Package id 0", "k10temp/Tctl", "nct6798/PECI Agent 0", "x86_pkg_temp", "cpu-0-0-usr",
          "cpu_thermal"}},
        {SensorClass::GPU, {"amdgpu/junction", "thinkpad/GPU", "gpuss-0-usr", "G3D"}},
        {SensorClass::SOC, {"soc-thermal", "bcm2835_thermal"}},
        {SensorClass::SKIN, {"skin-therm-usr", "TSKN"}},
        {SensorClass::CASE, {"nct6798/SYSTIN", "acpitz"}},
        {SensorClass::MEMORY, {"amdgpu@hwmon3/mem", "xe/vram", "dell_smm/SODIMM", "spd5118/", "ddr-usr"}},
        {SensorClass::DISK, {"nvme/Composite", "drivetemp/"}},
        {SensorClass::NETWORK, {"mlx5/asic"}},
        {SensorClass::WIRELESS, {"iwlwifi_1/", "modem-tz", "iwlwifi_1"}},
        {SensorClass::BATTERY, {"BAT0/", "steamdeck_hwmon/Battery Temp", "battery"}},
        {SensorClass::UNKNOWN, {"nct6798/CPUTIN", "it8688/", "thinkpad/", "asusec/CPU VRM", "pm8350-tz"}},
    };
    for (const auto& [sensorClass, names] : rows) {
        for (const std::string& name : names) {
            const size_t slash = name.find('/');
            const SensorClass found = slash == std::string::npos
                                          ? ClassOfZone(name)
                                          : ClassOfInput(name.substr(0, slash), name.substr(slash + 1));
            EXPECT_STREQ(NameOf(found), NameOf(sensorClass)) << name;
        }
    }
}

TEST(SensorChoice, OnlyTheAsteriskOfAPatternIsSpecial)
{
    const struct {
        const char* pattern;
        const char* name;
        bool matches;
    } rows[] = {
        {"asusec/CPU [die]", "asusec/CPU [die]", true},
        {"asusec/CPU [die]", "asusec/CPU d", false},
        {"*/CPU [*]", "asusec/CPU [die]", true},
        {"temp?", "temp1", false},
        {"a\\b", "a\\b", true},
        {"acpitz*", "acpitz/thermal_zone0", true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(MatchesSensor(row.pattern, {row.name}), row.matches) << row.pattern << " for " << row.name;
    }
}

TEST(ThermalProbe, ReadingWakesNeitherDisksNorSleepingGpus)
{
    const ScratchDir root;
    for (const char* chip : {"amdgpu", "nvme", "coretemp"}) {
        const std::string dir = std::string("sys/class/hwmon/hwmon") + std::to_string(chip[0]);
        root.Write(dir + "/name", chip);
        root.Write(dir + "/temp1_input", "50000");
        root.Write(dir + "/temp1_crit", "100000");
        root.Write(dir + "/fan1_input", chip[0] == 'a' ? "1234" : "900");
        root.Write(dir + "/device/power/runtime_status", chip[0] == 'a' ? "suspended" : "active");
    }
    const auto sources = [files = std::make_shared<RootFiles>(root.Path())](SensorScope scope) {
        std::string read;
        for (const Sensor& sensor : ReadSensors(*files, {}, scope)) {
            read += sensor.current ? sensor.source + ";" : "";
        }
        return read;
    };
    EXPECT_EQ(sources(SensorScope::RELEVANT), "hwmon coretemp/temp1;");
    EXPECT_EQ(sources(SensorScope::EVERYTHING), "hwmon coretemp/temp1;hwmon nvme/temp1;");
    root.Write("sys/class/drm/card0/device/power/runtime_status", "suspended\n");
    root.Write("sys/class/drm/card0/gt/gt0/throttle_reason_thermal", "1\n");
    const RootFiles files(root.Path());
    EXPECT_TRUE(ReadSensors(files, {}, SensorScope::EVERYTHING)[0].trips.empty()) << "of the GPU";
    EXPECT_EQ(ReadFan(files)->value, 900);
    EXPECT_FALSE(ReadThrottling(files).reportsGpu);
}

TEST(HeatJudge, DecidesByTheSensorsThatAGameHeatsAndThoseWithTripPointsFirst)
{
    const auto cpu = [](int64_t current, std::vector<int64_t> trips = {}) {
        return SensorOf(SensorClass::CPU, current, std::move(trips));
    };
    const auto gpu = [](int64_t current, std::vector<int64_t> trips = {}) {
        return SensorOf(SensorClass::GPU, current, std::move(trips));
    };
    Sensor preferred = SensorOf(SensorClass::SKIN, 30000);
    preferred.isPreferred = true;
    Sensor excluded = cpu(99000, {90000});
    excluded.isExcluded = true;
    Sensor faulty = cpu(99000, {90000});
    faulty.hasFault = true;
    const struct {
        const char* what;
        std::vector<Sensor> sensors;
        std::optional<int32_t> level;
        const char* source;
    } rows[] = {
        {"nothing", {}, {}, ""},
        {"a disk at its limit", {SensorOf(SensorClass::DISK, 90000, {80000})}, {}, ""},
        {"a disk beside a processor", {SensorOf(SensorClass::DISK, 90000, {80000}), cpu(50000)}, 0, "cpu"},
        {"the higher level", {cpu(75000, {80000}), gpu(75000, {90000})}, 3, "cpu"},
        {"the nearer to its limit", {cpu(74000, {80000}), gpu(88000, {90000})}, 3, "gpu"},
        {"steps of a class count", {cpu(75000, {80000}), SensorOf(SensorClass::SKIN, 42500)}, 3, "cpu"},
        {"hot without trip points", {cpu(94000), gpu(50000, {90000})}, 0, "gpu"},
        {"skin by its default", {SensorOf(SensorClass::SKIN, 43000)}, 4, "skin"},
        {"preferred", {cpu(94000, {95000}), preferred}, 0, "skin"},
        {"excluded", {excluded, gpu(50000)}, 0, "gpu"},
        {"faulty", {faulty, gpu(50000)}, 0, "gpu"},
        {"floating input", {cpu(127000, {90000}), gpu(50000)}, 0, "gpu"},
        {"0 K", {cpu(-273150), gpu(50000)}, 0, "gpu"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        HeatJudge judge({});
        const HeatVerdict verdict = judge.Judge(row.sensors, {}, At(0));
        EXPECT_EQ(verdict.level, row.level);
        EXPECT_EQ(verdict.levelSource, row.source);
    }
}

TEST(HeatJudge, ThresholdsOfTheUserCountAsTripPoints)
{
    SensorChoice choice;
    choice.thresholds[static_cast<size_t>(SensorClass::CPU)] = {85000, 100000, 5000};
    choice.hasThresholds.set(static_cast<size_t>(SensorClass::CPU));
    HeatJudge judge(choice);
    const std::vector<Sensor> sensors = {SensorOf(SensorClass::CPU, 81000), SensorOf(SensorClass::GPU, 50000, {90000})};
    const HeatVerdict verdict = judge.Judge(sensors, {}, At(0));
    EXPECT_EQ(verdict.level, 3);
    EXPECT_EQ(verdict.levelSource, "cpu");
    EXPECT_EQ(verdict.margin, 4);
}

// The trip point is 80: level 3 begins at 70, and is left below 68.
TEST(HeatJudge, LevelIsSteady)
{
    const struct {
        double at;
        int64_t temperature;
        int32_t level;
    } steps[] = {
        {0, 69900, 2},   {1, 70000, 2},   {2, 69900, 2},    {3, 70100, 2},
        {4, 70100, 2},   {5, 70100, 3},                    // 2 s above
        {6, 69900, 3},   {9, 68100, 3},   {13, 68100, 3},  // hysteresis
        {14, 67900, 3},  {16, 67900, 3},  {18, 68100, 3},   {19, 67900, 3},
        {23, 67900, 3},  {24, 67900, 2},                                     // 5 s below
        {25, 79000, 2},  {26, 81000, 2},  {27, 81000, 3},   {28, 81000, 4},  // each level needs its own 2 s
        {29, 255000, 4}, {32, 255000, 4}, {33, 255000, -1}, {34, 45000, 0},  // no reading, and again one
        {60, 45000, 0},  {61, 45000, 0},  {90, 75000, 3},                    // nothing is known about the time between
    };
    HeatJudge judge({});
    for (const auto& step : steps) {
        SCOPED_TRACE(step.at);
        const std::vector<Sensor> sensors = {SensorOf(SensorClass::CPU, step.temperature, {80000})};
        const HeatVerdict verdict = judge.Judge(sensors, {}, At(step.at));
        EXPECT_EQ(verdict.level.value_or(-1), step.level);
        EXPECT_EQ(verdict.levelSource, step.level < 0 ? "" : "cpu");
    }
}

TEST(HeatJudge, ThrottlingIsAtLeastLevelThree)
{
    const ThrottleReading fan = {{{"fan", false, 3}}, {}, {}, false};
    const std::vector<Sensor> cool = {SensorOf(SensorClass::CPU, 40000, {90000})};
    const struct {
        const char* what;
        std::vector<Sensor> sensors;
        ThrottleReading throttling;
        std::optional<int32_t> level;
        bool isFromThrottling;
    } rows[] = {
        {"active", cool, Cooling(1), 3, true},
        {"active, without a sensor", {}, Cooling(1), 3, true},
        {"active, and hotter", {SensorOf(SensorClass::CPU, 91000, {90000})}, Cooling(1), 4, false},
        {"not active", cool, Cooling(0), 0, false},
        {"not active, without a sensor", {}, Cooling(0), {}, false},
        {"a fan", cool, fan, 0, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        HeatJudge judge({});
        const HeatVerdict verdict = judge.Judge(row.sensors, row.throttling, At(0));
        EXPECT_EQ(verdict.level, row.level);
        EXPECT_EQ(verdict.isLevelFromThrottling, row.isFromThrottling);
    }
}

TEST(HeatJudge, ARisingThrottleCountIsThrottling)
{
    const struct {
        double at;
        std::map<int, int64_t> counts;
        bool isThrottling;
    } steps[] = {
        {0, {{0, 12}, {1, 40}}, false},  // before anybody looked
        {1, {{0, 12}, {1, 40}}, false},  {2, {{0, 12}, {1, 41}}, true},
        {3, {{0, 12}, {1, 41}}, true},   {8, {{0, 12}, {1, 41}}, false},
        {9, {{0, 12}}, false},           {10, {{0, 12}, {1, 41}}, false},  // went offline
        {16, {{0, 12}, {1, 42}}, false}, {21, {{0, 12}, {1, 43}}, true},   // it may have risen too long ago
    };
    HeatJudge judge({});
    for (const auto& step : steps) {
        SCOPED_TRACE(step.at);
        EXPECT_EQ(judge.Judge({}, {{}, step.counts, {}, false}, At(step.at)).isThrottling, step.isThrottling);
    }
}

TEST(SensorTrack, AJumpCountsOnceTheNextReadingConfirmsIt)
{
    const struct {
        double at;
        int64_t reading;
        std::optional<int64_t> temperature;
        bool isReported;
    } steps[] = {
        {0, 50000, 50000, false},  {1, 91000, 50000, true},  {2, 50500, 50500, false},  // a glitch
        {3, 95000, 50500, true},   {4, 94000, 94000, false},                            // true
        {5, 30000, 94000, true},   {6, 127000, {}, true},    {7, 94000, 94000, false},
        {30, 30000, 30000, false},  // long ago
    };
    SensorTrack track;
    for (const auto& step : steps) {
        SCOPED_TRACE(step.at);
        std::string problem;
        EXPECT_EQ(track.Update(step.reading, At(step.at), problem), step.temperature);
        EXPECT_EQ(!problem.empty(), step.isReported) << problem;
    }
}

TEST(SensorTrack, TrendIsTheSlopeOfTenSeconds)
{
    const struct {
        const char* what;
        std::vector<int64_t> readings;  // one a second
        std::optional<int32_t> trend;
    } rows[] = {
        {"too short", {50000, 51000, 52000, 53000, 54000}, {}},
        {"rising", {50000, 50200, 50400, 50600, 50800, 51000}, 1},
        {"falling", {50000, 49800, 49600, 49400, 49200, 49000}, -1},
        {"too slow", {50000, 50050, 50100, 50150, 50200, 50250}, 0},
        {"the last pair goes against it", {50000, 51000, 52000, 53000, 54000, 53900}, 1},
        {"jitter", {50000, 50400, 50000, 50400, 50000, 50400, 50000, 50400, 50000}, 0},
        {"it rose long ago",
         {40000, 45000, 50000, 50000, 50000, 50000, 50000, 50000, 50000, 50000, 50000, 50000, 50000},
         0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        SensorTrack track;
        std::string problem;
        for (size_t i = 0; i < row.readings.size(); ++i) {
            track.Update(row.readings[i], At(static_cast<double>(i)), problem);
        }
        EXPECT_EQ(track.Trend(), row.trend);
    }
}

}  // namespace
}  // namespace TAVO::Veltra
