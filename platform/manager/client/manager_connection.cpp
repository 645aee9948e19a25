// SPDX-License-Identifier: Apache-2.0
// One proxy for each session with the manager: the proxy's cache of answers must end with the session, because the next
// manager numbers its changes anew. The end of a session makes the register thread look for the next manager. No lock
// is held while a connection is made, so several threads may make proxies at once; one of them is kept.
#include "manager/client/manager_connection.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <string>
#include <utility>

#include "base/forked_child.h"
#include "manager/client/manager_log.h"
#include "os/runtime_dir.h"
#include "transport/transport.h"

namespace TAVO::Manager {
namespace {

constexpr std::chrono::seconds CONNECT_TIME{2};

// No session could be established; a runtime directory that cannot be trusted has a line of its own already.
void ReportAbsence()
{
    if (Transport::RuntimeDirFd() < 0) {
        return;
    }
    const std::string path = Transport::RuntimeDir::DefaultPath() + "/manager";
    const char* const reason = ::access(path.c_str(), F_OK) != 0
                                   ? std::strerror(errno)
                                   : "it does not answer, or has refused this process; its log names the reason";
    Log(SCRIVO_WARN,
        "no ability manager at %{public}s: %{public}s. Start tavo_manager; it and this process need the same "
        "TAVO_RUNTIME_DIR",
        path.c_str(), reason);
}

// The manager may be back already when its predecessor's end is noticed, without any further sign.
class SessionEnd : public IRemoteObject::DeathRecipient {
public:
    void OnRemoteDied(const wptr<IRemoteObject>&) override
    {
        ManagerConnection::GetInstance().Abilities().RegisterAgain();
    }
};

// What a program registers outlives the session: OwnAbilities keeps it, and sends it through this proxy.
class RegisteringProxy final : public SystemAbilityManagerProxy {
public:
    RegisteringProxy(const sptr<IRemoteObject>& root, OwnAbilities& abilities)
        : SystemAbilityManagerProxy(root), abilities_(abilities)
    {
    }

    int32_t AddAbility(int32_t systemAbilityId, const sptr<IRemoteObject>& object) override
    try {
        return InForkedChild() ? ABILITY_UNREACHABLE : abilities_.Add(*this, systemAbilityId, object);
    } catch (const std::exception&) {
        return ABILITY_UNREACHABLE;
    }

    int32_t RemoveAbility(int32_t systemAbilityId) override
    try {
        return InForkedChild() ? ABILITY_UNREACHABLE : abilities_.Remove(*this, systemAbilityId);
    } catch (const std::exception&) {
        return ABILITY_UNREACHABLE;
    }

private:
    OwnAbilities& abilities_;
};

}  // namespace

ManagerConnection& ManagerConnection::GetInstance()
{
    // Deliberate: never destroyed. The register thread may use it while the process exits.
    static ManagerConnection* const instance = new ManagerConnection;
    return *instance;
}

sptr<SystemAbilityManagerProxy> ManagerConnection::Get()
{
    if (sptr<SystemAbilityManagerProxy> living = Living(); living != nullptr) {
        return living;
    }
    const sptr<IRemoteObject> root = Transport::ConnectManager(Transport::Clock::now() + CONNECT_TIME);
    if (root == nullptr) {
        ReportAbsence();
        return nullptr;
    }
    return Adopt(root);
}

sptr<SystemAbilityManagerProxy> ManagerConnection::Living()
{
    MutexLock lock(mutex_);
    return proxy_ != nullptr && proxy_->IsConnected() ? proxy_ : nullptr;
}

sptr<SystemAbilityManagerProxy> ManagerConnection::Adopt(const sptr<IRemoteObject>& root)
{
    sptr<SystemAbilityManagerProxy> fresh(new RegisteringProxy(root, abilities_));
    // Before any thread can register an ability through the proxy: without a notice of the session's end it would not
    // be registered with the next manager. False when the session has ended already.
    if (!root->AddDeathRecipient(new SessionEnd)) {
        return nullptr;
    }
    sptr<SystemAbilityManagerProxy> replaced;  // released when the lock is free
    MutexLock lock(mutex_);
    if (proxy_ != nullptr && proxy_->IsConnected()) {
        return proxy_;  // another thread was faster
    }
    replaced = std::exchange(proxy_, fresh);
    return fresh;
}

}  // namespace TAVO::Manager
