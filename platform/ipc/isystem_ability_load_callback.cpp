// SPDX-License-Identifier: Apache-2.0
#include "tavo/isystem_ability_load_callback.h"

namespace TAVO {

SystemAbilityLoadCallbackStub::~SystemAbilityLoadCallbackStub() = default;

int SystemAbilityLoadCallbackStub::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply,
                                                   MessageOption& option)
{
    if (code != ON_LOAD_SUCCESS && code != ON_LOAD_FAIL) {
        return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
    }
    int32_t systemAbilityId = 0;
    if (!data.MatchInterfaceToken(GetDescriptor()) || !data.ReadInt32(systemAbilityId)) {
        return IPC_BAD_MESSAGE;
    }
    if (code == ON_LOAD_FAIL) {
        OnLoadSystemAbilityFail(systemAbilityId);
    } else {
        // Deliberate: a success whose object cannot be read is passed on as null. It is the receiver who decides what
        // that means; dropped here, it would look as if the manager had never answered.
        OnLoadSystemAbilitySuccess(systemAbilityId, data.ReadRemoteObject());
    }
    return IPC_OK;
}

void SystemAbilityLoadCallbackStub::OnLoadSystemAbilitySuccess(int32_t, const sptr<IRemoteObject>&) {}

void SystemAbilityLoadCallbackStub::OnLoadSystemAbilityFail(int32_t) {}

}  // namespace TAVO
