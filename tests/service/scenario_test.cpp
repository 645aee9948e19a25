// SPDX-License-Identifier: Apache-2.0
// Scenario and catalogue files: what they say, and that every mistake in them is named with its place.
#include "scenario/scenario.h"

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "catalogue.h"
#include "scenario/simulated_device.h"
#include "scenario/simulation.h"
#include "service_result.h"
#include "support/parcel_items.h"
#include "support/process.h"
#include "support/scratch_dir.h"

namespace TAVO::Veltra {
namespace {

Scenario Load(const std::string& text, uint64_t seed = 0)
{
    const ScratchDir root;
    return Scenario::Load(root.Write("s.json", text), seed);
}

// What is wrong with the file, without its path.
template <typename File, typename... Arguments>
std::string ErrorOf(const std::string& text, Arguments... arguments)
{
    const ScratchDir root;
    try {
        File::Load(root.Write("s.json", text), arguments...);
    } catch (const ConfigError& error) {
        const std::string what = error.what();
        return what.substr(what.find("s.json: ") + 8);
    }
    return "no error";
}

TEST(Scenario, MistakesAreNamedWithTheirPlace)
{
    const std::pair<const char*, const char*> rows[] = {
        {"", "Syntax error: value, object or array expected. (line 1)"},
        {R"({"curves": {)", "Missing '}' or object member name (line 1)"},
        {R"({"curve": {}})", "curve: there is no such key"},
        {R"({"name": 5})", "name: is not a text"},
        {R"({"curves": {"tempLvl": 1}})", "curves.tempLvl: there is no such value"},
        {R"({"curves": {"tempLevel": 9}})", "curves.tempLevel: 9 is not from 0 to 5"},
        {R"({"curves": {"tempLevel": {}}})", "curves.tempLevel.points: is missing"},
        {R"({"curves": {"tempLevel": {"points": []}}})", "curves.tempLevel.points: has no point"},
        {R"({"curves": {"tempLevel": {"points": [[0, 1], [1]]}}})",
         "curves.tempLevel.points[1]: is not [seconds, value]"},
        {R"({"curves": {"tempLevel": {"points": [[1, 1], [1, 2]]}}})",
         "curves.tempLevel.points[1]: is not later than the point before"},
        {R"({"curves": {"tempLevel": {"points": [[-1, 1]]}}})",
         "curves.tempLevel.points[0][0]: -1 is not from 0 to 1e+09"},
        {R"({"curves": {"tempLevel": {"points": [[0, 1]], "repeat": 1}}})",
         "curves.tempLevel.repeat: is neither true nor false"},
        {R"({"events": {}})", "events: is not a list"},
        {R"({"gpu": {"count": 524289, "counters": {}}})", "gpu.count: 524289 is not from 1 to 524288"},
        {R"({"gpu": {"count": 1.5, "counters": {}}})", "gpu.count: is not a whole number"},
        {R"({"gpu": {"intervalSeconds": 0, "counters": {}}})", "gpu.intervalSeconds: 0 is not from 0.001 to 1e+09"},
        {R"({"gpu": {"counters": {"fps": 60}}})", "gpu.counters.fps: there is no such counter"},
        {R"({"faults": [{"kind": "explode"}]})", R"(faults[0].kind: there is no "explode")"},
        {R"({"faults": [{"kind": "die", "operation": "callAuth"}]})", R"(faults[0].operation: there is no "callAuth")"},
        {R"({"faults": [{"kind": "refuse", "code": 0}]})", "faults[0].code: 0 is no refusal"},
        {R"({"faults": [{"kind": "refuse", "code": 4294967296}]})",
         "faults[0].code: 4294967296 is not from -2147483648 to 2147483647"},
        {R"({"faults": [{"kind": "badText", "operation": "CallAuth"}]})",
         "faults[0].operation: only GetDeviceInfo answers with a text to spoil"},
        {R"({"faults": [{"kind": "flood", "operation": "CallAuth"}]})",
         "faults[0].operation: this fault spoils what the service pushes, not an operation"},
    };
    for (const auto& [text, error] : rows) {
        EXPECT_EQ(ErrorOf<Scenario>(text, 0U).substr(0, std::strlen(error)), error) << text;
    }
    EXPECT_NE(ErrorOf<Scenario>("[]", 0U), "no error");
    EXPECT_EQ(ErrorOf<Scenario>(std::string(100000, '['), 0U), "nested too deep");
    EXPECT_EQ(ErrorOf<Scenario>(std::string(ConfigNode::MAX_FILE_BYTES + 1, ' '), 0U), "larger than 1 MiB");
    EXPECT_THROW(Scenario::Load("/nonexistent/s.json", 0), ConfigError);
    EXPECT_THROW(Scenario::Load("/", 0), ConfigError);
}

TEST(Scenario, ACheckFindsEveryMistakeInOrder)
{
    const std::pair<const char*, const char*> rows[] = {
        {"{}", ""},
        {"[]", "1:1 is not an object\n"},
        {"{\n  \"name\": nothing\n}", "2:11 Syntax error: value, object or array expected.\n"},
        {R"({"curve": 1, "name": 2,
 "curves": {"tempLevel": {"points": [[0, 9], [1], [2, 3], [2, 4]], "noise": "x", "loop": 1}, "fps": 60},
 "events": [{"at": -1, "txt": 5}, {"at": 3, "text": "go"}],
 "gpu": {"count": 0, "counters": {"fps": 1, "fanPercent": "?"}},
 "faults": [{"kind": "explode", "code": 0}, {"kind": "hang", "at": "now", "operation": "call"}]})",
         "1:11 curve: there is no such key\n"
         "1:22 name: is not a text\n"
         "2:42 curves.tempLevel.points[0][1]: 9 is not from 0 to 5\n"
         "2:46 curves.tempLevel.points[1]: is not [seconds, value]\n"
         "2:59 curves.tempLevel.points[3]: is not later than the point before\n"
         "2:77 curves.tempLevel.noise: is not a number\n"
         "2:90 curves.tempLevel.loop: there is no such key\n"
         "2:101 curves.fps: there is no such value\n"
         "3:13 events[0].text: is missing\n"
         "3:20 events[0].at: -1 is not from 0 to 1e+09\n"
         "3:31 events[0].txt: there is no such key\n"
         "4:19 gpu.count: 0 is not from 1 to 524288\n"
         "4:42 gpu.counters.fps: there is no such counter\n"
         "4:59 gpu.counters.fanPercent: is not an object\n"
         "5:22 faults[0].kind: there is no \"explode\"\n"
         "5:41 faults[0].code: 0 is no refusal\n"
         "5:68 faults[1].at: is not a number\n"
         "5:88 faults[1].operation: there is no \"call\"\n"},
    };
    for (const auto& [text, expected] : rows) {
        std::string found;
        for (const ConfigMistake& mistake : Scenario::Check(text)) {
            found += std::to_string(mistake.line) + ":" + std::to_string(mistake.column) + " " + mistake.text + "\n";
        }
        EXPECT_EQ(found, expected);
    }
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
        const std::map<std::string, int64_t> expected = {
            {"gpuLoadPercent", row.load}, {"temperature", row.temperature}, {"thermalMargin", 7}};
        EXPECT_EQ(scenario.At(row.at, {}), expected);
    }
    EXPECT_EQ(scenario.At(0, {false, true, false}).size(), 1U);
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
            values.push_back(scenario.At(second, {}).at(key));
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

