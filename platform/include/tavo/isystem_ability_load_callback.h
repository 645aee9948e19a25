// SPDX-License-Identifier: Apache-2.0
// The callback by which the manager notifies a client of the outcome of a load.
#ifndef TAVO_ISYSTEM_ABILITY_LOAD_CALLBACK_H
#define TAVO_ISYSTEM_ABILITY_LOAD_CALLBACK_H

#include <cstdint>

#include "tavo/iremote_broker.h"
#include "tavo/iremote_stub.h"

namespace TAVO {

class TAVO_EXPORT ISystemAbilityLoadCallback : public IRemoteBroker {
public:
    TAVO_DECLARE_DESCRIPTOR(u"tavo.ISystemAbilityLoadCallback")

    enum Code : uint32_t {
        ON_LOAD_SUCCESS = 1,  // one-way: Int32 id, RemoteObject
        ON_LOAD_FAIL = 2,     // one-way: Int32 id
    };

    // One of the two is called once for every accepted load, on the delivery thread.
    virtual void OnLoadSystemAbilitySuccess(int32_t systemAbilityId, const sptr<IRemoteObject>& remoteObject) = 0;
    virtual void OnLoadSystemAbilityFail(int32_t systemAbilityId) = 0;
};

// Base class for clients. Both operations do nothing unless overridden.
class TAVO_EXPORT SystemAbilityLoadCallbackStub : public IRemoteStub<ISystemAbilityLoadCallback> {
public:
    ~SystemAbilityLoadCallbackStub() override;
    int OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;
    void OnLoadSystemAbilitySuccess(int32_t systemAbilityId, const sptr<IRemoteObject>& remoteObject) override;
    void OnLoadSystemAbilityFail(int32_t systemAbilityId) override;
    bool RunsOnDeliveryThread() const noexcept final { return true; }
};

}  // namespace TAVO

#endif
