// SPDX-License-Identifier: Apache-2.0
// What the configuration changes, that every mistake in it is reported with its line, and what --explain says.
#include "service_config.h"

#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/config_node.h"
#include "base/device_state.h"
#include "probes/machine_source.h"
#include "support/process.h"
#include "support/scratch_dir.h"
#include "utils/json_utils.h"

namespace TAVO::Veltra {
namespace {

using TestSupport::Child;

ServiceConfig Load(const std::string& text)
{
    const ScratchDir root;
    ServiceConfig config;
    config.Read(root.Write("service.json", text));
    return config;
}

TEST(ServiceConfig, MistakesAreReportedWithTheirLine)
{
    const std::pair<const char*, const char*> rows[] = {
        {"{\n\"sensors\": {},\n\"treshold\": {}}", "treshold: there is no such key (line 3)"},
        {"// comment\n{\"sensors\":\n{\"class\": {\n\"a\": \"cpuu\"}}}",
         "sensors.class.a: there is no class \"cpuu\" (line 4)"},
        {"{\"thresholds\": {\n\"skni\": {}}}", "thresholds.skni: there is no class \"skni\" (line 2)"},
        {"{\"thresholds\": {\n\"skin\": {\"hot\": 60}}}", "thresholds.skin: critical is below hot (line 2)"},
        {"{\"intervals\": {\"heatMilliseconds\": 1}}",
         "intervals.heatMilliseconds: 1 is not from 50 to 60000 (line 1)"},
        {"{\"sensors\":\n{\"prefer\": \"cpu\"}}", "sensors.prefer: is not a list (line 2)"},
        {"{\n\"sensors\": {},,\n}", "Missing '}' or object member name (line 2)"},
    };
    for (const auto& [text, error] : rows) {
        try {
            Load(text);
            ADD_FAILURE() << text;
        } catch (const ConfigError& mistake) {
            EXPECT_NE(std::string(mistake.what()).find(std::string("service.json: ") + error), std::string::npos)
                << mistake.what();
        }
    }
}

// The recorded laptop, on which the package of the processor decides: 88 degrees, level 2.
TEST(ServiceConfig, ChangesWhichSensorDecidesAndHow)
{
    const struct {
        const char* config;
        int32_t level;
        const char* source;
    } rows[] = {
        {"{}", 2, "hwmon coretemp/temp1"},
        {R"({"sensors": {"prefer": ["amdgpu/edge"]}})", 0, "hwmon amdgpu/temp1"},
        {R"({"sensors": {"prefer": ["no such sensor"]}})", 2, "hwmon coretemp/temp1"},
        {R"({"sensors": {"exclude": ["coretemp/temp1", "coretemp/temp10"]}})", 2, "hwmon coretemp/temp2"},
        {R"({"sensors": {"exclude": ["coretemp/*"]}})", 0, "hwmon amdgpu/temp1"},
        {R"({"sensors": {"rename": {"coretemp/Package id 0": "the processor"}}})", 2, "the processor"},
        {R"({"sensors": {"class": {"nvme/Composite": "soc"}}})", 5, "hwmon nvme/temp1"},
        {R"({"sensors": {"class": {"coretemp/*": "case"}}})", 0, "hwmon amdgpu/temp1"},
        {R"({"thresholds": {"cpu": {"hot": 90}}})", 4, "thermal x86_pkg_temp/thermal_zone1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.config);
        MachineSettings settings;
        settings.sensors = Load(row.config).sensors;
        const DeviceState state(std::make_unique<MachineSource>(VELTRA_TEST_ROOTS "/laptop", settings));
        const Json::Value document = JsonUtils::StringToJson(state.Describe({}).result);
        EXPECT_EQ(document["tempLevel"], row.level);
        EXPECT_EQ(document["sources"]["tempLevel"], row.source);
    }
}

TEST(ServiceConfig, TheInstalledFileChangesNothing)
{
    const ServiceConfig builtIn;
    ServiceConfig config;
    config.Read(VELTRA_SHARE "/service.json");
    const SensorChoice& sensors = config.sensors;
    EXPECT_TRUE(sensors.hasThresholds.none() && sensors.preferred.empty() && sensors.excluded.empty());
    EXPECT_TRUE(sensors.names.empty() && sensors.classes.empty());
    EXPECT_EQ(config.heatInterval, builtIn.heatInterval);
    EXPECT_EQ(config.loadInterval, builtIn.loadInterval);
    EXPECT_EQ(config.lookSeconds, builtIn.lookSeconds);
    EXPECT_EQ(config.repeatSeconds, builtIn.repeatSeconds);
}

TEST(ServiceConfig, TheUsersFileAppliesToThisMachineOnly)
{
    const ScratchDir home;
    home.Write("veltra/service.json", R"({"typo": 1})");
    setenv("XDG_CONFIG_HOME", home.Path().c_str(), 1);
    EXPECT_EQ(Child::Start({"veltra_server", "--explain"}).WaitForExit(), "exit 2");
    Child other = Child::Start({"veltra_server", "--explain", "--root", VELTRA_TEST_ROOTS "/virtual"});
    while (other.Pipe().Receive()) {}
    EXPECT_EQ(other.WaitForExit(), "exit 0");
}

TEST(Explain, SaysWhyTheLevelIsWhatItIs)
{
    const struct {
        const char* machine;
        std::vector<std::string> lines;
    } rows[] = {
        {"laptop",
         {"does not count: class disk does not decide the level",
          "does not count: has no trip points, and another sensor has",
          "tempLevel 2: by hwmon coretemp/temp1, 12 degrees below its next trip point",
          "  GPU 0: graphicsClockMhz=650"}},
        {"phone",
         {"left out: 127 C: the input is not connected",
          "cooling_device1 thermal-devfreq-0: state 2, active: the level is 3 at least",
          "tempLevel 3: by cooling_device1 thermal-devfreq-0, which reports throttling"}},
        {"virtual",
         {"this machine has none",
          "tempLevel -1: unknown on this machine: no temperature sensor that counts, and no throttling reported"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.machine);
        Child child =
            Child::Start({"veltra_server", "--explain", "--root", std::string(VELTRA_TEST_ROOTS "/") + row.machine});
        std::string text;
        while (const std::optional<std::string> line = child.Pipe().Receive()) {
            text += *line + "\n";
        }
        for (const std::string& line : row.lines) {
            EXPECT_NE(text.find(line + "\n"), std::string::npos) << line << "\n" << text;
        }
        EXPECT_EQ(child.WaitForExit(), "exit 0");
    }
}

TEST(Explain, FailsIfItsOutputCannotBeWritten)
{
    std::vector<std::string> command = {"/bin/sh", "-c", "exec \"$@\" >/dev/full", "sh"};
    for (const std::string& word : TestSupport::ProgramCommand("veltra_server")) {
        command.push_back(word);
    }
    command.insert(command.end(), {"--explain", "--root", VELTRA_TEST_ROOTS "/virtual"});
    EXPECT_EQ(Child::Start(command).WaitForExit(), "exit 2");
}

}  // namespace
}  // namespace TAVO::Veltra
