// SPDX-License-Identifier: Apache-2.0
// Scenario and catalogue files: what they say, and that every mistake in them is named with its place.
#include "scenario.h"

#include <csignal>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "catalogue.h"
#include "service/request_items.h"
#include "service/scratch_root.h"
#include "service_result.h"
#include "support/process.h"

namespace TAVO::Veltra {
namespace {

Scenario Load(const std::string& text, uint64_t seed = 0)
{
    const ScratchRoot root;
    root.Write("s.json", text);
    return Scenario::Load(root.Path() + "/s.json", seed);
}

// What is wrong with the file, without its folder.
template <typename File, typename... Arguments>
std::string ErrorOf(const std::string& text, Arguments... arguments)
{
    const ScratchRoot root;
    root.Write("s.json", text);
    try {
        File::Load(root.Path() + "/s.json", arguments...);
    } catch (const ConfigError& error) {
        const std::string what = error.what();
        return what.substr(what.find("s.json"));
    }
    return "no error";
}

TEST(Scenario, MistakesAreNamedWithTheirPlace)
{
    const struct {
        const char* text;
        const char* error;
    } rows[] = {
        {"", "s.json: Line 1, Column 1 "},
        {"{\"curves\": {", "s.json: Line 1, Column 13 "},
        {"{} {}", "s.json: Line 1, Column 4 "},
        {"[]", "s.json: "},
        {"{\"curve\": {}}", "s.json: curve: there is no such key"},
        {"{\"name\": 5}", "s.json: name: is not a text"},
        {"{\"curves\": []}", "s.json: curves: is not an object"},
        {"{\"curves\": {\"tempLvl\": 1}}", "s.json: curves.tempLvl: there is no such value"},
        {"{\"curves\": {\"tempLevel\": 9}}", "s.json: curves.tempLevel: 9 is not from 0 to 5"},
        {"{\"curves\": {\"tempLevel\": \"1\"}}", "s.json: curves.tempLevel: is not an object"},
        {"{\"curves\": {\"tempLevel\": {}}}", "s.json: curves.tempLevel.points: is missing"},
        {"{\"curves\": {\"tempLevel\": {\"points\": []}}}", "s.json: curves.tempLevel.points: has no point"},
        {"{\"curves\": {\"tempLevel\": {\"points\": [[0, 1], [1]]}}}",
         "s.json: curves.tempLevel.points[1]: is not [seconds, value]"},
        {"{\"curves\": {\"tempLevel\": {\"points\": [[1, 1], [1, 2]]}}}",
         "s.json: curves.tempLevel.points[1]: is not later than the point before"},
        {"{\"curves\": {\"tempLevel\": {\"points\": [[-1, 1]]}}}",
         "s.json: curves.tempLevel.points[0][0]: -1 is not from 0 to 1e+09"},
        {"{\"curves\": {\"tempLevel\": {\"points\": [[0, 1]], \"repeat\": 1}}}",
         "s.json: curves.tempLevel.repeat: is neither true nor false"},
        {"{\"events\": [{\"at\": 1}]}", "s.json: events[0].text: is missing"},
        {"{\"events\": {}}", "s.json: events: is not a list"},
        {"{\"gpu\": {\"count\": 524289, \"counters\": {}}}", "s.json: gpu.count: 524289 is not from 1 to 524288"},
        {"{\"gpu\": {\"count\": 1.5, \"counters\": {}}}", "s.json: gpu.count: is not a whole number"},
        {"{\"gpu\": {\"intervalSeconds\": 0, \"counters\": {}}}",
         "s.json: gpu.intervalSeconds: 0 is not from 0.001 to 1e+09"},
        {"{\"gpu\": {}}", "s.json: gpu.counters: is missing"},
        {"{\"gpu\": {\"counters\": {\"fps\": 60}}}", "s.json: gpu.counters.fps: there is no such counter"},
        {"{\"faults\": [{}]}", "s.json: faults[0].kind: is missing"},
        {"{\"faults\": [{\"kind\": \"explode\"}]}", "s.json: faults[0].kind: there is no \"explode\""},
        {"{\"faults\": [{\"kind\": \"die\", \"operation\": \"callAuth\"}]}",
         "s.json: faults[0].operation: there is no \"callAuth\""},
        {"{\"faults\": [{\"kind\": \"refuse\", \"code\": 0}]}", "s.json: faults[0].code: 0 is no refusal"},
        {"{\"faults\": [{\"kind\": \"refuse\", \"code\": 4294967296}]}",
         "s.json: faults[0].code: 4294967296 is not from -2147483648 to 2147483647"},
        {"{\"faults\": [{\"kind\": \"badText\", \"operation\": \"CallAuth\"}]}",
         "s.json: faults[0].operation: only GetDeviceInfo answers with a text to spoil"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(ErrorOf<Scenario>(row.text, 0U).rfind(row.error, 0), 0U) << ErrorOf<Scenario>(row.text, 0U);
    }
    EXPECT_EQ(ErrorOf<Scenario>(std::string(100000, '['), 0U), "s.json: nested too deep");
    EXPECT_EQ(ErrorOf<Scenario>(std::string(ConfigNode::MAX_FILE_BYTES + 1, ' '), 0U), "s.json: larger than 1 MiB");
    EXPECT_THROW(Scenario::Load("/nonexistent/s.json", 0), ConfigError);
    EXPECT_THROW(Scenario::Load("/", 0), ConfigError);
}

TEST(Scenario, CurvesJoinTheirPoints)
{
    const Scenario scenario = Load(R"({"curves": {
        "temperature": {"points": [[2, 40], [4, 60], [5, 50]]},
        "gpuLoadPercent": {"points": [[0, 0], [10, 100]], "repeat": true},
        "thermalMargin": 7}})");
    const struct {
        double at;
        int32_t temperature;
        int32_t load;
    } rows[] = {{0, 40, 0},  {2, 40, 20}, {3, 50, 30},   {4, 60, 40},  {4.5, 55, 45},
                {5, 50, 50}, {9, 50, 90}, {10, 50, 100}, {13, 50, 30}, {1000004, 50, 40}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.at);
        const DeviceReading reading = scenario.At(row.at, {});
        EXPECT_EQ(reading.values.at("temperature").value, row.temperature);
        EXPECT_EQ(reading.values.at("gpuLoadPercent").value, row.load);
        EXPECT_EQ(reading.values.at("thermalMargin").value, 7);
        EXPECT_FALSE(reading.HasLevel()) << "a level that nobody drew";
    }
    EXPECT_EQ(scenario.At(0, {false, true, false}).values.size(), 1U);
}

