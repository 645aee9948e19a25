// SPDX-License-Identifier: Apache-2.0
#ifndef PORTING_ISYSTEM_ABILITY_LOAD_CALLBACK_H
#define PORTING_ISYSTEM_ABILITY_LOAD_CALLBACK_H

#include <cstdint>

#include "tavo/iremote_object.h"

namespace TAVO {

class PLATFORM_NAME("SystemAbilityLoadCallbackStub") SystemAbilityLoadCallbackStub {
public:
    virtual ~SystemAbilityLoadCallbackStub();
    PLATFORM_NAME("SystemAbilityLoadCallbackStub::OnLoadSystemAbilitySuccess")
    virtual void OnLoadSystemAbilitySuccess(int32_t systemAbilityId, const sptr<IRemoteObject>& remoteObject);
    PLATFORM_NAME("SystemAbilityLoadCallbackStub::OnLoadSystemAbilityFail")
    virtual void OnLoadSystemAbilityFail(int32_t systemAbilityId);
};

}  // namespace TAVO

#endif
