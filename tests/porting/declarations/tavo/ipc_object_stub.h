// SPDX-License-Identifier: Apache-2.0
#ifndef PORTING_IPC_OBJECT_STUB_H
#define PORTING_IPC_OBJECT_STUB_H

#include <cstdint>

#include "tavo/iremote_object.h"
#include "tavo/message_option.h"
#include "tavo/message_parcel.h"

namespace TAVO {

class PLATFORM_NAME("IPCObjectStub") IPCObjectStub : public IRemoteObject {
public:
    PLATFORM_NAME("IPCObjectStub::OnRemoteRequest")
    virtual int OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option);
};

}  // namespace TAVO

#endif
