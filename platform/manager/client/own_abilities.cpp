// SPDX-License-Identifier: Apache-2.0
// Registers abilities of this process, and registers them again with each later manager. The lock of the ability comes
// first, then the manager: two processes can never both believe that they serve an ability. mutex_ is not held during a
// call to the manager, so after each call the entry is looked at again: another thread may have changed it.
// `knownTo` is the manager's object with which an ability is registered; it differs for each session, so "which are
// unknown to this manager" needs no flag that could be forgotten.
//
// The register thread: it waits until the end of a session is notified, then tries until all abilities are registered,
// woken by the appearance of a socket and by growing pauses.
#include "manager/client/own_abilities.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <string>
#include <utility>

#include "manager/client/ability_lock.h"
#include "manager/client/manager_log.h"
#include "manager/client/manager_watch.h"
#include "os/runtime_dir.h"
#include "os/threads.h"
#include "tavo/ipc_object_stub.h"
#include "transport/transport.h"

namespace TAVO::Manager {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds SHORTEST_PAUSE{200};
constexpr milliseconds LONGEST_PAUSE{5000};
constexpr milliseconds DELIVERY_START_DELAY{1000};

}  // namespace

int32_t OwnAbilities::Add(SystemAbilityManagerProxy& manager, int32_t systemAbilityId,
                          const sptr<IRemoteObject>& object)
{
    if (dynamic_cast<IPCObjectStub*>(object.Get()) == nullptr) {  // A process registers its own objects only.
        return ABILITY_BAD_REQUEST;
    }
    sptr<IRemoteObject> earlier;  // released when the locks are free
    MutexLock adding(addMutex_);
    bool isNew = false;
    {
        MutexLock lock(mutex_);
        Ability& ability = abilities_[systemAbilityId];
        isNew = !ability.lock.IsHeld();
        // A second object for the same ability keeps the lock that the process has.
        const int32_t status = isNew ? TakeLock(systemAbilityId, ability.lock) : ABILITY_OK;
        if (status != ABILITY_OK) {
            abilities_.erase(systemAbilityId);
            return status;
        }
        earlier = std::exchange(ability.object, object);
    }
    // The answer may take 2 s.
    int32_t status = manager.SendAdd(systemAbilityId, object);
    // A service that cannot find the next manager would be lost with this one, so it is better refused now.
    if (status == ABILITY_OK && !StartRegistrar()) {
        Log(SCRIVO_ERROR,
            "cannot register ability %{public}d: the system has no thread left that would register it with the next "
            "manager. Raise the limit of processes (ulimit -u)",
            systemAbilityId);
        manager.SendRemove(systemAbilityId);
        status = ABILITY_UNREACHABLE;
    }
    {
        MutexLock lock(mutex_);
        const auto found = abilities_.find(systemAbilityId);
        if (found == abilities_.end()) {
            return status;  // Another thread has removed it.
        }
        if (status == ABILITY_OK) {
            found->second.knownTo = manager.AsObject();
        } else if (isNew) {
            // With the entry its lock is released, so another process may serve the ability.
            abilities_.erase(found);
        } else {
            found->second.object = earlier;
        }
    }
    return status;
}

int32_t OwnAbilities::Remove(SystemAbilityManagerProxy& manager, int32_t systemAbilityId)
{
    {
        MutexLock lock(mutex_);
        if (abilities_.count(systemAbilityId) == 0) {
            return ABILITY_NOT_RUNNING;
        }
    }
    const int32_t status = manager.SendRemove(systemAbilityId);
    if (status == ABILITY_UNREACHABLE) {
        return status;  // Still registered, so the lock stays too.
    }
    decltype(abilities_)::node_type removed;  // released when the lock is free
    MutexLock lock(mutex_);
    removed = abilities_.extract(systemAbilityId);
    return status;
}

int32_t OwnAbilities::TakeLock(int32_t systemAbilityId, Transport::ProcessLock& lock)
{
    const int runtimeDir = Transport::RuntimeDirFd();
    if (runtimeDir < 0) {
        return ABILITY_UNREACHABLE;
    }
    const std::string name = AbilityLockName(systemAbilityId);
    if (lock.Take(runtimeDir, name)) {
        return ABILITY_OK;
    }
    // The lock is held by another living process.
    if (errno == EAGAIN) {
        return ABILITY_TAKEN;
    }
    Log(SCRIVO_ERROR,
        "cannot register ability %{public}d: %{public}s/%{public}s cannot be locked: %{public}s. Make it a regular "
        "file that this user may write, or remove it",
        systemAbilityId, Transport::RuntimeDir::DefaultPath().c_str(), name.c_str(), std::strerror(errno));
    return ABILITY_REFUSED;
}

