// SPDX-License-Identifier: Apache-2.0
// Keeps one proxy per session, and registers this process's abilities again when a session has ended.
#include "manager/client/manager_connection.h"

#include <chrono>
#include <utility>

#include "manager/client/own_abilities.h"
#include "transport/transport.h"

namespace TAVO::Manager {
namespace {

constexpr std::chrono::seconds CONNECT_TIME{2};

// The manager may be back already when its predecessor's end is noticed, with no further sign to come.
class SessionEnd : public IRemoteObject::DeathRecipient {
public:
    void OnRemoteDied(const wptr<IRemoteObject>&) override { OwnAbilities::GetInstance().RegisterAgain(); }
};

}  // namespace

ManagerConnection& ManagerConnection::GetInstance()
{
    static ManagerConnection* const instance = new ManagerConnection;
    return *instance;
}

sptr<SystemAbilityManagerProxy> ManagerConnection::Get()
{
    if (sptr<SystemAbilityManagerProxy> living = Living(); living != nullptr) {
        return living;
    }
    const sptr<IRemoteObject> root = Transport::ConnectManager(Transport::Clock::now() + CONNECT_TIME);
    return root == nullptr ? nullptr : Adopt(root);
}

sptr<SystemAbilityManagerProxy> ManagerConnection::Living()
{
    MutexLock lock(mutex_);
    return proxy_ != nullptr && proxy_->IsConnected() ? proxy_ : nullptr;
}

sptr<SystemAbilityManagerProxy> ManagerConnection::Adopt(const sptr<IRemoteObject>& root)
{
    const sptr<SystemAbilityManagerProxy> fresh(new SystemAbilityManagerProxy(root));
    sptr<SystemAbilityManagerProxy> replaced;  // released when the lock is free
    {
        MutexLock lock(mutex_);
        if (proxy_ != nullptr && proxy_->IsConnected()) {
            return proxy_;  // another thread was faster
        }
        replaced = std::exchange(proxy_, fresh);
    }
    return root->AddDeathRecipient(new SessionEnd) ? fresh : nullptr;
}

}  // namespace TAVO::Manager
