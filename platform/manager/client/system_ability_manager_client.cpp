// SPDX-License-Identifier: Apache-2.0
// Hands out the manager of the current session, or the one that a test put in its place.
#include "tavo/system_ability_manager_client.h"

#include <exception>
#include <utility>

#include "base/forked_child.h"
#include "manager/client/manager_connection.h"
#include "transport/transport.h"

namespace TAVO {

SystemAbilityManagerClient& SystemAbilityManagerClient::GetInstance()
{
    // Deliberate: never destroyed, like everything that callbacks may use while the process exits.
    static SystemAbilityManagerClient* const instance = new SystemAbilityManagerClient;
    return *instance;
}

sptr<ISystemAbilityManager> SystemAbilityManagerClient::GetSystemAbilityManager()
try {
    // The first use of the platform in most processes: a fork after this point is noticed.
    WatchForks();
    if (InForkedChild()) {
        return nullptr;
    }
    Transport::ExpectCall();  // Programs ask for the manager before each call of a service.
    // Read without the lock first: without a test manager each call costs one atomic load.
    if (hasTestManager_) {
        MutexLock lock(mutex_);
        if (hasTestManager_) {
            return testManager_;
        }
    }
    return Manager::ManagerConnection::GetInstance().Get();
} catch (const std::exception&) {
    return nullptr;
}

void SystemAbilityManagerClient::SetTestManager(const sptr<ISystemAbilityManager>& manager)
{
    sptr<ISystemAbilityManager> replaced;  // released when the lock is free
    MutexLock lock(mutex_);
    hasTestManager_ = true;
    replaced = std::exchange(testManager_, manager);
}

void SystemAbilityManagerClient::ClearTestManager()
{
    sptr<ISystemAbilityManager> replaced;  // released when the lock is free
    MutexLock lock(mutex_);
    hasTestManager_ = false;
    replaced = std::exchange(testManager_, nullptr);
}

}  // namespace TAVO
