// SPDX-License-Identifier: Apache-2.0
// The receiving ends: the service derives from EchoStub, a client that listens from EchoListenerStub.
#ifndef EXAMPLES_ECHO_ECHO_STUB_H
#define EXAMPLES_ECHO_ECHO_STUB_H

#include "iecho.h"
#include "tavo/iremote_stub.h"
#include "tavo/typed_request.h"

namespace Echo {

class EchoStub : public IRemoteStub<IEcho> {
public:
    int OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override
    {
        switch (code) {
            case SAY:
                return ServeRequest(*this, &IEcho::Say, data, reply);
            case LISTEN:
                return ServeRequest(*this, &IEcho::Listen, data, reply);
            default:  // requests of the platform, and codes that are not known
                return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
        }
    }
};

class EchoListenerStub : public IRemoteStub<IEchoListener> {
public:
    int OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override
    {
        return code == TEXT ? ServeRequest(*this, &IEchoListener::OnText, data, reply)
                            : IPCObjectStub::OnRemoteRequest(code, data, reply, option);
    }
};

}  // namespace Echo

#endif
