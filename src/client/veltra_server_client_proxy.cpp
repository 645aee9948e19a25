// SPDX-License-Identifier: Apache-2.0
// The connection: how the service is found, loaded on demand, and dropped when it dies. Each operation asks the manager
// anew, which costs no round trip while the platform remembers a living service. So a service that has died and been
// replaced is noticed by the next call, with or without a death notice. proxyMutex_ is held during calls to the
// manager; the wait for a load releases it, so that the load callback, which needs it, can run, and further callers can
// join.
#include "client/veltra_server_client_proxy.h"

#include <chrono>
#include <mutex>

#include "callback/game_event_callback.h"
#include "callback/gpu_counter_call_back.h"
#include "callback/resource_pre_download_callback.h"
#include "client/veltra_sa_load_callback.h"
#include "tavo/ipc_threads.h"
#include "tavo/system_ability_manager_client.h"
#include "utils/veltra_log.h"

template class TAVO::DelayedRefSingleton<TAVO::Veltra::VeltraClientProxy>;

namespace TAVO::Veltra {
namespace {

constexpr std::chrono::seconds LOAD_WAIT{10};

}  // namespace

VeltraClientProxy::VeltraClientProxy() : deathRecipient_(new VeltraSaDeathRecipient()) {}

// Sends nothing to the service. Members are destroyed in the reverse of their order: the callback objects before the
// rest.
VeltraClientProxy::~VeltraClientProxy()
{
    MutexLock lock(proxyMutex_);
    ReleaseServiceProxy();
}

sptr<IVeltraServerInterface> VeltraClientProxy::GetServiceProxy()
try {
    if (IpcThreads::IsForkedChild()) {  // Before the lock: a thread of the parent may hold it for ever.
        VELTRA_LOGE("Get SystemAbilityManager failed.");
        return nullptr;
    }
    MutexLock lock(proxyMutex_);
    const sptr<ISystemAbilityManager> manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    if (manager == nullptr) {
        VELTRA_LOGE("Get SystemAbilityManager failed.");
        return nullptr;
    }
    const sptr<IRemoteObject> running = manager->CheckAbility(VELTRA_SERVER_SA_ID);
    if (running != nullptr) {
        // Deliberate: no death recipient on this path. The next check finds out anyway, and every call makes one.
        serviceProxy_ = iface_cast<IVeltraServerInterface>(running);
        // For callers that wait for a start of their own: another one has brought the service.
        proxyCondition_.notify_all();
        return serviceProxy_;
    }
    VELTRA_LOGW("Check systemAbility not exist and try to release veltra_server proxy.");
    ReleaseServiceProxy();
    VELTRA_LOGI("Try load systemAbility.");
    // The manager holds it until the load has ended; this function may have given up long before.
    const sptr<VeltraSaLoadCallback> callback(new VeltraSaLoadCallback());
    if (manager->LoadAbility(VELTRA_SERVER_SA_ID, callback) != 0) {
        VELTRA_LOGW("Failed to load systemAbility.");
    } else if (WaitForServiceProxy()) {
        VELTRA_LOGI("Load systemAbility succeeded.");
    } else {
        VELTRA_LOGW("Load systemAbility timeout.");
    }
    return serviceProxy_;
} catch (...) {  // out of memory
    return nullptr;
}

// Deliberate: only a proxy ends the wait. A failed load may be followed by a success of the same start, and callers
// would otherwise ask again at once, in a loop.
bool VeltraClientProxy::WaitForServiceProxy()
{
    const auto deadline = std::chrono::steady_clock::now() + LOAD_WAIT;
    std::unique_lock<std::mutex> lock(proxyMutex_, std::adopt_lock);  // the caller's; only for the condition
    const bool isLoaded = proxyCondition_.wait_until(
        lock, deadline, [this]() TAVO_REQUIRES(proxyMutex_) { return serviceProxy_ != nullptr; });
    lock.release();
    return isLoaded;
}

void VeltraClientProxy::ReleaseServiceProxy()
{
    if (serviceProxy_ == nullptr) {
        return;
    }
    // Under proxyMutex_: RemoveDeathRecipient does not wait for a notice that is being delivered, which may wait for
    // this lock.
    const sptr<IRemoteObject> object = serviceProxy_->AsObject();
    if (object != nullptr) {
        object->RemoveDeathRecipient(deathRecipient_);
    }
    serviceProxy_ = nullptr;
}

void VeltraClientProxy::LoadSystemAbilitySuccess(const sptr<IRemoteObject>& remoteObject)
{
    MutexLock lock(proxyMutex_);
    if (remoteObject == nullptr) {
        // Deliberate: the comma is the full-width one, and the waiter is not woken.
        VELTRA_LOGI("Load systemAbility success， but remoteObject is null.");
        return;
    }
    try {
        if (serviceProxy_ != nullptr) {
            // Each caller that waited for the start gets a report; one notice of the death is enough.
            remoteObject->RemoveDeathRecipient(deathRecipient_);
        }
        remoteObject->AddDeathRecipient(deathRecipient_);
    } catch (...) {  // Out of memory. The service is used without a death notice: the next check finds its end.
    }
    try {
        serviceProxy_ = iface_cast<IVeltraServerInterface>(remoteObject);
    } catch (...) {
        serviceProxy_ = nullptr;
    }
    // Under the lock: the waiter may destroy this object as soon as it holds the lock.
    proxyCondition_.notify_all();
}

void VeltraClientProxy::LoadSystemAbilityFail()
{
    MutexLock lock(proxyMutex_);
    serviceProxy_ = nullptr;
    proxyCondition_.notify_all();
}

// Deliberate: subscriptions are not touched. The next operation connects again.
void VeltraClientProxy::OnRemoteSaDead(const wptr<IRemoteObject>& /*object*/)
{
    // Runs on the delivery thread, at any time after the death. The field may hold the next service by now and is
    // dropped all the same: the next call checks again.
    VELTRA_LOGI("OnRemoteSaDead");
    MutexLock lock(proxyMutex_);
    ReleaseServiceProxy();
}

sptr<IVeltraServerInterface> VeltraClientProxy::FindService()
{
    // The call goes through this reference, never through the field: another thread may drop the field during the call.
    sptr<IVeltraServerInterface> service = GetServiceProxy();
    if (!HasServiceProxy()) {
        service = nullptr;
    }
    return service;
}

}  // namespace TAVO::Veltra
