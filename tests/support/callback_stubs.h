// SPDX-License-Identifier: Apache-2.0
// Callback objects that do nothing, to be passed to the service.
#ifndef VELTRA_TESTS_SUPPORT_CALLBACK_STUBS_H
#define VELTRA_TESTS_SUPPORT_CALLBACK_STUBS_H

#include <string>
#include <vector>

#include "ipc/iveltra_server_interface.h"
#include "tavo/iremote_stub.h"

namespace TAVO::Veltra {

class SilentEventCallback : public IRemoteStub<IGpNapiEventCallback> {
public:
    int32_t OnGameCallbackEvent(const GameCallbackEventInfo&) override { return 0; }
};

class SilentGpuCallback : public IRemoteStub<IGpuCounterNativeCallback> {
public:
    int32_t OnGpuData(std::vector<GpuPerfInfo>&) override { return 0; }
};

class SilentResourceCallback : public IRemoteStub<IResourcePreDownloadNativeCallback> {
public:
    int32_t OnGetAppPrioritys(std::vector<std::string>&) override { return 0; }
    int32_t OnQueryAppResourceInfos(const AppResourceInfos&) override { return 0; }
};

class SilentGraphicCallback : public IRemoteStub<IGameGraphicCallback> {
public:
    int32_t OnGraphicSetting(const std::string&, int32_t) override { return 0; }
};

}  // namespace TAVO::Veltra

#endif
