// SPDX-License-Identifier: Apache-2.0
// The document has its values at the top or in one of four sections, and in "sources" where each comes from. A table
// says which field of the snapshot takes which value. Everything is optional but "tempLevel"; whatever has another
// type than expected counts as absent, because the text comes from another process. Source texts are kept for the life
// of the process, so that a snapshot can be copied word by word and outlives its session.
#include "device_document.h"

#include <json/value.h>

#include <set>
#include <utility>

#include "tavo/mutex.h"
#include "utils/json_utils.h"

namespace TAVO::Veltra {
namespace {

constexpr size_t MAX_DOCUMENT_BYTES = 1024 * 1024;  // the limit of the client library
constexpr size_t MAX_KEPT_TEXTS = 1024;
constexpr size_t MAX_KEPT_BYTES = 256;
constexpr int64_t HIGHEST_LEVEL = 5;

struct Field {
    const char* section;  // null: the document itself
    const char* key;
    std::optional<Reading> DeviceSnapshot::*value;
};

using S = DeviceSnapshot;
constexpr Field FIELDS[] = {
    {nullptr, "tempLevel", &S::tempLevel},
    {nullptr, "temperature", &S::temperature},
    {"thermalInfo", "thermalMargin", &S::thermalMargin},
    {"thermalInfo", "thermalTrend", &S::thermalTrend},
    {"thermalInfo", "throttling", &S::throttling},
    {"thermalInfo", "fanRpm", &S::fanRpm},
    {"gpuInfo", "gpuLoadLevel", &S::gpuLoadLevel},
    {"gpuInfo", "gpuLoadPercent", &S::gpuLoadPercent},
    {"gpuInfo", "vertexLoadLevel", &S::vertexLoadLevel},
    {"gpuInfo", "fragmentLoadLevel", &S::fragmentLoadLevel},
    {"gpuInfo", "textureLoadLevel", &S::textureLoadLevel},
    {"gpuInfo", "bandwidthLoadLevel", &S::bandwidthLoadLevel},
    {"gpuInfo", "currentFrequency", &S::currentFrequency},
    {"gpuInfo", "gpuFrequencyCap", &S::gpuFrequencyCap},
    {"gpuInfo", "gpuFrequencyMax", &S::gpuFrequencyMax},
    {"gpuInfo", "gpuMemoryUsedBytes", &S::gpuMemoryUsedBytes},
    {"gpuInfo", "gpuMemoryTotalBytes", &S::gpuMemoryTotalBytes},
    {"gpuInfo", "gpuPowerMilliwatts", &S::gpuPowerMilliwatts},
    {"gpuInfo", "gameGpuLoadPercent", &S::gameGpuLoadPercent},
    {"gpuInfo", "gameGpuMemoryBytes", &S::gameGpuMemoryBytes},
    {nullptr, "cpuLoadPercent", &S::cpuLoadPercent},
    {nullptr, "cpuPressurePercent", &S::cpuPressurePercent},
    {"memoryInfo", "memoryAvailableBytes", &S::memoryAvailableBytes},
    {"memoryInfo", "memoryTotalBytes", &S::memoryTotalBytes},
    {"memoryInfo", "memoryPressurePercent", &S::memoryPressurePercent},
    {"powerInfo", "batteryPercent", &S::batteryPercent},
    {"powerInfo", "batteryCharging", &S::batteryCharging},
    {"powerInfo", "powerDrawMilliwatts", &S::powerDrawMilliwatts},
};

// The member `key`, null if there is none or `object` is none.
const Json::Value& Member(const Json::Value& object, const char* key)
{
    return object.isObject() ? object[key] : Json::Value::nullSingleton();
}

const char* SourceOf(const Json::Value& root, const char* key)
{
    const Json::Value& source = Member(Member(root, "sources"), key);
    return KeptText(source.isString() ? source.asString() : std::string());
}

std::optional<TextReading> TextOf(const Json::Value& root, const Json::Value& section, const char* key)
{
    const Json::Value& text = Member(section, key);
    if (!text.isString()) {
        return std::nullopt;
    }
    return TextReading{KeptText(text.asString()), SourceOf(root, key)};
}

void FillValues(const Json::Value& root, DeviceSnapshot& snapshot)
{
    for (const Field& field : FIELDS) {
        const Json::Value& section = field.section == nullptr ? root : Member(root, field.section);
        const Json::Value& value = Member(section, field.key);
        // Deliberate: a number of another type counts as absent. A wrong value would be worse than none.
        if (value.isInt64()) {
            snapshot.*field.value = Reading{value.asInt64(), SourceOf(root, field.key)};
        }
    }
    // -1 is the document's "unknown", which is an absent value here.
    if (snapshot.tempLevel && (snapshot.tempLevel->value < 0 || snapshot.tempLevel->value > HIGHEST_LEVEL)) {
        snapshot.tempLevel.reset();
    }
    snapshot.levelFrom = TextOf(root, root, "tempLevelFrom");
    snapshot.platformProfile = TextOf(root, Member(root, "powerInfo"), "platformProfile");
}

void FillDetails(const Json::Value& root, DeviceDetails& details)
{
    for (const char* key : {"cpuFrequencies", "cpuFrequencyCaps", "cpuFrequencyMaxima"}) {
        const Json::Value& policies = Member(root, key);
        for (const std::string& policy : policies.isObject() ? policies.getMemberNames() : Json::Value::Members()) {
            if (policies[policy].isInt64()) {
                details.cpuFrequencies[key][policy] = policies[policy].asInt64();
            }
        }
    }
    const Json::Value& ignored = Member(root, "ignoredSensors");
    for (const std::string& sensor : ignored.isObject() ? ignored.getMemberNames() : Json::Value::Members()) {
        if (ignored[sensor].isString()) {
            details.ignoredSensors[sensor] = ignored[sensor].asString();
        }
    }
}

struct KeptTexts {
    Mutex mutex;
    std::set<std::string> texts TAVO_GUARDED_BY(mutex);  // its nodes never move
};

}  // namespace

const char* KeptText(const std::string& text)
{
    // Never destroyed: snapshots refer to the texts until the process ends.
    static KeptTexts& kept = *new KeptTexts;
    const MutexLock lock(kept.mutex);
    const auto found = kept.texts.find(text);
    if (found != kept.texts.end()) {
        return found->c_str();
    }
    // A service that sends ever new texts must not fill the memory of the game.
    if (text.size() > MAX_KEPT_BYTES || kept.texts.size() >= MAX_KEPT_TEXTS) {
        return "(more)";
    }
    return kept.texts.insert(text).first->c_str();
}

std::optional<DeviceDocument> ParseDeviceDocument(std::string text)
{
    Json::Value root;
    if (text.size() > MAX_DOCUMENT_BYTES || !JsonUtils::Parse(text, root) || !root.isObject() ||
        !Member(root, "tempLevel").isInt64()) {
        return std::nullopt;
    }
    DeviceDocument document;
    FillValues(root, document.snapshot);
    FillDetails(root, document.details);
    document.details.document = std::move(text);
    return document;
}

}  // namespace TAVO::Veltra
