// SPDX-License-Identifier: Apache-2.0
// Each query asks the manager anew whether the service runs, which mostly costs no round trip: the answer for a living
// service is remembered by the process until that one dies. No service is an answer here, and not a failure: the state
// is then "no game". Queries of several threads share the field without a lock and call through a reference of their
// own, so that none loses the service under its call.
#include "client/veltra_custom_proxy.h"

#include "tavo/system_ability_manager_client.h"
#include "utils/veltra_log.h"
#include "veltra_result.h"

template class TAVO::DelayedRefSingleton<TAVO::Veltra::VeltraCustomProxy>;

namespace TAVO::Veltra {
namespace {

constexpr int32_t STATE_NO_GAME = 2;

// The operation below with `field` as its field, but throws when memory runs out. It has the operation's name because
// its log lines carry it.
sptr<IVeltraServerInterface> GetServiceProxy(sptr<IVeltraServerInterface>& field)
{
    const sptr<ISystemAbilityManager> manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    if (manager == nullptr) {
        VELTRA_LOGE("Get SystemAbilityManager failed.");
        return nullptr;
    }
    const sptr<IRemoteObject> running = manager->CheckAbility(VELTRA_SERVER_SA_ID);
    if (running == nullptr) {
        VELTRA_LOGW("Check systemAbility not exist and try to release veltra_server proxy.");
        field = nullptr;
        return nullptr;
    }
    sptr<IVeltraServerInterface> service = iface_cast<IVeltraServerInterface>(running);
    field = service;
    return service;
}

}  // namespace

VeltraCustomProxy::VeltraCustomProxy() = default;

VeltraCustomProxy::~VeltraCustomProxy() = default;

sptr<IVeltraServerInterface> VeltraCustomProxy::GetServiceProxy()
try {
    return Veltra::GetServiceProxy(serviceProxy_);
} catch (...) {
    return nullptr;
}

int32_t VeltraCustomProxy::QueryGameState(GameState& state)
try {
    const sptr<IVeltraServerInterface> service = Veltra::GetServiceProxy(serviceProxy_);
    // The field is null when a concurrent query found no service after this one; the reference is null when there is no
    // manager and the field keeps an earlier proxy.
    if (serviceProxy_ == nullptr || service == nullptr) {
        // Deliberate: a success. No game can be running without the service, and asking must not start it.
        state.state = STATE_NO_GAME;
        VELTRA_LOGI("No games exists.");
        return RESULT_OK;
    }
    return service->QueryGameState(state);
} catch (...) {
    return RESULT_NO_SERVICE;
}

}  // namespace TAVO::Veltra