TEST(Scenario, NoiseIsBoundedAndRepeatedByTheSeed)
{
    const std::string text = R"({"curves": {
        "temperature": {"points": [[0, 50]], "noise": 20},
        "thermalMargin": {"points": [[0, 50]], "noise": 20},
        "gpuLoadPercent": {"points": [[0, 100]], "noise": 30}}})";
    const auto story = [&text](uint64_t seed, const char* key) {
        const Scenario scenario = Load(text, seed);
        std::vector<int32_t> values;
        for (int second = 0; second < 100; ++second) {
            values.push_back(scenario.At(second, {}).values.at(key).value);
        }
        return values;
    };
    EXPECT_EQ(story(1, "temperature"), story(1, "temperature"));
    EXPECT_NE(story(1, "temperature"), story(2, "temperature"));
    EXPECT_NE(story(1, "temperature"), story(1, "thermalMargin")) << "curves share their noise";
    bool isBelow = false;
    bool isAbove = false;
    for (const int32_t value : story(1, "temperature")) {
        EXPECT_LE(std::abs(value - 50), 20);
        isBelow = isBelow || value < 45;
        isAbove = isAbove || value > 55;
    }
    EXPECT_TRUE(isBelow && isAbove);
    for (const int32_t value : story(1, "gpuLoadPercent")) {
        EXPECT_LE(value, 100);
    }
}

