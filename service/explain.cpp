// SPDX-License-Identifier: Apache-2.0
// Reads the machine twice with a pause between, since loads, trends and throttling counters need two readings, and then
// writes one section after the other: sensors, throttling, level, values, GPU counters. It has a judge and a source of
// its own, so that a running service keeps its history and its caches. All sensors are read here, also those that the
// service leaves asleep. It blocks its caller for about two seconds on a real machine; another root is a fixed copy and
// needs no pause.
#include "explain.h"

#include <cstdarg>
#include <cstdio>
#include <thread>

#include "probes/heat_judge.h"
#include "probes/machine_counters.h"
#include "probes/machine_source.h"

namespace TAVO::Veltra {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds BETWEEN_READINGS{1000};

// Appends as std::printf would print. Texts from the machine are short.
[[gnu::format(printf, 2, 3)]] void Append(std::string& text, const char* format, ...)
{
    char line[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    text += line;
}

double Degrees(int64_t temperature)
{
    return static_cast<double>(temperature) / 1000;
}

std::string LimitsText(const SensorVerdict& verdict)
{
    std::string text;
    Append(text, "hot %.1f", Degrees(verdict.limits.hot));
    if (verdict.limits.critical) {
        Append(text, ", critical %.1f", Degrees(*verdict.limits.critical));
    }
    // Trip points of the sensor come before both.
    const char* origin = verdict.limits.isOwn ? "from the configuration" : "default of its class";
    text += std::string(" (") + (verdict.sensor.trips.empty() ? origin : "its trip points") + ")";
    return text;
}

void AddSensor(const SensorVerdict& verdict, bool decides, std::string& text)
{
    const Sensor& sensor = verdict.sensor;
    const std::string label = sensor.label.empty() ? "" : " \"" + sensor.label + "\"";
    Append(text, "  %s%s\n      class %s, ", sensor.source.c_str(), label.c_str(), NameOf(sensor.sensorClass));
    if (sensor.current) {
        Append(text, "%.1f C, ", Degrees(*sensor.current));
    }
    Append(text, "%s\n      ", LimitsText(verdict).c_str());
    if (verdict.excluded.empty()) {
        const HeatLimits& limits = verdict.limits;
        Append(text, "counts: level %d%s; levels 1 to 4 begin at %.0f, %.0f, %.0f and %.0f\n", verdict.level,
               decides ? ", the highest: it decides" : "", Degrees(limits.hot - 3 * limits.step),
               Degrees(limits.hot - 2 * limits.step), Degrees(limits.hot - limits.step), Degrees(limits.hot));
    } else {
        Append(text, "does not count: %s\n", verdict.excluded.c_str());
    }
    if (!verdict.ignored.empty()) {
        Append(text, "      left out: %s\n", verdict.ignored.c_str());
    }
}

void AddThrottling(const ThrottleReading& throttling, std::string& text)
{
    text += "throttling\n";
    if (throttling.devices.empty() && throttling.events.empty() && !throttling.reportsGpu) {
        text += "  this machine has nothing that reports it\n";
    }
    for (const CoolingDevice& device : throttling.devices) {
        const std::string state = device.state ? "state " + std::to_string(*device.state) : "state not known";
        const char* meaning = !device.counts                 ? "does not count: slows neither processor nor GPU"
                              : device.state.value_or(0) > 0 ? "active: the level is 3 at least"
                                                             : "not active";
        Append(text, "  %s: %s, %s\n", device.source.c_str(), state.c_str(), meaning);
    }
    if (!throttling.events.empty()) {
        int64_t sum = 0;
        for (const auto& [processor, events] : throttling.events) {
            sum += events;
        }
        Append(text, "  cpu*/thermal_throttle: %lld events of %zu processors; a rise makes the level 3 at least\n",
               static_cast<long long>(sum), throttling.events.size());
    }
    if (throttling.reportsGpu) {
        Append(text, "  GPU driver: %s\n",
               throttling.gpuReason.empty() ? "no throttling by heat" : throttling.gpuReason.c_str());
    }
}

void AddLevel(const HeatVerdict& verdict, std::string& text)
{
    if (!verdict.level) {
        text +=
            "tempLevel -1: unknown on this machine: no temperature sensor that counts, and no throttling reported\n";
        return;
    }
    Append(text, "tempLevel %d: by %s%s", *verdict.level, verdict.levelSource.c_str(),
           verdict.isLevelFromThrottling ? ", which reports throttling" : "");
    if (verdict.margin && !verdict.isLevelFromThrottling) {
        Append(text, ", %d degrees below its next trip point", *verdict.margin);
    }
    text += "\n";
}

void AddValues(const DeviceReading& reading, std::string& text)
{
    text += "values\n";
    for (const DeviceField& field : DeviceFields()) {
        const auto value = reading.values.find(field.key);
        if (value != reading.values.end()) {
            Append(text, "  %s = %lld%s%s    (%s)\n", field.key, static_cast<long long>(value->second.value),
                   field.unit[0] != '\0' ? " " : "", field.unit, value->second.source.c_str());
        }
    }
    for (const auto& [key, policies] : reading.frequencies) {
        Append(text, "  %s =", key.c_str());
        for (const auto& [policy, mhz] : policies) {
            Append(text, " %s: %d MHz", policy.c_str(), mhz);
        }
        text += "\n";
    }
    if (reading.platformProfile) {
        Append(text, "  platformProfile = %s    (%s)\n", reading.platformProfile->first.c_str(),
               reading.platformProfile->second.c_str());
    }
    text += "  all others are not known on this machine\n";
}

// The first sample of each GPU, and a second one after `pause`, from which more may be known.
void AddCounters(const std::string& rootDir, std::chrono::milliseconds pause, std::string& text)
{
    text += "GPU counters\n";
    const std::unique_ptr<GpuCounterSource> counters = OpenGpuCounters(rootDir, true);
    if (counters == nullptr) {
        text += "  this machine has no GPU that has any\n";
        return;
    }
    counters->Batch(0, {});
    std::this_thread::sleep_for(pause);
    const std::vector<GpuPerfInfo> batch = counters->Batch(0, {});
    if (batch.empty()) {
        text += "  none is known now: the GPU sleeps, or its driver reports only what each process uses\n";
    }
    for (const GpuPerfInfo& sample : batch) {
        Append(text, "  GPU %d:", sample.int1);
        for (size_t i = 0; i < GPU_COUNTER_NAMES.size(); ++i) {
            if (const std::optional<uint64_t> value = GpuCounterOf(sample, static_cast<GpuCounter>(i))) {
                Append(text, " %s=%llu", GPU_COUNTER_NAMES[i], static_cast<unsigned long long>(*value));
            }
        }
        text += "\n";
    }
}

}  // namespace

std::string ExplainMachine(const std::string& rootDir, const ServiceConfig& config)
{
    MachineSettings settings;
    settings.sensors = config.sensors;
    MachineSource source(rootDir, settings);
    HeatJudge judge(config.sensors);
    const RootFiles files(rootDir);
    // The first reading, for values that need two.
    source.Read({});
    // The judge's first reading counts at once; the second shows trends and jumps.
    judge.Judge(ReadSensors(files, config.sensors, SensorScope::EVERYTHING), ReadThrottling(files), Clock::now());
    const std::chrono::milliseconds pause = rootDir == "/" ? BETWEEN_READINGS : std::chrono::milliseconds::zero();
    std::this_thread::sleep_for(pause);
    const ThrottleReading throttling = ReadThrottling(files);
    const HeatVerdict verdict =
        judge.Judge(ReadSensors(files, config.sensors, SensorScope::EVERYTHING), throttling, Clock::now());

    std::string text = "machine: " + rootDir + "\nconfiguration:";
    for (const std::string& file : config.files) {
        text += " " + file;
    }
    text += config.files.empty() ? " built in\n" : "\n";
    text += "temperature sensors\n";
    if (verdict.sensors.empty()) {
        text += "  this machine has none\n";
    }
    for (const SensorVerdict& sensor : verdict.sensors) {
        AddSensor(sensor, sensor.excluded.empty() && sensor.sensor.key == verdict.hottestKey, text);
    }
    AddThrottling(throttling, text);
    AddLevel(verdict, text);
    AddValues(source.Read({}), text);
    AddCounters(rootDir, pause, text);
    return text;
}

}  // namespace TAVO::Veltra
