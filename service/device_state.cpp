// SPDX-License-Identifier: Apache-2.0
#include "device_state.h"

#include <algorithm>
#include <string>

#include <json/json.h>

#include "service_result.h"

namespace TAVO::Veltra {

namespace {

WantedState WantedBy(const std::vector<QueryDeviceStateDetail>& details)
{
    const auto asksFor = [&details](QueryType type) {
        return details.empty() || std::any_of(details.begin(), details.end(), [type](const auto& detail) {
                   return detail.queryType == static_cast<int32_t>(QueryType::EVERYTHING) ||
                          detail.queryType == static_cast<int32_t>(type);
               });
    };
    return {asksFor(QueryType::THERMAL), asksFor(QueryType::GPU), asksFor(QueryType::CPU)};
}

std::string Document(const DeviceReading& reading, const WantedState& wanted)
{
    Json::Value root(Json::objectValue);
    root["tempLevelFrom"] = reading.levelFrom;
    for (const DeviceField& field : DeviceFields()) {
        const auto found = reading.values.find(field.key);
        if (found != reading.values.end() && wanted.Includes(field.type)) {
            (field.section == nullptr ? root : root[field.section])[field.key] = found->second.value;
            root["sources"][field.key] = found->second.source;
        }
    }
    for (const auto& [policy, mhz] : reading.cpuFrequencies) {
        root["cpuFrequencies"][policy] = mhz;
        root["sources"]["cpuFrequencies"] = "cpufreq scaling_cur_freq";
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, root);
}

}  // namespace

DeviceInfoResult DeviceState::Describe(const std::vector<QueryDeviceStateDetail>& details) const
{
    const WantedState wanted = WantedBy(details);
    const DeviceReading reading = source_->Read(wanted);
    if (!reading.HasLevel()) {
        return {SERVICE_NO_SENSOR, {}};
    }
    return {0, Document(reading, wanted)};
}

GameCallbackEventInfo DeviceState::Event() const
{
    const DeviceReading reading = source_->Read({true, true, false});
    GameCallbackEventInfo info;
    for (const auto& [key, measured] : reading.values) {
        const DeviceField* field = FindDeviceField(key);
        if (field != nullptr && field->inEvent != nullptr) {
            info.*field->inEvent = measured.value;
        }
    }
    return info;
}

bool DeviceState::TellsLevel() const
{
    return source_->Read({false, false, false}).HasLevel();
}

bool DeviceState::TellsGpu() const
{
    const DeviceReading reading = source_->Read({false, true, false});
    return std::any_of(reading.values.begin(), reading.values.end(), [](const auto& value) {
        const DeviceField* field = FindDeviceField(value.first);
        return field != nullptr && field->type == QueryType::GPU;
    });
}

}  // namespace TAVO::Veltra