TEST(Scenario, CountersSayWhichOfThemAreTold)
{
    const Scenario scenario = Load(R"({"gpu": {"count": 2, "counters": {
        "gpuLoadPercent": 1, "memoryLoadPercent": 2, "memoryUsedBytes": 30000000000, "memoryTotalBytes": 4,
        "energyMillijoules": 5, "graphicsClockMhz": 6, "smClockMhz": 7, "memoryClockMhz": 8, "temperatureCelsius": 9,
        "powerMilliwatts": 10, "fanPercent": 11, "encoderPercent": 9000000000}}})");
    ScenarioCounters counters(*scenario.Gpu());
    EXPECT_EQ(counters.Interval(0), 1.0);
    EXPECT_EQ(counters.Interval(200), 0.2);
    EXPECT_EQ(counters.Interval(1), 0.05);
    EXPECT_EQ(counters.Interval(INT32_MAX), 60.0);
    const std::vector<GpuPerfInfo> batch = counters.Batch(1.5, 10);
    ASSERT_EQ(batch.size(), 2U);
    MessageParcel encoded;
    ASSERT_TRUE(batch[1].Marshalling(encoded));
    EXPECT_EQ(Bytes(encoded),
              Bytes(Items{I64(1500000000), I64(11), I32(0), I32(1), I32(2), I64(30000000000), I64(4), I64(5), I32(6),
                          I32(7), I32(8), I32(9), I32(10), I32(11), I32(-1), I32((1 << 12) - 1)}));
}

TEST(FaultPlan, FaultsApplyInTheirWindowToTheirOperation)
{
    const Scenario scenario = Load(R"({"faults": [
        {"kind": "refuse", "at": 0, "for": 1000, "operation": "CallAuth", "code": 77},
        {"kind": "hang", "at": 0, "for": 5, "operation": "QueryGameState"},
        {"kind": "refuse", "at": 100000, "operation": "UpdateGameInfo"},
        {"kind": "shortReply", "operation": "SyncAppType"},
        {"kind": "refuse", "operation": "SyncAppType"}]})");
    const ServiceClock clock(100);
    EXPECT_EQ(scenario.Faults().Before(ServerCode::CALL_AUTH, clock), 77);
    EXPECT_EQ(scenario.Faults().Before(ServerCode::UPDATE_GAME_INFO, clock), 0);
    EXPECT_EQ(scenario.Faults().Before(ServerCode::SYNC_APP_TYPE, clock), 0)
        << "the first that applies is the short reply";
    EXPECT_EQ(scenario.Faults().Before(ServerCode::QUERY_GAME_STATE, clock), 0);
    EXPECT_GE(clock.Now(), 5);
    EXPECT_EQ(scenario.Faults().DeathTime(), std::numeric_limits<double>::infinity());
}

TEST(FaultPlan, RepliesAreCutOrTheirTextSpoiled)
{
    const Scenario scenario = Load(R"({"faults": [
        {"kind": "shortReply", "operation": "QueryGameState"},
        {"kind": "badText", "at": 1, "for": 1, "text": "no JSON"},
        {"kind": "badText", "at": 3}]})");
    const struct {
        ServerCode code;
        double at;
        Items written;
        Items left;
    } rows[] = {
        {ServerCode::QUERY_GAME_STATE, 0, {I32(0), I32(3), I32(4), I32(5)}, {I32(0), I32(3)}},
        {ServerCode::QUERY_GAME_STATE, 0, {I32(0)}, {}},
        {ServerCode::QUERY_GAME_STATE, 0, {}, {}},
        {ServerCode::GET_DEVICE_INFO, 0.9, {I32(0), Str("{}")}, {I32(0), Str("{}")}},
        {ServerCode::GET_DEVICE_INFO, 1, {I32(0), Str("{}")}, {I32(0), Str("no JSON")}},
        {ServerCode::GET_DEVICE_INFO, 2, {I32(5)}, {I32(5)}},
        {ServerCode::GET_DEVICE_INFO, 3, {I32(5)}, {I32(0), Str("{\"tempLevel\": ")}},
        {ServerCode::CALL_AUTH, 3, {I32(5)}, {I32(5)}},
    };
    for (const auto& row : rows) {
        MessageParcel reply;
        WriteItems(reply, row.written, row.written.size());
        scenario.Faults().After(row.code, reply, row.at);
        EXPECT_EQ(Bytes(reply), Bytes(row.left));
    }
}

