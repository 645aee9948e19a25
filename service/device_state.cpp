// SPDX-License-Identifier: Apache-2.0
#include "device_state.h"

#include <algorithm>
#include <chrono>
#include <optional>

#include <json/json.h>

#include "cpu_probe.h"
#include "gpu_probe.h"
#include "service_result.h"

namespace TAVO::Veltra {

// A JSON object in the making, with the source of each of its values.
class DeviceState::Document {
public:
    Document() : root_(Json::objectValue) {}

    void Put(const char* key, const Json::Value& value, const std::string& source)
    {
        root_[key] = value;
        root_["sources"][key] = source;
    }
    void PutInto(const char* section, const char* key, const Json::Value& value, const std::string& source)
    {
        root_[section][key] = value;
        root_["sources"][key] = source;
    }
    void PutRemark(const char* key, const char* text) { root_[key] = text; }

    std::string Text() const
    {
        Json::StreamWriterBuilder builder;
        builder["indentation"] = "";
        return Json::writeString(builder, root_);
    }

private:
    Json::Value root_;
};

namespace {

bool IsAskedFor(const std::vector<QueryDeviceStateDetail>& details, QueryType type)
{
    return details.empty() || std::any_of(details.begin(), details.end(), [type](const QueryDeviceStateDetail& detail) {
               return detail.queryType == static_cast<int32_t>(QueryType::EVERYTHING) ||
                      detail.queryType == static_cast<int32_t>(type);
           });
}

}  // namespace

DeviceInfoResult DeviceState::Describe(const std::vector<QueryDeviceStateDetail>& details)
{
    Document document;
    if (const std::optional<Temperature> hottest = ReadHottest(files_)) {
        document.Put("tempLevel", TemperatureLevel(*hottest), hottest->source);
        document.PutRemark("tempLevelFrom", "sensor");
        if (IsAskedFor(details, QueryType::THERMAL)) {
            AddThermalInfo(document, *hottest);
        }
    } else if (const std::optional<Measured> pressure = ReadCpuPressure(files_)) {
        document.Put("tempLevel", PressureLevel(pressure->value), pressure->source);
        document.PutRemark("tempLevelFrom", "cpuPressure");
    } else {
        return {SERVICE_NO_SENSOR, {}};
    }
    if (IsAskedFor(details, QueryType::GPU)) {
        AddGpuInfo(document);
    }
    if (IsAskedFor(details, QueryType::CPU)) {
        AddCpuInfo(document);
    }
    return {0, document.Text()};
}

bool DeviceState::TellsLevel() const
{
    return ReadHottest(files_).has_value() || ReadCpuPressure(files_).has_value();
}

bool DeviceState::TellsGpu() const
{
    return !ReadGpu(files_).IsEmpty();
}

void DeviceState::AddThermalInfo(Document& document, const Temperature& temperature)
{
    document.Put("temperature", static_cast<int32_t>(temperature.current / 1000), temperature.source);
    if (const std::optional<int32_t> margin = TemperatureMargin(temperature)) {
        document.PutInto("thermalInfo", "thermalMargin", *margin, temperature.source);
    }
    std::optional<int32_t> trend;
    {
        MutexLock lock(mutex_);
        trend = thermalTrend_.Update(temperature.source, temperature.current, std::chrono::steady_clock::now());
    }
    if (trend) {
        document.PutInto("thermalInfo", "thermalTrend", *trend, temperature.source);
    }
}

void DeviceState::AddGpuInfo(Document& document) const
{
    const GpuReading gpu = ReadGpu(files_);
    if (gpu.loadPercent) {
        document.PutInto("gpuInfo", "gpuLoadLevel", LoadLevel(gpu.loadPercent->value), gpu.loadPercent->source);
        document.PutInto("gpuInfo", "gpuLoadPercent", gpu.loadPercent->value, gpu.loadPercent->source);
    }
    if (gpu.memoryLoadPercent) {
        document.PutInto("gpuInfo", "bandwidthLoadLevel", LoadLevel(gpu.memoryLoadPercent->value),
                         gpu.memoryLoadPercent->source);
    }
    if (gpu.frequencyMhz) {
        document.PutInto("gpuInfo", "currentFrequency", gpu.frequencyMhz->value, gpu.frequencyMhz->source);
    }
}

void DeviceState::AddCpuInfo(Document& document)
{
    if (const std::optional<CpuTimes> times = ReadCpuTimes(files_)) {
        std::optional<int32_t> percent;
        {
            MutexLock lock(mutex_);
            percent = cpuLoad_.Update(*times);
        }
        if (percent) {
            document.Put("cpuLoadPercent", *percent, "proc/stat");
        }
    }
    Json::Value frequencies(Json::objectValue);
    for (const auto& [policy, mhz] : ReadCpuFrequencies(files_)) {
        frequencies[policy] = mhz;
    }
    if (!frequencies.empty()) {
        document.Put("cpuFrequencies", frequencies, "cpufreq scaling_cur_freq");
    }
}

}  // namespace TAVO::Veltra
