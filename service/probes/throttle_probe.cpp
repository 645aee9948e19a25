// SPDX-License-Identifier: Apache-2.0
// Three kernel interfaces report throttling: the state of cooling devices, counters of throttling events for each
// processor, and reason files of some GPU drivers. A cooling device counts only when its type names a processor or a
// GPU, since fans run without any loss of speed. States and reasons are current; the counters only grow, so the caller
// compares them with the reading before. A machine may have none of the three, which differs from "no throttling".
#include "probes/throttle_probe.h"

#include <algorithm>
#include <cctype>
#include <limits>

#include "probes/device_sleep.h"

namespace TAVO::Veltra {

namespace {

constexpr int64_t MOST_STATES = 100000;
constexpr int64_t MOST_EVENTS = std::numeric_limits<int32_t>::max();

// "TCC Offset" has a state that is a setting, and a cooled memory bus or accelerator is not what a game waits for.
constexpr const char* OTHERS[] = {"fan", "tcc", "ddr", "dmc", "bus", "bw", "npu", "lcd", "backlight", "display"};
constexpr const char* COOLED[] = {"processor", "powerclamp", "cpu", "idle", "gpu", "mali", "adreno", "kgsl", "devfreq"};

bool SlowsProcessorOrGpu(std::string type)
{
    std::transform(type.begin(), type.end(), type.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    const auto contains = [&type](const char* part) { return type.find(part) != std::string::npos; };
    return std::none_of(std::begin(OTHERS), std::end(OTHERS), contains) &&
           std::any_of(std::begin(COOLED), std::end(COOLED), contains);
}

// A package's events are counted by each of its processors.
std::map<int, int64_t> ReadEvents(const RootFiles& files)
{
    const std::string dir = "sys/devices/system/cpu/";
    std::map<int, int64_t> counts;
    for (const int number : files.Numbers(dir, "cpu")) {
        for (const char* file : {"core_throttle_count", "package_throttle_count"}) {
            const std::string path = dir + "cpu" + std::to_string(number) + "/thermal_throttle/" + file;
            if (const std::optional<int64_t> events = files.ReadNumber(path, 0, MOST_EVENTS)) {
                counts[number] += *events;
            }
        }
    }
    return counts;
}

void ReadGpuReasons(const RootFiles& files, ThrottleReading& reading)
{
    for (const int number : files.Numbers("sys/class/drm", "card")) {
        const std::string card = "card" + std::to_string(number) + "/";
        if (IsAsleep(files, "sys/class/drm/" + card + "device/")) {
            continue;
        }
        for (const char* file :
             {"gt/gt0/throttle_reason_thermal", "gt/gt0/throttle_reason_prochot",
              "device/tile0/gt0/freq0/throttle/reason_thermal", "device/tile0/gt0/freq0/throttle/reason_prochot"}) {
            const std::optional<int64_t> reason = files.ReadNumber("sys/class/drm/" + card + file, 0, 1);
            // The file exists: "no throttling" is then knowledge, not absence of it.
            reading.reportsGpu = reading.reportsGpu || reason;
            if (reason == 1 && reading.gpuReason.empty()) {
                reading.gpuReason = "drm " + card + file;
            }
        }
    }
}

}  // namespace

std::string ThrottleReading::Active() const
{
    const auto active = std::find_if(devices.begin(), devices.end(),
                                     [](const auto& device) { return device.counts && device.state > 0; });
    return active != devices.end() ? active->source : gpuReason;
}

bool ThrottleReading::ReportsAnything() const
{
    return !events.empty() || reportsGpu || std::any_of(devices.begin(), devices.end(), [](const auto& device) {
        return device.counts && device.state;
    });
}

ThrottleReading ReadThrottling(const RootFiles& files)
{
    ThrottleReading reading;
    for (const int number : files.Numbers("sys/class/thermal", "cooling_device")) {
        const std::string name = "cooling_device" + std::to_string(number);
        const std::string type = files.ReadName("sys/class/thermal/" + name + "/type").value_or("unnamed");
        reading.devices.push_back({name + " " + type, SlowsProcessorOrGpu(type),
                                   files.ReadNumber("sys/class/thermal/" + name + "/cur_state", 0, MOST_STATES)});
    }
    reading.events = ReadEvents(files);
    ReadGpuReasons(files, reading);
    return reading;
}

}  // namespace TAVO::Veltra
