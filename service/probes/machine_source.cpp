// SPDX-License-Identifier: Apache-2.0
// Joins the probes into one reading, part by part (heat, GPU, processor, memory, power), and reads only the parts that
// are wanted. Each part is cached for its interval. The mutex protects the cache and the trackers that compare a
// reading with the previous one; it is released while files are read, because a slow driver must not block every
// client. Two threads may therefore read the same part at once; the one that ends last replaces the other's result.
#include "probes/machine_source.h"

#include <algorithm>
#include <utility>

#include "probes/cpu_probe.h"
#include "probes/power_probe.h"

namespace TAVO::Veltra {

namespace {

constexpr int64_t DEGREE = 1000;
constexpr int64_t LOAD_HYSTERESIS = 5;  // percent

void AddIfKnown(DeviceReading& reading, const char* key, const std::optional<Measured>& measured)
{
    if (measured) {
        reading.values[key] = *measured;
    }
}

std::optional<Measured> WithSource(const std::optional<int64_t>& value, const std::string& source)
{
    return value ? std::optional(Measured{*value, source}) : std::nullopt;
}

// The level falls only when the load is LOAD_HYSTERESIS below its bound.
void AddLoadLevel(DeviceReading& reading, const char* key, const std::optional<Measured>& percent, int32_t& before)
{
    if (percent) {
        // Rises at once to the level of the load, falls only to the level of the load plus the hysteresis.
        before = std::clamp(before, LoadLevel(percent->value), LoadLevel(percent->value + LOAD_HYSTERESIS));
        reading.values[key] = {before, percent->source};
    }
}

DeviceReading HeatReading(const HeatVerdict& verdict)
{
    DeviceReading reading;
    if (verdict.level) {
        reading.values["tempLevel"] = {*verdict.level, verdict.levelSource};
        reading.levelFrom = verdict.isLevelFromThrottling ? "throttling" : "sensor";
    }
    if (verdict.temperature) {
        reading.values["temperature"] = {*verdict.temperature / DEGREE, verdict.temperatureSource};
    }
    if (verdict.margin) {
        reading.values["thermalMargin"] = {*verdict.margin, verdict.temperatureSource};
    }
    if (verdict.trend) {
        reading.values["thermalTrend"] = {*verdict.trend, verdict.temperatureSource};
    }
    if (verdict.reportsThrottling) {
        const std::string source = verdict.isLevelFromThrottling ? verdict.levelSource : "cooling devices and counters";
        reading.values["throttling"] = {verdict.isThrottling ? 1 : 0, source};
    }
    for (const SensorVerdict& sensor : verdict.sensors) {
        if (!sensor.ignored.empty()) {
            reading.ignoredSensors[sensor.sensor.source] = sensor.ignored;
        }
    }
    return reading;
}

}  // namespace

template <typename Reader>
DeviceReading MachineSource::Fresh(Part part, std::chrono::milliseconds interval, Reader read)
{
    const TimePoint now = settings_.now();
    {
        MutexLock lock(mutex_);
        // A tenth earlier, so that a caller with the same interval does not miss every other reading.
        const LastReading& last = parts_[part];
        if (last.readAt && now - *last.readAt < interval * 9 / 10) {
            return last.reading;
        }
    }
    // Without the mutex: a sensor behind a slow bus may take many milliseconds.
    DeviceReading reading = read(now);
    MutexLock lock(mutex_);
    parts_[part] = {now, reading};
    return reading;
}

DeviceReading MachineSource::Read(const WantedState& wanted)
{
    // Always: the level must be in every document.
    DeviceReading heat = Fresh(HEAT, settings_.heatInterval, [this](TimePoint now) { return ReadHeat(now); });
    DeviceReading reading;
    for (const auto& [key, value] : heat.values) {
        if (wanted.Includes(FindDeviceField(key)->type)) {
            reading.values[key] = value;
        }
    }
    reading.levelFrom = heat.levelFrom;
    if (wanted.thermal) {
        reading.ignoredSensors = std::move(heat.ignoredSensors);
    }
    if (wanted.gpu) {
        reading.Add(Fresh(GPU, settings_.loadInterval, [this](TimePoint now) { return ReadGpu(now); }));
        if (wanted.game > 0) {
            reading.Add(ReadGame(wanted.game));
        }
    }
    if (wanted.cpu) {
        reading.Add(Fresh(CPU, settings_.loadInterval, [this](TimePoint) { return ReadCpu(); }));
    }
    if (wanted.memory) {
        reading.Add(Fresh(MEMORY, settings_.loadInterval, [this](TimePoint) { return ReadMainMemory(); }));
    }
    if (wanted.power) {
        reading.Add(Fresh(POWER, settings_.heatInterval, [this](TimePoint) { return ReadPower(); }));
    }
    return reading;
}

DeviceReading MachineSource::ReadHeat(TimePoint now)
{
    std::vector<Sensor> sensors = ReadSensors(files_, settings_.sensors, SensorScope::RELEVANT);
    const ThrottleReading throttling = ReadThrottling(files_);
    const std::optional<Measured> fan = ReadFan(files_);
    MutexLock lock(mutex_);
    DeviceReading reading = HeatReading(judge_.Judge(std::move(sensors), throttling, now));
    AddIfKnown(reading, "fanRpm", fan);
    return reading;
}

DeviceReading MachineSource::ReadGpu(TimePoint now)
{
    std::vector<GpuReading> gpus = ReadGpus(files_);
    MutexLock lock(mutex_);
    gpuIdle_.AddLoads(gpus, now);
    const GpuReading* gpu = Busiest(gpus, busiestGpu_);
    if (gpu == nullptr) {
        return {};
    }
    busiestGpu_ = gpu->name;
    DeviceReading reading;
    AddLoadLevel(reading, "gpuLoadLevel", gpu->loadPercent, gpuLevel_);
    AddLoadLevel(reading, "bandwidthLoadLevel", gpu->memoryLoadPercent, bandwidthLevel_);
    AddIfKnown(reading, "gpuLoadPercent", gpu->loadPercent);
    AddIfKnown(reading, "currentFrequency", gpu->frequencyMhz);
    AddIfKnown(reading, "gpuFrequencyCap", gpu->frequencyCapMhz);
    AddIfKnown(reading, "gpuFrequencyMax", gpu->frequencyMaxMhz);
    AddIfKnown(reading, "gpuMemoryUsedBytes", gpu->memoryUsedBytes);
    AddIfKnown(reading, "gpuMemoryTotalBytes", gpu->memoryTotalBytes);
    AddIfKnown(reading, "gpuPowerMilliwatts", gpu->powerMilliwatts);
    return reading;
}

DeviceReading MachineSource::ReadGame(pid_t game)
{
    const TimePoint now = settings_.now();
    std::optional<DrmLoadTracker::Uses> uses;
    {
        MutexLock lock(mutex_);
        // A game may query in each frame; its fdinfo is read once per interval.
        uses = games_.Recent(game, now, settings_.loadInterval * 9 / 10);
    }
    if (!uses) {
        std::map<std::string, DrmUsage> usage = ReadDrmUsage(files_, game);
        MutexLock lock(mutex_);
        uses = games_.Update(game, std::move(usage), now);
    }
    DeviceReading reading;
    const std::string source = "proc/" + std::to_string(game) + "/fdinfo of ";
    std::optional<int64_t> most;  // of several GPUs the one that the game uses most
    for (const auto& [gpu, use] : *uses) {
        if (!most || use.loadPercent.value_or(0) > *most) {
            most = use.loadPercent.value_or(0);
            AddIfKnown(reading, "gameGpuLoadPercent", WithSource(use.loadPercent, source + gpu));
            AddIfKnown(reading, "gameGpuMemoryBytes", WithSource(use.memoryBytes, source + gpu));
        }
    }
    return reading;
}

DeviceReading MachineSource::ReadCpu()
{
    DeviceReading reading;
    if (const std::optional<CpuTimes> times = ReadCpuTimes(files_)) {
        MutexLock lock(mutex_);
        if (const std::optional<int32_t> percent = cpuLoad_.Update(*times)) {
            reading.values["cpuLoadPercent"] = {*percent, "proc/stat"};
        }
    }
    AddIfKnown(reading, "cpuPressurePercent", ReadPressure(files_, "cpu"));
    const std::pair<const char*, const char*> lists[] = {{"cpuFrequencies", "scaling_cur_freq"},
                                                         {"cpuFrequencyCaps", "scaling_max_freq"},
                                                         {"cpuFrequencyMaxima", "cpuinfo_max_freq"}};
    for (const auto& [key, file] : lists) {
        const std::map<std::string, int32_t> frequencies = ReadCpuFrequencies(files_, file);
        if (!frequencies.empty()) {
            reading.frequencies[key] = frequencies;
        }
    }
    return reading;
}

DeviceReading MachineSource::ReadMainMemory() const
{
    const MemoryReading memory = ReadMemory(files_);
    DeviceReading reading;
    AddIfKnown(reading, "memoryAvailableBytes", memory.availableBytes);
    AddIfKnown(reading, "memoryTotalBytes", memory.totalBytes);
    AddIfKnown(reading, "memoryPressurePercent", ReadPressure(files_, "memory"));
    return reading;
}

DeviceReading MachineSource::ReadPower() const
{
    const BatteryReading battery = ReadBattery(files_);
    DeviceReading reading;
    AddIfKnown(reading, "batteryPercent", battery.percent);
    AddIfKnown(reading, "batteryCharging", battery.isCharging);
    AddIfKnown(reading, "powerDrawMilliwatts", battery.drawMilliwatts);
    reading.platformProfile = ReadPlatformProfile(files_);
    return reading;
}

}  // namespace TAVO::Veltra
