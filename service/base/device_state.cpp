// SPDX-License-Identifier: Apache-2.0
// Every answer begins with one read of the source, limited to the parts that are wanted, because each part costs file
// reads. The document is then built from the rows of DeviceFields; a value that was not measured has no key, except
// tempLevel, which is -1. An event has a fixed record instead, in which absent values keep their default. No state and
// no lock: the source has its own.
#include "base/device_state.h"

#include <algorithm>
#include <string>

#include <json/value.h>

#include "base/json_text.h"
#include "service_result.h"

namespace TAVO::Veltra {

namespace {

WantedState WantedBy(const std::vector<QueryDeviceStateDetail>& details, pid_t game)
{
    const auto asksFor = [&details](QueryType type) {
        return details.empty() || std::any_of(details.begin(), details.end(), [type](const auto& detail) {
                   return detail.queryType == static_cast<int32_t>(QueryType::EVERYTHING) ||
                          detail.queryType == static_cast<int32_t>(type);
               });
    };
    return {asksFor(QueryType::THERMAL), asksFor(QueryType::GPU),   asksFor(QueryType::CPU),
            asksFor(QueryType::MEMORY),  asksFor(QueryType::POWER), game};
}

// A client's record cannot express that a level is unknown: it is 0 there.
void AddKnownLevels(const DeviceReading& reading, Json::Value& gpuInfo)
{
    Json::Value known(Json::arrayValue);
    for (const DeviceField& field : DeviceFields()) {
        if (field.type == QueryType::GPU && field.inEvent != nullptr && reading.values.count(field.key) > 0) {
            known.append(field.key);
        }
    }
    // Written even if it is empty: a client tells "nothing known" from an older service by it.
    gpuInfo["known"] = known;
}

void AddValue(const DeviceField& field, const Measured& measured, Json::Value& root)
{
    (field.section == nullptr ? root : root[field.section])[field.key] = Json::Int64{measured.value};
    root["sources"][field.key] = measured.source;
    if (field.unit[0] != '\0') {
        root["units"][field.key] = field.unit;
    }
}

std::string Document(const DeviceReading& reading, const WantedState& wanted)
{
    Json::Value root(Json::objectValue);
    root["tempLevel"] = GameCallbackEventInfo().tempLevel;  // clients reject a document without the key
    root["tempLevelFrom"] = reading.levelFrom;
    for (const DeviceField& field : DeviceFields()) {
        const auto found = reading.values.find(field.key);
        if (found != reading.values.end() && wanted.Includes(field.type)) {
            AddValue(field, found->second, root);
        }
    }
    if (wanted.gpu) {
        AddKnownLevels(reading, root["gpuInfo"]);
    }
    for (const auto& [key, policies] : reading.frequencies) {
        for (const auto& [policy, mhz] : policies) {
            root[key][policy] = mhz;
        }
        root["sources"][key] = "cpufreq";
        root["units"][key] = "MHz";
    }
    if (reading.platformProfile) {
        root["powerInfo"]["platformProfile"] = reading.platformProfile->first;
        root["sources"]["platformProfile"] = reading.platformProfile->second;
    }
    for (const auto& [sensor, why] : reading.ignoredSensors) {
        root["ignoredSensors"][sensor] = why;
    }
    return JsonText(root);
}

}  // namespace

DeviceInfoResult DeviceState::Describe(const std::vector<QueryDeviceStateDetail>& details, pid_t game) const
{
    const WantedState wanted = WantedBy(details, game);
    const DeviceReading reading = source_->Read(wanted);
    // A query for one part may be empty on a machine that reports other parts.
    if (reading.IsEmpty() && !ReportsAnything()) {
        return {SERVICE_NO_SENSOR, {}};
    }
    return {0, Document(reading, wanted)};
}

GameCallbackEventInfo DeviceState::Event() const
{
    // Only heat and GPU, the parts that the record of an event has fields for.
    const DeviceReading reading = source_->Read({true, true, false, false, false, 0});
    GameCallbackEventInfo info;
    for (const auto& [key, measured] : reading.values) {
        const DeviceField* field = FindDeviceField(key);
        if (field != nullptr && field->inEvent != nullptr) {
            info.*field->inEvent = static_cast<int32_t>(measured.value);
        }
    }
    return info;
}

std::map<std::string, int64_t> DeviceState::Values() const
{
    std::map<std::string, int64_t> values;
    for (const auto& [key, measured] : source_->Read({}).values) {
        values[key] = measured.value;
    }
    return values;
}

bool DeviceState::ReportsAnything() const
{
    return !source_->Read({}).IsEmpty();
}

bool DeviceState::ReportsGpu() const
{
    const DeviceReading reading = source_->Read({false, true, false, false, false, 0});
    return std::any_of(reading.values.begin(), reading.values.end(), [](const auto& value) {
        const DeviceField* field = FindDeviceField(value.first);
        return field != nullptr && field->type == QueryType::GPU;
    });
}

}  // namespace TAVO::Veltra
