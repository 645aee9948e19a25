// SPDX-License-Identifier: Apache-2.0
// The abilities that this process serves: their locks, and their registrations, which outlive a manager.
#ifndef TAVO_MANAGER_OWN_ABILITIES_H
#define TAVO_MANAGER_OWN_ABILITIES_H

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "manager/client/system_ability_manager_proxy.h"
#include "os/process_lock.h"
#include "tavo/iremote_object.h"
#include "tavo/mutex.h"

namespace TAVO::Manager {

// Any thread. A thread of its own registers again, so that a manager that hangs delays neither death notices nor load
// callbacks. It is started with the first registration and never ends: when the manager dies, no thread may be left to
// start, and a service that is not registered, but holds its lock, would make every load wait.
class OwnAbilities {
public:
    // A proxy of the living manager; null when it cannot be reached.
    using Connect = std::function<sptr<SystemAbilityManagerProxy>()>;

    // Never destroyed: the locks live as long as the process.
    explicit OwnAbilities(Connect connect) : connect_(std::move(connect)) {}

    // As ISystemAbilityManager::AddAbility and RemoveAbility, by way of `manager`. The same id again replaces the
    // object; when that fails the earlier one stays.
    int32_t Add(SystemAbilityManagerProxy& manager, int32_t systemAbilityId, const sptr<IRemoteObject>& object);
    int32_t Remove(SystemAbilityManagerProxy& manager, int32_t systemAbilityId);

    // The session with a manager has ended: every ability that the present manager does not know is registered again,
    // now and, while that fails, after growing pauses; what it refuses is given up. Returns at once.
    void RegisterAgain();

private:
    struct Ability {
        Transport::ProcessLock lock;
        sptr<IRemoteObject> object;
        sptr<IRemoteObject> knownTo;  // root object of the last manager that accepted it
    };
    struct Unknown {
        int32_t id;
        sptr<IRemoteObject> object;
    };

    int32_t TakeLock(int32_t systemAbilityId, Transport::ProcessLock& lock) TAVO_REQUIRES(mutex_);
    // One attempt; true when the present manager knows every ability of this process.
    bool RegisterUnknown();
    std::vector<Unknown> UnknownTo(const sptr<IRemoteObject>& root);
    bool Register(SystemAbilityManagerProxy& manager, const Unknown& ability);
    // False when the system has no thread left.
    bool StartRegistrar();
    [[noreturn]] void RunRegistrar();
    void RegisterUntilDone();

    const Connect connect_;
    // Held during Add, also while the manager is called: when one fails, what to restore is certain.
    Mutex addMutex_;
    Mutex mutex_;  // never held during a call to the manager
    std::map<int32_t, Ability> abilities_ TAVO_GUARDED_BY(mutex_);
    bool isRegistrarRunning_ TAVO_GUARDED_BY(mutex_) = false;
    bool isRequested_ TAVO_GUARDED_BY(mutex_) = false;  // a session has ended since the last attempt began
    std::condition_variable requested_;                 // notified when isRequested_ becomes true
};

}  // namespace TAVO::Manager

#endif
