// SPDX-License-Identifier: Apache-2.0
// This process's current session with the manager.
#ifndef TAVO_MANAGER_MANAGER_CONNECTION_H
#define TAVO_MANAGER_MANAGER_CONNECTION_H

#include "manager/client/own_abilities.h"
#include "manager/client/system_ability_manager_proxy.h"
#include "tavo/mutex.h"

namespace TAVO::Manager {

class ManagerConnection {
public:
    // Never destroyed, and its abilities neither.
    static ManagerConnection& GetInstance();

    // The proxy of the living session, else of a new one; null when the manager cannot be reached, after 2 s at most.
    // Throws std::bad_alloc only.
    sptr<SystemAbilityManagerProxy> Get();

    OwnAbilities& Abilities() noexcept { return abilities_; }

private:
    ManagerConnection() = default;

    sptr<SystemAbilityManagerProxy> Living();
    sptr<SystemAbilityManagerProxy> Adopt(const sptr<IRemoteObject>& root);

    OwnAbilities abilities_{[this] { return Get(); }};
    Mutex mutex_;                                                    // never held while connecting
    sptr<SystemAbilityManagerProxy> proxy_ TAVO_GUARDED_BY(mutex_);  // of the latest session, perhaps dead
};

}  // namespace TAVO::Manager

#endif
