// SPDX-License-Identifier: Apache-2.0
// Forwards each operation to the one connection of the process, made by the first call and kept to the end; this layer
// holds no state, so that games may create and destroy clients at will. The classes behind it can change without a new
// binary interface for games. Arguments that are owned are moved on; everything else passes by reference. The
// game-state query alone goes another way.
#include "veltra_server_client.h"

#include <utility>

#include "client/veltra_custom_proxy.h"
#include "client/veltra_server_client_proxy.h"
#include "tavo/delayed_ref_singleton.h"

namespace TAVO::Veltra {
namespace {

VeltraClientProxy& Client()
{
    return DelayedRefSingleton<VeltraClientProxy>::GetInstance();
}

}  // namespace

VeltraClient::VeltraClient() = default;

VeltraClient::~VeltraClient() = default;

int32_t VeltraClient::RegisterGameCallback(std::unique_ptr<GameEventCallbackBase> callback, int32_t key)
{
    return Client().RegisterGameCallback(std::move(callback), key);
}

int32_t VeltraClient::UnRegisterGameCallback(int32_t key)
{
    return Client().UnRegisterGameCallback(key);
}

int32_t VeltraClient::StartGetGpuPerfInfo(int32_t value, std::unique_ptr<GpuCounterCallBackBase> callback)
{
    return Client().StartGetGpuPerfInfo(value, std::move(callback));
}

int32_t VeltraClient::StopGetGpuPerfInfo()
{
    return Client().StopGetGpuPerfInfo();
}

int32_t VeltraClient::QueryAppResourceInfos(const std::vector<std::string>& bundleNames,
                                            std::unique_ptr<QueryAppResourceInfoCallbackBase> callback)
{
    return Client().QueryAppResourceInfos(bundleNames, std::move(callback));
}

int32_t VeltraClient::GetAppPrioritys(std::vector<std::string>& bundleNames,
                                      std::unique_ptr<GetAppPrioritysCallbackBase> callback)
{
    return Client().GetAppPrioritys(bundleNames, std::move(callback));
}

int32_t VeltraClient::CallAuth(const std::string& text)
{
    return Client().CallAuth(text);
}

int32_t VeltraClient::UpdateGameInfo(int32_t first, const std::string& text, int32_t second)
{
    return Client().UpdateGameInfo(first, text, second);
}

void VeltraClient::ReportGameEvent(GameInfo& info)
{
    Client().ReportGameEvent(info);
}

std::map<std::string, bool> VeltraClient::SyncAppType(const std::string& text, int32_t value)
{
    return Client().SyncAppType(text, value);
}

int32_t VeltraClient::ReportRenderThread(std::string first, std::string second, int32_t value)
{
    return Client().ReportRenderThread(std::move(first), std::move(second), value);
}

GameCallbackEventInfo VeltraClient::GetDeviceInfo(std::vector<QueryDeviceStateDetail> details)
{
    return Client().GetDeviceInfo(std::move(details));
}

int32_t VeltraClient::NotifyGameEvent(GameSceneBundle& bundle)
{
    return Client().NotifyGameEvent(bundle);
}

int32_t VeltraClient::NotifyAppResourceDownLoadResults(std::vector<AppResourceDownLoadResult>& results)
{
    return Client().NotifyAppResourceDownLoadResults(results);
}

int32_t VeltraClient::QueryGameState(GameState& state)
{
    // Deliberate: a proxy of its own, which never starts the service; the client proxy need not even exist.
    return DelayedRefSingleton<VeltraCustomProxy>::GetInstance().QueryGameState(state);
}

std::map<std::string, std::string> VeltraClient::GetSystemFunctionStatus(std::map<std::string, std::string>& query)
{
    return Client().GetSystemFunctionStatus(query);
}

}  // namespace TAVO::Veltra
