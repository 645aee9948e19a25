// SPDX-License-Identifier: Apache-2.0
#include "machine_source.h"

#include <chrono>
#include <optional>

#include "cpu_probe.h"
#include "gpu_probe.h"

namespace TAVO::Veltra {

DeviceReading MachineSource::Read(const WantedState& wanted)
{
    DeviceReading reading;
    if (const std::optional<Temperature> hottest = ReadHottest(files_)) {
        reading.values["tempLevel"] = {TemperatureLevel(*hottest), hottest->source};
        reading.levelFrom = "sensor";
        if (wanted.thermal) {
            AddThermal(reading, *hottest);
        }
    } else if (const std::optional<Measured> pressure = ReadCpuPressure(files_)) {
        reading.values["tempLevel"] = {PressureLevel(pressure->value), pressure->source};
        reading.levelFrom = "cpuPressure";
    }
    if (wanted.gpu) {
        AddGpu(reading);
    }
    if (wanted.cpu) {
        AddCpu(reading);
    }
    return reading;
}

void MachineSource::AddThermal(DeviceReading& reading, const Temperature& temperature)
{
    reading.values["temperature"] = {static_cast<int32_t>(temperature.current / 1000), temperature.source};
    if (const std::optional<int32_t> margin = TemperatureMargin(temperature)) {
        reading.values["thermalMargin"] = {*margin, temperature.source};
    }
    std::optional<int32_t> trend;
    {
        MutexLock lock(mutex_);
        trend = thermalTrend_.Update(temperature.source, temperature.current, std::chrono::steady_clock::now());
    }
    if (trend) {
        reading.values["thermalTrend"] = {*trend, temperature.source};
    }
}

void MachineSource::AddGpu(DeviceReading& reading) const
{
    const GpuReading gpu = ReadGpu(files_);
    if (gpu.loadPercent) {
        reading.values["gpuLoadLevel"] = {LoadLevel(gpu.loadPercent->value), gpu.loadPercent->source};
        reading.values["gpuLoadPercent"] = *gpu.loadPercent;
    }
    if (gpu.memoryLoadPercent) {
        reading.values["bandwidthLoadLevel"] = {LoadLevel(gpu.memoryLoadPercent->value), gpu.memoryLoadPercent->source};
    }
    if (gpu.frequencyMhz) {
        reading.values["currentFrequency"] = *gpu.frequencyMhz;
    }
}

void MachineSource::AddCpu(DeviceReading& reading)
{
    if (const std::optional<CpuTimes> times = ReadCpuTimes(files_)) {
        std::optional<int32_t> percent;
        {
            MutexLock lock(mutex_);
            percent = cpuLoad_.Update(*times);
        }
        if (percent) {
            reading.values["cpuLoadPercent"] = {*percent, "proc/stat"};
        }
    }
    reading.cpuFrequencies = ReadCpuFrequencies(files_);
}

}  // namespace TAVO::Veltra