TEST(Scenario, CountersNameTheOnesThatAreReported)
{
    const Scenario scenario = Load(R"({"gpu": {"count": 2, "counters": {
        "gpuLoadPercent": 1, "memoryLoadPercent": 2, "memoryUsedBytes": 30000000000, "memoryTotalBytes": 4,
        "energyMillijoules": 5, "graphicsClockMhz": 6, "smClockMhz": 7, "memoryClockMhz": 8, "temperatureCelsius": 9,
        "powerMilliwatts": 10, "fanPercent": 11, "encoderPercent": 9000000000}}})");
    Simulation simulation{ServiceClock()};
    SimulatedCounters counters(simulation, [] { return nullptr; });
    EXPECT_EQ(counters.Interval(0), 1.0);
    EXPECT_EQ(counters.Interval(200), 0.2);
    EXPECT_EQ(counters.Interval(1), 0.05);
    EXPECT_EQ(counters.Interval(INT32_MAX), 60.0);
    EXPECT_FALSE(counters.IsThere());
    simulation.Start(std::make_shared<Scenario>(scenario));
    EXPECT_TRUE(counters.IsThere());
    const std::vector<GpuPerfInfo> batch = counters.Batch(1.5, {10, 0});
    ASSERT_EQ(batch.size(), 2U);
    MessageParcel encoded;
    ASSERT_TRUE(batch[1].Marshalling(encoded));
    EXPECT_EQ(Bytes(encoded), Bytes(Items{int64_t{1500000000}, int64_t{11}, 0, 1, 2, int64_t{30000000000}, int64_t{4},
                                          int64_t{5}, 6, 7, 8, 9, 10, 11, -1, (1 << 12) - 1}));
}

