// SPDX-License-Identifier: Apache-2.0
// The way to the system-ability manager of this user's runtime directory.
#ifndef TAVO_SYSTEM_ABILITY_MANAGER_CLIENT_H
#define TAVO_SYSTEM_ABILITY_MANAGER_CLIENT_H

#include <atomic>

#include "tavo/export.h"
#include "tavo/isystem_ability_manager.h"
#include "tavo/mutex.h"

namespace TAVO {

class TAVO_EXPORT SystemAbilityManagerClient {
public:
    static SystemAbilityManagerClient& GetInstance();

    // The manager, or null while it cannot be reached (connections to services stay usable then). The first call blocks
    // up to 2 s; afterwards this costs no round trip. The runtime directory is $TAVO_RUNTIME_DIR, else
    // $XDG_RUNTIME_DIR/tavo, else /run/user/UID/tavo, read once at first use; it must belong to this user, mode 0700.
    sptr<ISystemAbilityManager> GetSystemAbilityManager();

    // For tests: answers with `manager` from now on; ClearTestManager goes back to the real one.
    void SetTestManager(const sptr<ISystemAbilityManager>& manager);
    void ClearTestManager();

private:
    SystemAbilityManagerClient() = default;

    std::atomic<bool> hasTestManager_{false};  // written under the mutex; read without it by every call
    Mutex mutex_;
    sptr<ISystemAbilityManager> testManager_ TAVO_GUARDED_BY(mutex_);  // null: a manager that cannot be reached
};

}  // namespace TAVO

#endif
