// SPDX-License-Identifier: Apache-2.0
#include "machine_source.h"

#include "cpu_probe.h"
#include "gpu_probe.h"

namespace TAVO::Veltra {

namespace {

constexpr int64_t DEGREE = 1000;

void AddIfKnown(DeviceReading& reading, const char* key, const std::optional<Measured>& measured)
{
    if (measured) {
        reading.values[key] = *measured;
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
    if (verdict.tellsThrottling) {
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
DeviceReading MachineSource::Fresh(Part& part, std::chrono::milliseconds interval, Reader read)
{
    const TimePoint now = settings_.now();
    {
        MutexLock lock(mutex_);
        // A tenth earlier, so that a caller with the same interval does not miss every other reading.
        if (part.readAt && now - *part.readAt < interval * 9 / 10) {
            return part.reading;
        }
    }
    DeviceReading reading = read(now);
    MutexLock lock(mutex_);
    part = {now, reading};
    return reading;
}

DeviceReading MachineSource::Read(const WantedState& wanted)
{
    DeviceReading heat = Fresh(heat_, settings_.heatInterval, [this](TimePoint now) { return ReadHeat(now); });
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
        reading.Add(Fresh(gpu_, settings_.loadInterval, [this](TimePoint) { return ReadGpu(); }));
    }
    if (wanted.cpu) {
        reading.Add(Fresh(cpu_, settings_.loadInterval, [this](TimePoint) { return ReadCpu(); }));
    }
    return reading;
}

DeviceReading MachineSource::ReadHeat(TimePoint now)
{
    std::vector<Sensor> sensors = ReadSensors(files_, settings_.sensors, SensorScope::RELEVANT);
    const ThrottleReading throttling = ReadThrottling(files_);
    MutexLock lock(mutex_);
    return HeatReading(judge_.Judge(std::move(sensors), throttling, now));
}

DeviceReading MachineSource::ReadGpu() const
{
    const GpuReading gpu = TAVO::Veltra::ReadGpu(files_);
    DeviceReading reading;
    if (gpu.loadPercent) {
        const auto percent = static_cast<int32_t>(gpu.loadPercent->value);
        reading.values["gpuLoadLevel"] = {LoadLevel(percent), gpu.loadPercent->source};
    }
    if (gpu.memoryLoadPercent) {
        const auto percent = static_cast<int32_t>(gpu.memoryLoadPercent->value);
        reading.values["bandwidthLoadLevel"] = {LoadLevel(percent), gpu.memoryLoadPercent->source};
    }
    AddIfKnown(reading, "gpuLoadPercent", gpu.loadPercent);
    AddIfKnown(reading, "currentFrequency", gpu.frequencyMhz);
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
    const std::map<std::string, int32_t> frequencies = ReadCpuFrequencies(files_);
    if (!frequencies.empty()) {
        reading.frequencies["cpuFrequencies"] = frequencies;
    }
    return reading;
}

}  // namespace TAVO::Veltra
