// SPDX-License-Identifier: Apache-2.0
#ifndef PORTING_IREMOTE_OBJECT_H
#define PORTING_IREMOTE_OBJECT_H

#include <cstdint>

#include "tavo/parcel.h"

namespace TAVO {

class MessageOption;
class MessageParcel;

class PLATFORM_NAME("IRemoteObject") IRemoteObject {
public:
    class PLATFORM_NAME("IRemoteObject::DeathRecipient") DeathRecipient {
    public:
        virtual ~DeathRecipient();
        PLATFORM_NAME("IRemoteObject::DeathRecipient::OnRemoteDied")
        virtual void OnRemoteDied(const wptr<IRemoteObject>& object);
    };

    virtual ~IRemoteObject();
    PLATFORM_NAME("IRemoteObject::SendRequest")
    virtual int SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option);
    PLATFORM_NAME("IRemoteObject::AddDeathRecipient")
    virtual bool AddDeathRecipient(const sptr<DeathRecipient>& recipient);
    PLATFORM_NAME("IRemoteObject::RemoveDeathRecipient")
    virtual bool RemoveDeathRecipient(const sptr<DeathRecipient>& recipient);
};

}  // namespace TAVO

#endif
