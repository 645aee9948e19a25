// SPDX-License-Identifier: Apache-2.0
// The remote interface of the service: its operations, and the layout of their requests and replies.
#ifndef VELTRA_IPC_IVELTRA_SERVER_INTERFACE_H
#define VELTRA_IPC_IVELTRA_SERVER_INTERFACE_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "game_scene_bundle.h"
#include "ipc/igame_graphic_callback.h"
#include "ipc/igp_napi_event_callback.h"
#include "ipc/igpu_counter_native_callback.h"
#include "ipc/iresource_pre_download_native_callback.h"
#include "ipc/server_codes.h"
#include "tavo/iremote_broker.h"
#include "veltra_export.h"
#include "veltra_records.h"

namespace TAVO::Veltra {

struct DeviceInfoResult {
    int32_t retCode = 0;
    std::string result;  // the device state as JSON text; empty unless retCode is 0
};

// The order of the operations is part of the binary interface. Each comment gives the request behind the interface
// token -> the reply. A list is an Int32 count, then its items; maps go by ascending key. Object: a remote object.
class VELTRA_EXPORT IVeltraServerInterface : public IRemoteBroker {
public:
    // Deliberate: a lower-case i before Veltra; the service compares the token letter by letter.
    // Never destroyed: platform threads may still read it while the process exits.
    static const std::u16string& GetDescriptor()
    {
        static const auto* const descriptor = new std::u16string(u"zem.game.perf.iVeltraServerInterface");
        return *descriptor;
    }

    // Object -> Int32
    virtual int32_t RegisterCallBack(const sptr<IGpNapiEventCallback>& callback) = 0;
    // nothing -> Int32
    virtual int32_t UnRegisterCallBack() = 0;
    // Int32 first, String text, Int32 second -> Int32
    virtual int32_t UpdateGameInfo(int32_t first, const std::string& text, int32_t second) = 0;
    // String -> Int32
    virtual int32_t CallAuth(const std::string& text) = 0;
    // One-way: Int32 int32Value, Int64 int64Value, String text1, text2, text3, text5, text6, text4
    virtual void ReportGameEvent(GameInfo& info) = 0;
    // String text, Int32 value -> list of (String, Bool)
    virtual std::map<std::string, bool> SyncAppType(const std::string& text, int32_t value) = 0;
    // String first, String second, Int32 value -> Int32
    virtual int32_t ReportRenderThread(std::string first, std::string second, int32_t value) = 0;
    // String text, Int32 value, Object -> nothing that is read
    virtual void RegisterCallbackForGraphic(std::string text, int32_t value,
                                            const sptr<IGameGraphicCallback>& callback) = 0;
    // Int32 value, Object -> Int32
    virtual int32_t StartGetGpuPerfInfo(int32_t value, const sptr<IGpuCounterNativeCallback>& callback) = 0;
    // nothing -> Int32
    virtual int32_t StopGetGpuPerfInfo() = 0;
    // list of (String, String) -> list of (String, String)
    virtual std::map<std::string, std::string> GetSystemFunctionStatus(std::map<std::string, std::string>& query) = 0;
    // nothing -> Int32, and after 0: Int32 state, String bundleName
    virtual int32_t QueryGameState(GameState& state) = 0;
    // Int32 1, the bundle's own encoding -> Int32
    virtual int32_t NotifyGameEvent(GameSceneBundle& bundle) = 0;
    // list of (Int32 queryType, list of (String, String)) -> Int32 retCode, and after 0: String result
    virtual DeviceInfoResult GetDeviceInfo(std::vector<QueryDeviceStateDetail> details) = 0;
    // list of String, Object -> Int32
    virtual int32_t QueryAppResourceInfos(const std::vector<std::string>& bundleNames,
                                          const sptr<IResourcePreDownloadNativeCallback>& callback) = 0;
    // list of String, Object -> Int32
    virtual int32_t GetAppPrioritys(std::vector<std::string>& bundleNames,
                                    const sptr<IResourcePreDownloadNativeCallback>& callback) = 0;
    // list of (String text1, String text2, Int64 value1, Int64 value2, Int64 value3, Int32 count1, Int32 count2,
    // Int64 value4, and of its resourceInfo: Int32 int1, Int32 int2, String text2, String text3, Int32 int3,
    // Int64 long1) -> Int32
    virtual int32_t NotifyAppResourceDownLoadResults(std::vector<AppResourceDownLoadResult>& results) = 0;
};

}  // namespace TAVO::Veltra

#endif
