// SPDX-License-Identifier: Apache-2.0
#include "device_fields.h"

#include <algorithm>
#include <climits>

namespace TAVO::Veltra {

const std::vector<DeviceField>& DeviceFields()
{
    using Info = GameCallbackEventInfo;
    // Never destroyed: worker threads may still read it while the process exits.
    static const auto& fields = *new std::vector<DeviceField>{
        {"tempLevel", nullptr, QueryType::EVERYTHING, &Info::tempLevel, 0, 5},
        {"temperature", nullptr, QueryType::THERMAL, nullptr, -40, 150},
        {"thermalMargin", "thermalInfo", QueryType::THERMAL, &Info::thermalMargin, -200, 200},
        {"thermalTrend", "thermalInfo", QueryType::THERMAL, &Info::thermalTrend, -1, 1},
        {"gpuLoadLevel", "gpuInfo", QueryType::GPU, &Info::gpuLoadLevel, 0, 5},
        {"gpuLoadPercent", "gpuInfo", QueryType::GPU, nullptr, 0, 100},
        {"vertexLoadLevel", "gpuInfo", QueryType::GPU, &Info::vertexLoadLevel, 0, 5},
        {"fragmentLoadLevel", "gpuInfo", QueryType::GPU, &Info::fragmentLoadLevel, 0, 5},
        {"textureLoadLevel", "gpuInfo", QueryType::GPU, &Info::textureLoadLevel, 0, 5},
        {"bandwidthLoadLevel", "gpuInfo", QueryType::GPU, &Info::bandwidthLoadLevel, 0, 5},
        {"currentFrequency", "gpuInfo", QueryType::GPU, &Info::currentFrequency, 0, 100000},
        {"cpuLoadPercent", nullptr, QueryType::CPU, nullptr, 0, 100},
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

}  // namespace TAVO::Veltra