TEST(FaultPlan, DeathIsThatOfTheProcess)
{
    EXPECT_EQ(
        Load(R"({"faults": [{"kind": "die", "at": 9}, {"kind": "die", "at": 4, "for": 0}]})").Faults().DeathTime(), 4);
    const Scenario scenario = Load(R"({"faults": [{"kind": "die", "operation": "CallAuth"}]})");
    EXPECT_EQ(scenario.Faults().DeathTime(), std::numeric_limits<double>::infinity());
    TestSupport::Child child = TestSupport::Child::Fork([&scenario](TestSupport::LinePipe&) {
        return scenario.Faults().Before(ServerCode::CALL_AUTH, ServiceClock());
    });
    EXPECT_EQ(child.WaitForExit(), "signal 9");
}

TEST(Catalogue, MistakesAreNamedWithTheirPlace)
{
    const struct {
        const char* text;
        const char* error;
    } rows[] = {
        {"{}", "s.json: apps: is missing"},
        {R"({"apps": [{}]})", "s.json: apps[0].bundleName: is missing"},
        {R"({"apps": [{"bundleName": "a"}, {"bundleName": "a"}]})", "s.json: apps[1].bundleName: is there twice"},
        {R"({"apps": [{"bundleName": "a", "resources": [{"size": 1}]}]})",
         "s.json: apps[0].resources[0].size: there is no such key"},
        {R"({"apps": [{"bundleName": "a", "resources": [{"name": "r", "bytes": -1}]}]})",
         "s.json: apps[0].resources[0].bytes: -1 is not from 0 to 9223372036854775807"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ErrorOf<Catalogue>(row.text), row.error);
    }
}

TEST(Catalogue, TheExampleAnswersBothQueries)
{
    using Names = std::vector<std::string>;
    const Catalogue catalogue = Catalogue::Load(VELTRA_SHARE "/catalogue.json");
    EXPECT_EQ(catalogue.Priorities({}), (Names{"com.example.racer", "com.example.puzzle"}));
    EXPECT_EQ(catalogue.Priorities({"com.example.puzzle", "com.other", "com.example.racer"}),
              (Names{"com.example.racer", "com.example.puzzle"}));
    EXPECT_EQ(catalogue.Priorities({"com.other"}), Names());
    const AppResourceInfos infos = catalogue.Resources({"com.example.racer", "com.example.racer", "com.other"});
    ASSERT_EQ(infos.resourceInfos.size(), 2U);
    MessageParcel encoded;
    ASSERT_TRUE(infos.resourceInfos[0].Marshalling(encoded));
    EXPECT_EQ(Bytes(encoded), Bytes(Items{Str("com.example.racer"), I32(1), I32(3), Str("tracks-alps"),
                                          Str("https://cdn.example.com/racer/tracks-alps.pak"), I64(734003200), I32(80),
                                          Str("sha256:9f2c")}));
}

TEST(Scenario, TheExampleTellsItsStory)
{
    const Scenario scenario = Scenario::Load(VELTRA_SHARE "/scenarios/warm-up.json", 1);
    EXPECT_EQ(scenario.At(20, {}).values.at("tempLevel").value, 2);
    EXPECT_EQ(scenario.At(60, {}).values.at("tempLevel").value, 4);
    EXPECT_EQ(scenario.EventsIn(0, 60).size(), 2U);
    EXPECT_TRUE(scenario.Gpu());
}

// A wrong file or option ends the program before it serves anybody.
TEST(VeltraServerProgram, BadFilesAndOptionsAreUsageErrors)
{
    const ScratchRoot root;
    root.Write("bad.json", "{\"curves\": {\"tempLevel\": 9}}");
    const std::string bad = root.Path() + "/bad.json";
    const std::string good = VELTRA_SHARE "/scenarios/warm-up.json";
    const std::vector<std::string> rows[] = {
        {"--scenario", bad},
        {"--scenario", root.Path() + "/missing.json"},
        {"--catalogue", bad},
        {"--scenario", good, "--speed", "0"},
        {"--scenario", good, "--speed", "nan"},
        {"--scenario", good, "--speed", "1x"},
        {"--scenario", good, "--seed", "-1"},
        {"--scenario", good, "--seed", ""},
    };
    for (const std::vector<std::string>& arguments : rows) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        std::vector<std::string> command = {"veltra_server"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        EXPECT_EQ(TestSupport::Child::Start(command).WaitForExit(), "exit 2");
    }
}

}  // namespace
}  // namespace TAVO::Veltra
