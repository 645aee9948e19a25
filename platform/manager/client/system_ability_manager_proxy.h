// SPDX-License-Identifier: Apache-2.0
// The manager as a client sees it: one object per session with a manager process.
#ifndef TAVO_MANAGER_SYSTEM_ABILITY_MANAGER_PROXY_H
#define TAVO_MANAGER_SYSTEM_ABILITY_MANAGER_PROXY_H

#include <cstdint>
#include <vector>

#include "manager/client/ability_cache.h"
#include "tavo/iremote_proxy.h"
#include "tavo/isystem_ability_manager.h"

namespace TAVO::Manager {

// Any thread; holds no lock while it calls. Nothing throws: if out of memory a call counts as unanswered. AddAbility
// and RemoveAbility are left to a class that knows OwnAbilities.
class SystemAbilityManagerProxy : public IRemoteProxy<ISystemAbilityManager> {
public:
    // `root` is the root object of the session; when it has died, this object answers "not running" and
    // ABILITY_UNREACHABLE from then on.
    explicit SystemAbilityManagerProxy(const sptr<IRemoteObject>& root);

    sptr<IRemoteObject> CheckAbility(int32_t systemAbilityId) override;
    int32_t LoadAbility(int32_t systemAbilityId, const sptr<ISystemAbilityLoadCallback>& callback) override;
    std::vector<AbilityDescription> DescribeAbilities() override;

    // The bare messages of AddAbility and RemoveAbility, for OwnAbilities, which keeps this process's registrations.
    int32_t SendAdd(int32_t systemAbilityId, const sptr<IRemoteObject>& object);
    int32_t SendRemove(int32_t systemAbilityId);
    bool IsConnected() const { return root_->IsAlive(); }

private:
    static constexpr int WAIT_TIME_SECONDS = 2;
    static constexpr int32_t MAX_DESCRIPTIONS = 65536;

    // A whole request about one id, with the object that belongs to it if it has one; false when it was not answered.
    bool Ask(Code code, int32_t systemAbilityId, const sptr<IRemoteObject>& object, MessageParcel& reply);
    int32_t AskForStatus(Code code, int32_t systemAbilityId, const sptr<IRemoteObject>& object);
    bool Send(Code code, MessageParcel& data, MessageParcel& reply);

    const sptr<IRemoteObject> root_;
    const sptr<AbilityCache> cache_;
    const sptr<IRemoteObject> observer_;
};

}  // namespace TAVO::Manager

#endif
