// SPDX-License-Identifier: Apache-2.0
// One row for each value: key, section of the document, unit, the query that includes it, its member in an event, the
// step that a change must exceed to be announced, and the range that a scenario or a command may set. A new value needs
// a row here and a probe that measures it. Add joins two readings: a value that is there already is kept. The table
// needs no lock, since it never changes.
#include "base/device_fields.h"

#include <algorithm>
#include <climits>

namespace TAVO::Veltra {

const std::vector<DeviceField>& DeviceFields()
{
    using Info = GameCallbackEventInfo;
    using Query = QueryType;
    constexpr int64_t MOST_BYTES = int64_t{1} << 50;
    constexpr int64_t MOST_MILLIWATTS = 10000000;
    // Never destroyed: worker threads may still read it while the process exits.
    static const auto& fields = *new std::vector<DeviceField>{
        {"tempLevel", nullptr, "", Query::EVERYTHING, &Info::tempLevel, 0, 0, 5},
        {"temperature", nullptr, "C", Query::THERMAL, nullptr, 0, -40, 150},
        {"thermalMargin", "thermalInfo", "C", Query::THERMAL, &Info::thermalMargin, 1, -200, 200},
        {"thermalTrend", "thermalInfo", "", Query::THERMAL, &Info::thermalTrend, 0, -1, 1},
        {"throttling", "thermalInfo", "", Query::THERMAL, nullptr, 0, 0, 1},
        {"fanRpm", "thermalInfo", "1/min", Query::THERMAL, nullptr, 0, 0, 100000},
        {"gpuLoadLevel", "gpuInfo", "", Query::GPU, &Info::gpuLoadLevel, 0, 0, 5},
        {"gpuLoadPercent", "gpuInfo", "%", Query::GPU, nullptr, 0, 0, 100},
        {"vertexLoadLevel", "gpuInfo", "", Query::GPU, &Info::vertexLoadLevel, 0, 0, 5},
        {"fragmentLoadLevel", "gpuInfo", "", Query::GPU, &Info::fragmentLoadLevel, 0, 0, 5},
        {"textureLoadLevel", "gpuInfo", "", Query::GPU, &Info::textureLoadLevel, 0, 0, 5},
        {"bandwidthLoadLevel", "gpuInfo", "", Query::GPU, &Info::bandwidthLoadLevel, 0, 0, 5},
        {"currentFrequency", "gpuInfo", "MHz", Query::GPU, &Info::currentFrequency, 100, 0, 100000},
        {"gpuFrequencyCap", "gpuInfo", "MHz", Query::GPU, nullptr, 0, 0, 100000},
        {"gpuFrequencyMax", "gpuInfo", "MHz", Query::GPU, nullptr, 0, 0, 100000},
        {"gpuMemoryUsedBytes", "gpuInfo", "B", Query::GPU, nullptr, 0, 0, MOST_BYTES},
        {"gpuMemoryTotalBytes", "gpuInfo", "B", Query::GPU, nullptr, 0, 0, MOST_BYTES},
        {"gpuPowerMilliwatts", "gpuInfo", "mW", Query::GPU, nullptr, 0, 0, MOST_MILLIWATTS},
        {"gameGpuLoadPercent", "gpuInfo", "%", Query::GPU, nullptr, 0, 0, 100},
        {"gameGpuMemoryBytes", "gpuInfo", "B", Query::GPU, nullptr, 0, 0, MOST_BYTES},
        {"cpuLoadPercent", nullptr, "%", Query::CPU, nullptr, 0, 0, 100},
        {"cpuPressurePercent", nullptr, "%", Query::CPU, nullptr, 0, 0, 100},
        {"memoryAvailableBytes", "memoryInfo", "B", Query::MEMORY, nullptr, 0, 0, MOST_BYTES},
        {"memoryTotalBytes", "memoryInfo", "B", Query::MEMORY, nullptr, 0, 0, MOST_BYTES},
        {"memoryPressurePercent", "memoryInfo", "%", Query::MEMORY, nullptr, 0, 0, 100},
        {"batteryPercent", "powerInfo", "%", Query::POWER, nullptr, 0, 0, 100},
        {"batteryCharging", "powerInfo", "", Query::POWER, nullptr, 0, 0, 1},
        {"powerDrawMilliwatts", "powerInfo", "mW", Query::POWER, nullptr, 0, 0, MOST_MILLIWATTS},
    };
    return fields;
}

const DeviceField* FindDeviceField(std::string_view key)
{
    const std::vector<DeviceField>& fields = DeviceFields();
    const auto found =
        std::find_if(fields.begin(), fields.end(), [key](const DeviceField& field) { return key == field.key; });
    return found == fields.end() ? nullptr : &*found;
}

void DeviceReading::Add(const DeviceReading& other)
{
    values.insert(other.values.begin(), other.values.end());
    frequencies.insert(other.frequencies.begin(), other.frequencies.end());
    ignoredSensors.insert(other.ignoredSensors.begin(), other.ignoredSensors.end());
    if (other.platformProfile) {
        platformProfile = other.platformProfile;
    }
    if (other.HasLevel()) {
        levelFrom = other.levelFrom;
    }
}

}  // namespace TAVO::Veltra