TEST(FaultPlan, FaultsApplyInTheirWindowToTheirOperation)
{
    Simulation simulation{ServiceClock(100)};
    simulation.Start(std::make_shared<Scenario>(Load(R"({"faults": [
        {"kind": "refuse", "at": 0, "for": 1000, "operation": "CallAuth", "code": 77},
        {"kind": "hang", "at": 0, "for": 5, "operation": "QueryGameState"},
        {"kind": "refuse", "at": 100000, "operation": "UpdateGameInfo"},
        {"kind": "shortReply", "operation": "SyncAppType"},
        {"kind": "refuse", "operation": "SyncAppType"}]})")));
    EXPECT_EQ(simulation.Before(ServerCode::CALL_AUTH), 77);
    EXPECT_EQ(simulation.Before(ServerCode::UPDATE_GAME_INFO), 0);
    EXPECT_EQ(simulation.Before(ServerCode::SYNC_APP_TYPE), 0) << "the first that applies is the short reply";
    EXPECT_EQ(simulation.Before(ServerCode::QUERY_GAME_STATE), 0);
    EXPECT_GE(simulation.Clock().Now(), 5);
    EXPECT_EQ(simulation.Current()->DeathTime(), std::numeric_limits<double>::infinity());
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
        {ServerCode::QUERY_GAME_STATE, 0, {0, 3, 4, 5}, {0, 3}},
        {ServerCode::QUERY_GAME_STATE, 0, {0}, {}},
        {ServerCode::QUERY_GAME_STATE, 0, {}, {}},
        {ServerCode::GET_DEVICE_INFO, 0.9, {0, "{}"}, {0, "{}"}},
        {ServerCode::GET_DEVICE_INFO, 1, {0, "{}"}, {0, "no JSON"}},
        {ServerCode::GET_DEVICE_INFO, 2, {5}, {5}},
        {ServerCode::GET_DEVICE_INFO, 3, {5}, {0, "{\"tempLevel\": "}},
        {ServerCode::CALL_AUTH, 3, {5}, {5}},
    };
    for (const auto& row : rows) {
        MessageParcel reply;
        WriteItems(reply, row.written);
        if (const Fault* fault = scenario.Faults().ForRequest(row.code, row.at)) {
            fault->Spoil(reply);
        }
        EXPECT_EQ(Bytes(reply), Bytes(row.left));
    }
}

TEST(FaultPlan, DeathIsThatOfTheProcess)
{
    EXPECT_EQ(
        Load(R"({"faults": [{"kind": "die", "at": 9}, {"kind": "die", "at": 4, "for": 0}]})").Faults().DeathTime(0), 4);
    Simulation simulation{ServiceClock()};
    simulation.Start(std::make_shared<Scenario>(Load(R"({"faults": [{"kind": "die", "operation": "CallAuth"}]})")));
    EXPECT_EQ(simulation.Current()->DeathTime(), std::numeric_limits<double>::infinity());
    TestSupport::Child child = TestSupport::Child::Fork(
        [&simulation](TestSupport::LinePipe&) { return simulation.Before(ServerCode::CALL_AUTH); });
    EXPECT_EQ(child.WaitForExit(), "signal 9");
}

TEST(Catalogue, MistakesAreNamedWithTheirPlace)
{
    const std::pair<const char*, const char*> rows[] = {
        {"{}", "apps: is missing"},
        {R"({"apps": [{}]})", "apps[0].bundleName: is missing"},
        {R"({"apps": [{"bundleName": "a"}, {"bundleName": "a"}]})", "apps[1].bundleName: is there twice"},
        {R"({"apps": [{"bundleName": "a", "resources": [{"size": 1}]}]})",
         "apps[0].resources[0].size: there is no such key"},
        {R"({"apps": [{"bundleName": "a", "resources": [{"name": "r", "bytes": -1}]}]})",
         "apps[0].resources[0].bytes: -1 is not from 0 to 9223372036854775807"},
    };
    for (const auto& [text, error] : rows) {
        EXPECT_EQ(ErrorOf<Catalogue>(text), std::string(error) + " (line 1)");
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
    EXPECT_TRUE(catalogue.Resources({"com.example.puzzle"}).resourceInfos.empty());
    MessageParcel encoded;
    ASSERT_TRUE(infos.resourceInfos[0].Marshalling(encoded));
    EXPECT_EQ(Bytes(encoded),
              Bytes(Items{"com.example.racer", 1, 3, "tracks-alps", "https://cdn.example.com/racer/tracks-alps.pak",
                          int64_t{734003200}, 80, "sha256:9f2c"}));
}

// A wrong file or option ends the program before it serves anybody.
TEST(VeltraServerProgram, BadFilesAndOptionsAreUsageErrors)
{
    const ScratchDir root;
    const std::string bad = root.Write("bad.json", R"({"curves": {"tempLevel": 9}})");
    const std::string good = VELTRA_SHARE "/scenarios/warm-up.json";
    const std::vector<std::string> rows[] = {
        {"--scenario", bad},
        {"--scenario", root.Path() + "/missing.json"},
        {"--catalogue", bad},
        {"--config", bad},
        {"--explain", "--scenario", good},
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
