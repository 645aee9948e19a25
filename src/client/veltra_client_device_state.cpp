// SPDX-License-Identifier: Apache-2.0
// The device-state query: the service's JSON text becomes a record. The text comes from another process and is treated
// as hostile: its size is limited, its depth is checked before the parser runs (JsonUtils), and every member is tested
// for its type. Members that are missing or have another type leave the record's default.
#include <json/value.h>

#include <limits>
#include <utility>

#include "client/veltra_server_client_proxy.h"
#include "utils/json_utils.h"
#include "veltra_result.h"

namespace TAVO::Veltra {
namespace {

constexpr int32_t UNKNOWN = std::numeric_limits<int32_t>::min();
// A longer text is taken for one that does not parse: parsing takes up to 50 bytes of memory for each of its bytes.
constexpr size_t MAX_DOCUMENT_BYTES = 1024 * 1024;

// The object `key` of `root`, or null.
Json::Value* FindSection(Json::Value& root, const char* key)
{
    return root.isMember(key) && root[key].isObject() ? &root[key] : nullptr;
}

void FillGpuInfo(Json::Value& section, GameCallbackEventInfo& info)
{
    info.gpuLoadLevel = JsonUtils::GetInt(section, "gpuLoadLevel", 0);
    info.vertexLoadLevel = JsonUtils::GetInt(section, "vertexLoadLevel", 0);
    info.fragmentLoadLevel = JsonUtils::GetInt(section, "fragmentLoadLevel", 0);
    info.textureLoadLevel = JsonUtils::GetInt(section, "textureLoadLevel", 0);
    info.bandwidthLoadLevel = JsonUtils::GetInt(section, "bandwidthLoadLevel", 0);
    info.currentFrequency = JsonUtils::GetInt(section, "currentFrequency", 0);
}

void FillThermalInfo(Json::Value& section, GameCallbackEventInfo& info)
{
    info.thermalMargin = JsonUtils::GetInt(section, "thermalMargin", UNKNOWN);
    info.thermalTrend = JsonUtils::GetInt(section, "thermalTrend", 0);
}

GameCallbackEventInfo FailedWith(int32_t resultCode)
{
    GameCallbackEventInfo info;
    info.resultCode = resultCode;
    return info;
}

}  // namespace

GameCallbackEventInfo VeltraClientProxy::GetDeviceInfo(std::vector<QueryDeviceStateDetail> details)
try {
    const sptr<IVeltraServerInterface> service = FindService();
    if (service == nullptr) {
        return FailedWith(RESULT_NO_SERVICE);
    }
    DeviceInfoResult answer = service->GetDeviceInfo(std::move(details));
    if (answer.retCode != RESULT_OK) {
        return FailedWith(answer.retCode);
    }
    GameCallbackEventInfo info;
    AssembleDeviceStateResponse(std::move(answer.result), info);
    // Deliberate: after the assembly, so that an unusable text reads as success with default values; games treat a
    // non-zero code as a service that went away.
    info.resultCode = answer.retCode;
    return info;
} catch (...) {
    return FailedWith(RESULT_NO_SERVICE);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): a text by value is part of the binary interface.
void VeltraClientProxy::AssembleDeviceStateResponse(std::string response, GameCallbackEventInfo& info)
try {
    Json::Value root;
    if (response.size() <= MAX_DOCUMENT_BYTES) {
        root = JsonUtils::StringToJson(response);
    }
    // A text that was cut off yields its beginning (StringToJson), so an object here need not be complete.
    if (root.empty() || !root.isObject()) {
        info.resultCode = RESULT_BAD_DEVICE_STATE;
        return;
    }
    const int32_t tempLevel = JsonUtils::GetInt(root, "tempLevel", UNKNOWN);
    if (tempLevel == UNKNOWN) {
        info.resultCode = RESULT_BAD_DEVICE_STATE;
        return;
    }
    info.tempLevel = tempLevel;
    if (Json::Value* gpuInfo = FindSection(root, "gpuInfo")) {
        FillGpuInfo(*gpuInfo, info);
    }
    if (Json::Value* thermalInfo = FindSection(root, "thermalInfo")) {
        FillThermalInfo(*thermalInfo, info);
    }
} catch (...) {
    info.resultCode = RESULT_BAD_DEVICE_STATE;
}

}  // namespace TAVO::Veltra
