// SPDX-License-Identifier: Apache-2.0
#include "support/fake_ability_manager.h"

#include <utility>

#include "tavo/system_ability_manager_client.h"

namespace TAVO::Veltra {

sptr<FakeAbilityManager> FakeAbilityManager::Install()
{
    sptr<FakeAbilityManager> manager = MakeRef<FakeAbilityManager>();
    SystemAbilityManagerClient::GetInstance().SetTestManager(manager);
    return manager;
}

void FakeAbilityManager::Remove()
{
    SystemAbilityManagerClient::GetInstance().SetTestManager(nullptr);
}

FakeAbilityManager::~FakeAbilityManager()
{
    WaitForReports();
}

void FakeAbilityManager::WaitForReports()
{
    std::vector<std::thread> deliveries;
    {
        MutexLock lock(mutex_);
        deliveries.swap(deliveries_);
    }
    for (std::thread& delivery : deliveries) {
        delivery.join();
    }
}

void FakeAbilityManager::SetRunning(const sptr<IRemoteObject>& object)
{
    MutexLock lock(mutex_);
    running_ = object;
}

void FakeAbilityManager::ScriptLoad(int32_t status, LoadReport report)
{
    MutexLock lock(mutex_);
    loadStatus_ = status;
    report_ = std::move(report);
}

sptr<IRemoteObject> FakeAbilityManager::CheckAbility(int32_t systemAbilityId)
{
    MutexLock lock(mutex_);
    checks_.push_back(systemAbilityId);
    return running_;
}

int32_t FakeAbilityManager::LoadAbility(int32_t systemAbilityId, const sptr<ISystemAbilityLoadCallback>& callback)
{
    MutexLock lock(mutex_);
    loads_.push_back(systemAbilityId);
    if (loadStatus_ == ABILITY_OK && report_) {
        deliveries_.emplace_back([report = report_, callback] { report(*callback); });
    }
    return loadStatus_;
}

std::vector<int32_t> FakeAbilityManager::Checks() const
{
    MutexLock lock(mutex_);
    return checks_;
}

std::vector<int32_t> FakeAbilityManager::Loads() const
{
    MutexLock lock(mutex_);
    return loads_;
}

}  // namespace TAVO::Veltra