void OwnAbilities::RegisterAgain()
{
    MutexLock lock(mutex_);
    if (!abilities_.empty()) {
        isRequested_ = true;
        requested_.notify_one();
    }
}

bool OwnAbilities::StartRegistrar()
{
    MutexLock lock(mutex_);
    isRegistrarRunning_ = isRegistrarRunning_ || Transport::StartThread(Transport::ThreadRole::OTHER, "tavo-register",
                                                                        [this] { RunRegistrar(); });
    return isRegistrarRunning_;
}

// The end of a session with the manager is notified on the delivery thread, which may not exist yet. Until it can be
// started, this thread looks for a new manager every second.
void OwnAbilities::RunRegistrar()
{
    for (bool isNotified = false;;) {
        bool isRequested = false;
        {
            MutexLock lock(mutex_);
            const auto isSet = [this]() TAVO_REQUIRES(mutex_) { return isRequested_; };
            if (isNotified) {
                lock.Wait(requested_, isSet);
            } else {
                // Deliberate: the delivery thread starts later, or it would delay the first call of a client.
                lock.WaitUntil(requested_, std::chrono::steady_clock::now() + DELIVERY_START_DELAY, isSet);
            }
            isRequested = isRequested_;
        }
        // Tried again in each round: notices of ends wait in the queue until the thread exists.
        isNotified = isNotified || Transport::StartDeliveryThread();
        if (isRequested || !RegisterUnknown()) {
            RegisterUntilDone();
        }
    }
}

void OwnAbilities::RegisterUntilDone()
{
    ManagerWatch watch(Transport::RuntimeDirFd());  // before the first attempt, so that no manager is missed in between
    milliseconds pause = SHORTEST_PAUSE;
    MutexLock lock(mutex_);
    for (;;) {
        isRequested_ = false;
        lock.Unlock();
        // Without the lock: it connects and calls.
        const bool isDone = RegisterUnknown();
        lock.Lock();
        if (isDone && !isRequested_) {
            return;
        }
        // The session ended again during the attempt. Try at once, without a pause.
        if (isRequested_) {
            pause = SHORTEST_PAUSE;
            continue;
        }
        lock.Unlock();
        const bool hasAppeared = watch.Wait(pause);
        lock.Lock();
        // A new socket is a reason to try at once; else a manager that hangs is asked less and less often.
        pause = hasAppeared ? SHORTEST_PAUSE : std::min(2 * pause, LONGEST_PAUSE);
    }
}

bool OwnAbilities::RegisterUnknown()
try {
    const sptr<SystemAbilityManagerProxy> manager = connect_();
    if (manager == nullptr) {
        return false;
    }
    bool isDone = true;
    for (const Unknown& ability : UnknownTo(manager->AsObject())) {
        // In this order: each is tried, also after one has failed.
        isDone = Register(*manager, ability) && isDone;
    }
    return isDone;
} catch (const std::exception&) {
    return false;
}

std::vector<OwnAbilities::Unknown> OwnAbilities::UnknownTo(const sptr<IRemoteObject>& root)
{
    std::vector<Unknown> unknown;
    MutexLock lock(mutex_);
    for (const auto& [id, ability] : abilities_) {
        if (ability.knownTo != root) {
            unknown.push_back({id, ability.object});
        }
    }
    return unknown;
}

bool OwnAbilities::Register(SystemAbilityManagerProxy& manager, const Unknown& ability)
{
    const int32_t status = manager.SendAdd(ability.id, ability.object);
    // Only these two are final. All others mean "later".
    if (status != ABILITY_OK && status != ABILITY_REFUSED) {
        return false;
    }
    if (status == ABILITY_OK) {
        Log(SCRIVO_INFO, "ability %{public}d registered again with a new manager", ability.id);
    } else {
        Log(SCRIVO_ERROR,
            "the new manager does not accept this process as ability %{public}d, which it no longer serves. Set "
            "\"external\": true in the ability file, or let the manager start the service",
            ability.id);
    }
    decltype(abilities_)::node_type refused;  // released when the lock is free
    {
        MutexLock lock(mutex_);
        const auto found = abilities_.find(ability.id);
        if (found != abilities_.end() && found->second.object != ability.object) {
            return false;  // Replaced in the meantime: the newer object must be registered.
        }
        if (found != abilities_.end() && status == ABILITY_REFUSED) {
            refused = abilities_.extract(found);  // With its lock, so that the manager may start another process.
            return true;
        }
        if (found != abilities_.end()) {
            found->second.knownTo = manager.AsObject();
            return true;
        }
    }
    return manager.SendRemove(ability.id) != ABILITY_UNREACHABLE;  // Removed in the meantime.
}

}  // namespace TAVO::Manager
