// SPDX-License-Identifier: Apache-2.0
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "base/service_result.h"
#include "request_reader.h"
#include "veltra_result.h"
#include "veltra_server_stub.h"

namespace TAVO::Veltra {

namespace {

// Deliberate: fourteen items, not the record's own encoding: text1 and text4 of the resource do not travel, and int3
// comes before long1.
AppResourceDownLoadResult ReadDownLoadResult(RequestReader& reader)
{
    AppResourceDownLoadResult result;
    result.text1 = reader.Text();
    result.text2 = reader.Text();
    result.value1 = reader.Int64();
    result.value2 = reader.Int64();
    result.value3 = reader.Int64();
    result.count1 = reader.Int32();
    result.count2 = reader.Int32();
    result.value4 = reader.Int64();
    result.resourceInfo.int1 = reader.Int32();
    result.resourceInfo.int2 = reader.Int32();
    result.resourceInfo.text2 = reader.Text();
    result.resourceInfo.text3 = reader.Text();
    result.resourceInfo.int3 = reader.Int32();
    result.resourceInfo.long1 = reader.Int64();
    return result;
}

}  // namespace

int32_t VeltraServerStub::HandleGetDeviceInfo(MessageParcel& data, MessageParcel& reply)
{
    RequestReader reader(data);
    std::vector<QueryDeviceStateDetail> details;
    const int32_t count = reader.Count(0, MAX_DETAILS);
    for (int32_t i = 0; i < count && !reader.IsBad(); ++i) {
        QueryDeviceStateDetail detail;
        detail.queryType = reader.Int32();
        detail.queryParams = reader.TextMap(MAX_DETAIL_PARAMS);
        details.push_back(std::move(detail));
    }
    if (reader.IsBad()) {
        return SERVICE_BAD_REQUEST;
    }
    const DeviceInfoResult info = GetDeviceInfo(std::move(details));
    if (info.retCode != 0) {
        return info.retCode;
    }
    return reply.WriteInt32(0) && reply.WriteString(info.result) ? 0 : RESULT_BAD_PARCEL;
}

int32_t VeltraServerStub::HandleGetAppPrioritys(MessageParcel& data, MessageParcel&)
{
    RequestReader reader(data);
    std::vector<std::string> bundleNames = reader.Texts(0, MAX_BUNDLE_NAMES);
    const auto callback = reader.Callback<IResourcePreDownloadNativeCallback>();
    return reader.IsBad() ? SERVICE_BAD_REQUEST : GetAppPrioritys(bundleNames, callback);
}

int32_t VeltraServerStub::HandleQueryAppResourceInfos(MessageParcel& data, MessageParcel&)
{
    RequestReader reader(data);
    const std::vector<std::string> bundleNames = reader.Texts(1, MAX_BUNDLE_NAMES);
    const auto callback = reader.Callback<IResourcePreDownloadNativeCallback>();
    return reader.IsBad() ? SERVICE_BAD_REQUEST : QueryAppResourceInfos(bundleNames, callback);
}

int32_t VeltraServerStub::HandleNotifyAppResourceDownLoadResults(MessageParcel& data, MessageParcel&)
{
    RequestReader reader(data);
    std::vector<AppResourceDownLoadResult> results;
    const int32_t count = reader.Count(0, MAX_DOWNLOAD_RESULTS);
    for (int32_t i = 0; i < count && !reader.IsBad(); ++i) {
        results.push_back(ReadDownLoadResult(reader));
    }
    return reader.IsBad() ? SERVICE_BAD_REQUEST : NotifyAppResourceDownLoadResults(results);
}

int32_t VeltraServerStub::HandleGetSystemFunctionStatus(MessageParcel& data, MessageParcel& reply)
{
    RequestReader reader(data);
    std::map<std::string, std::string> query = reader.TextMap(MAX_FUNCTION_QUERIES);
    if (reader.IsBad()) {
        return SERVICE_BAD_REQUEST;
    }
    const std::map<std::string, std::string> answers = GetSystemFunctionStatus(query);
    bool isWritten = reply.WriteInt32(static_cast<int32_t>(answers.size()));
    for (const auto& [name, status] : answers) {
        isWritten = isWritten && reply.WriteString(name) && reply.WriteString(status);
    }
    return isWritten ? 0 : RESULT_BAD_PARCEL;
}

int32_t VeltraServerStub::HandleQueryGameState(MessageParcel&, MessageParcel& reply)
{
    GameState state;
    const int32_t result = QueryGameState(state);
    if (result != 0) {
        return result;
    }
    const bool isWritten = reply.WriteInt32(0) && reply.WriteInt32(state.state) && reply.WriteString(state.bundleName);
    return isWritten ? 0 : RESULT_BAD_PARCEL;
}

}  // namespace TAVO::Veltra
