// SPDX-License-Identifier: Apache-2.0
// The requests and replies of VeltraServerStub that carry lists, maps or records. A count is checked before its loop,
// each element is read on its own, and the operation is called only when the whole request was good. An answer that
// does not fit its parcel is reported as RESULT_BAD_PARCEL and never sent truncated.
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "service_result.h"
#include "veltra_result.h"
#include "veltra_server_stub.h"

namespace TAVO::Veltra {

namespace {

// Deliberate: fourteen items, not the record's own encoding: text1 and text4 of the resource do not travel, and int3
// comes before long1.
AppResourceDownLoadResult ReadDownLoadResult(RequestReader& request)
{
    AppResourceDownLoadResult result;
    result.text1 = request.Text("text1");
    result.text2 = request.Text("text2");
    result.value1 = request.Int64("value1");
    result.value2 = request.Int64("value2");
    result.value3 = request.Int64("value3");
    result.count1 = request.Int32("count1");
    result.count2 = request.Int32("count2");
    result.value4 = request.Int64("value4");
    request.Object("resourceInfo", [&request, &info = result.resourceInfo] {
        info.int1 = request.Int32("int1");
        info.int2 = request.Int32("int2");
        info.text2 = request.Text("text2");
        info.text3 = request.Text("text3");
        info.int3 = request.Int32("int3");
        info.long1 = request.Int64("long1");
    });
    return result;
}

}  // namespace

int32_t VeltraServerStub::HandleGetDeviceInfo(RequestReader& request, ReplyWriter& reply)
{
    std::vector<QueryDeviceStateDetail> details;
    const int32_t count = request.Count(0, MAX_DETAILS);
    request.Objects("details", count, [&] {
        QueryDeviceStateDetail detail;
        detail.queryType = request.Int32("queryType");
        detail.queryParams = request.TextMap("queryParams", MAX_DETAIL_PARAMS);
        details.push_back(std::move(detail));
    });
    if (request.IsBad()) {
        return SERVICE_BAD_REQUEST;
    }
    const DeviceInfoResult info = GetDeviceInfo(std::move(details));
    if (info.retCode != 0) {
        return info.retCode;
    }
    return reply.Done() && reply.Document("result", info.result) ? 0 : RESULT_BAD_PARCEL;
}

int32_t VeltraServerStub::HandleGetAppPrioritys(RequestReader& request, ReplyWriter&)
{
    std::vector<std::string> bundleNames = request.Texts("bundleNames", 0, MAX_BUNDLE_NAMES);
    const auto callback = request.Callback<IResourcePreDownloadNativeCallback>();
    return request.IsBad() ? SERVICE_BAD_REQUEST : GetAppPrioritys(bundleNames, callback);
}

int32_t VeltraServerStub::HandleQueryAppResourceInfos(RequestReader& request, ReplyWriter&)
{
    // At least one, unlike for priorities: an empty list would ask for the resources of all applications.
    const std::vector<std::string> bundleNames = request.Texts("bundleNames", 1, MAX_BUNDLE_NAMES);
    const auto callback = request.Callback<IResourcePreDownloadNativeCallback>();
    return request.IsBad() ? SERVICE_BAD_REQUEST : QueryAppResourceInfos(bundleNames, callback);
}

int32_t VeltraServerStub::HandleNotifyAppResourceDownLoadResults(RequestReader& request, ReplyWriter&)
{
    std::vector<AppResourceDownLoadResult> results;
    const int32_t count = request.Count(0, MAX_DOWNLOAD_RESULTS);
    request.Objects("results", count, [&] { results.push_back(ReadDownLoadResult(request)); });
    return request.IsBad() ? SERVICE_BAD_REQUEST : NotifyAppResourceDownLoadResults(results);
}

int32_t VeltraServerStub::HandleGetSystemFunctionStatus(RequestReader& request, ReplyWriter& reply)
{
    std::map<std::string, std::string> query = request.TextMap("query", MAX_FUNCTION_QUERIES);
    if (request.IsBad()) {
        return SERVICE_BAD_REQUEST;
    }
    return reply.Pairs("result", GetSystemFunctionStatus(query)) ? 0 : RESULT_BAD_PARCEL;
}

int32_t VeltraServerStub::HandleQueryGameState(RequestReader&, ReplyWriter& reply)
{
    GameState state;
    const int32_t result = QueryGameState(state);
    if (result != 0) {
        return result;
    }
    const bool isWritten =
        reply.Done() && reply.Int32("state", state.state) && reply.Text("bundleName", state.bundleName);
    return isWritten ? 0 : RESULT_BAD_PARCEL;
}

}  // namespace TAVO::Veltra
