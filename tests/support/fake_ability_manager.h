// SPDX-License-Identifier: Apache-2.0
// A system-ability manager that does what the test wrote down.
#ifndef VELTRA_TESTS_SUPPORT_FAKE_ABILITY_MANAGER_H
#define VELTRA_TESTS_SUPPORT_FAKE_ABILITY_MANAGER_H

#include <functional>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "tavo/isystem_ability_manager.h"
#include "tavo/mutex.h"
#include "tavo/system_ability_manager_client.h"

namespace TAVO::Veltra {

class FakeAbilityManager : public ISystemAbilityManager {
public:
    // Runs on a thread of the fake, as a delivery does, once LoadAbility has returned to its caller or is about to.
    using LoadReport = std::function<void(ISystemAbilityLoadCallback& callback)>;

    // Puts a new one in the place of the process's manager; Remove puts back one that cannot be reached.
    static sptr<FakeAbilityManager> Install()
    {
        sptr<FakeAbilityManager> manager = MakeRef<FakeAbilityManager>();
        SystemAbilityManagerClient::GetInstance().SetTestManager(manager);
        return manager;
    }
    static void Remove() { SystemAbilityManagerClient::GetInstance().SetTestManager(nullptr); }

    ~FakeAbilityManager() override { WaitForReports(); }
    void WaitForReports()
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

    void SetRunning(const sptr<IRemoteObject>& object)
    {
        MutexLock lock(mutex_);
        running_ = object;
    }
    // What loads do from now on: return `status`, and after 0 call the callback with `report`, if there is one.
    void ScriptLoad(int32_t status, LoadReport report = nullptr)
    {
        MutexLock lock(mutex_);
        loadStatus_ = status;
        report_ = std::move(report);
    }

    sptr<IRemoteObject> AsObject() override { return nullptr; }
    sptr<IRemoteObject> CheckAbility(int32_t systemAbilityId) override
    {
        MutexLock lock(mutex_);
        checks_.push_back(systemAbilityId);
        return running_;
    }
    int32_t LoadAbility(int32_t systemAbilityId, const sptr<ISystemAbilityLoadCallback>& callback) override
    {
        MutexLock lock(mutex_);
        loads_.push_back(systemAbilityId);
        if (loadStatus_ == ABILITY_OK && report_) {
            deliveries_.emplace_back([report = report_, callback] { report(*callback); });
        }
        return loadStatus_;
    }
    int32_t AddAbility(int32_t, const sptr<IRemoteObject>&) override { return ABILITY_REFUSED; }
    int32_t RemoveAbility(int32_t) override { return ABILITY_NOT_RUNNING; }
    std::vector<AbilityDescription> DescribeAbilities() override { return {}; }

    // The ids of all checks and loads.
    std::vector<int32_t> Checks() const
    {
        MutexLock lock(mutex_);
        return checks_;
    }
    std::vector<int32_t> Loads() const
    {
        MutexLock lock(mutex_);
        return loads_;
    }

private:
    mutable Mutex mutex_;
    sptr<IRemoteObject> running_ TAVO_GUARDED_BY(mutex_);
    int32_t loadStatus_ TAVO_GUARDED_BY(mutex_) = ABILITY_UNKNOWN;
    LoadReport report_ TAVO_GUARDED_BY(mutex_);
    std::vector<int32_t> checks_ TAVO_GUARDED_BY(mutex_);
    std::vector<int32_t> loads_ TAVO_GUARDED_BY(mutex_);
    std::vector<std::thread> deliveries_ TAVO_GUARDED_BY(mutex_);
};

// A platform without memory.
class ThrowingManager : public FakeAbilityManager {
public:
    sptr<IRemoteObject> CheckAbility(int32_t) override { throw std::bad_alloc(); }
};

}  // namespace TAVO::Veltra

#endif
