// SPDX-License-Identifier: Apache-2.0
// A server that notes each operation with its arguments and answers with values of its own.
#ifndef VELTRA_TESTS_SERVICE_RECORDING_SERVER_H
#define VELTRA_TESTS_SERVICE_RECORDING_SERVER_H

#include <gtest/gtest.h>

#include <map>
#include <new>
#include <string>
#include <tuple>
#include <vector>

#include "veltra_server_stub.h"

namespace TAVO::Veltra {

constexpr int32_t RESULT = 4711;
constexpr char DOCUMENT[] = R"({"tempLevel":1})";

class RecordingServer : public VeltraServerStub {
public:
    std::vector<std::string> calls;
    bool isOutOfMemory = false;
    DeviceInfoResult deviceInfo = {0, DOCUMENT};
    int32_t gameStateResult = 0;

    int32_t RegisterCallBack(const sptr<IGpNapiEventCallback>& callback) override
    {
        return Note("RegisterCallBack", callback != nullptr);
    }
    int32_t UnRegisterCallBack() override { return Note("UnRegisterCallBack"); }
    int32_t UpdateGameInfo(int32_t first, const std::string& text, int32_t second) override
    {
        return Note("UpdateGameInfo", first, text, second);
    }
    int32_t CallAuth(const std::string& text) override { return Note("CallAuth", text); }
    void ReportGameEvent(GameInfo& info) override
    {
        Note("ReportGameEvent", info.int32Value, info.int64Value, info.text1, info.text2, info.text3, info.text4,
             info.text5, info.text6);
    }
    std::map<std::string, bool> SyncAppType(const std::string& text, int32_t value) override
    {
        Note("SyncAppType", text, value);
        return {{"a", true}, {"b", false}};
    }
    int32_t ReportRenderThread(std::string first, std::string second, int32_t value) override
    {
        return Note("ReportRenderThread", first, second, value);
    }
    void RegisterCallbackForGraphic(std::string text, int32_t value, const sptr<IGameGraphicCallback>& object) override
    {
        Note("RegisterCallbackForGraphic", text, value, object != nullptr);
    }
    int32_t StartGetGpuPerfInfo(int32_t value, const sptr<IGpuCounterNativeCallback>& callback) override
    {
        return Note("StartGetGpuPerfInfo", value, callback != nullptr);
    }
    int32_t StopGetGpuPerfInfo() override { return Note("StopGetGpuPerfInfo"); }
    std::map<std::string, std::string> GetSystemFunctionStatus(std::map<std::string, std::string>& query) override
    {
        Note("GetSystemFunctionStatus", query);
        return {{"k", "v"}};
    }
    int32_t QueryGameState(GameState& state) override
    {
        Note("QueryGameState");
        state = {3, "com.game"};
        return gameStateResult;
    }
    int32_t NotifyGameEvent(GameSceneBundle& bundle) override
    {
        return Note("NotifyGameEvent", bundle.sceneId, bundle.sceneName, bundle.attributes);
    }
    DeviceInfoResult GetDeviceInfo(std::vector<QueryDeviceStateDetail> details) override
    {
        Note("GetDeviceInfo", details.size());
        for (const QueryDeviceStateDetail& detail : details) {
            calls.back() += testing::PrintToString(std::make_tuple(detail.queryType, detail.queryParams));
        }
        return deviceInfo;
    }
    int32_t QueryAppResourceInfos(const std::vector<std::string>& bundleNames,
                                  const sptr<IResourcePreDownloadNativeCallback>& callback) override
    {
        return Note("QueryAppResourceInfos", bundleNames, callback != nullptr);
    }
    int32_t GetAppPrioritys(std::vector<std::string>& bundleNames,
                            const sptr<IResourcePreDownloadNativeCallback>& callback) override
    {
        return Note("GetAppPrioritys", bundleNames, callback != nullptr);
    }
    int32_t NotifyAppResourceDownLoadResults(std::vector<AppResourceDownLoadResult>& results) override
    {
        Note("NotifyAppResourceDownLoadResults", results.size());
        for (const AppResourceDownLoadResult& r : results) {
            const AppResourceInfo& info = r.resourceInfo;
            calls.back() += testing::PrintToString(std::make_tuple(
                r.text1, r.text2, r.value1, r.value2, r.value3, r.count1, r.count2, r.value4, info.text1, info.int1,
                info.int2, info.text2, info.text3, info.long1, info.int3, info.text4));
        }
        return RESULT;
    }

private:
    template <typename... Values>
    int32_t Note(std::string call, const Values&... values)
    {
        if (isOutOfMemory) {
            throw std::bad_alloc();
        }
        ((call += ' ' + testing::PrintToString(values)), ...);
        calls.push_back(call);
        return RESULT;
    }
};

}  // namespace TAVO::Veltra

#endif
