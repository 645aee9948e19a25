// SPDX-License-Identifier: Apache-2.0
#ifndef PORTING_SYSTEM_ABILITY_MANAGER_CLIENT_H
#define PORTING_SYSTEM_ABILITY_MANAGER_CLIENT_H

#include <cstdint>

#include "tavo/isystem_ability_load_callback.h"

namespace TAVO {

class PLATFORM_NAME("ISystemAbilityManager") ISystemAbilityManager {
public:
    virtual ~ISystemAbilityManager();
    PLATFORM_NAME("ISystemAbilityManager::CheckAbility")
    virtual sptr<IRemoteObject> CheckAbility(int32_t systemAbilityId);
    PLATFORM_NAME("ISystemAbilityManager::LoadAbility")
    virtual int32_t LoadAbility(int32_t systemAbilityId, const sptr<SystemAbilityLoadCallbackStub>& callback);
};

class PLATFORM_NAME("SystemAbilityManagerClient") SystemAbilityManagerClient {
public:
    PLATFORM_NAME("SystemAbilityManagerClient::GetInstance") static SystemAbilityManagerClient& GetInstance();
    PLATFORM_NAME("SystemAbilityManagerClient::GetSystemAbilityManager")
    sptr<ISystemAbilityManager> GetSystemAbilityManager();
};

}  // namespace TAVO

#endif
