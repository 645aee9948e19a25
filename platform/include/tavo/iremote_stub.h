// SPDX-License-Identifier: Apache-2.0
// Base of a stub class: a local object that serves interface T.
#ifndef TAVO_IREMOTE_STUB_H
#define TAVO_IREMOTE_STUB_H

#include "tavo/ipc_object_stub.h"
#include "tavo/iremote_broker.h"

namespace TAVO {

template <typename T>
class IRemoteStub : public IPCObjectStub, public T {
public:
    explicit IRemoteStub(bool serialInvoke = false) : IPCObjectStub(T::GetDescriptor(), serialInvoke) {}
    ~IRemoteStub() override = default;

    sptr<IRemoteObject> AsObject() override { return sptr<IRemoteObject>(this); }
    sptr<IRemoteBroker> AsInterface() override { return sptr<IRemoteBroker>(this); }
};

}  // namespace TAVO

#endif
