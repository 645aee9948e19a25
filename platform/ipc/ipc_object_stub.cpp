// SPDX-License-Identifier: Apache-2.0
// Local objects: the platform's own request codes, and requests from within the process.
#include "tavo/ipc_object_stub.h"

#include <new>
#include <utility>

#include "base/forked_child.h"
#include "transport/transport.h"

namespace TAVO {

IPCObjectStub::IPCObjectStub(std::u16string descriptor, bool serialInvoke)
    : descriptor_(std::move(descriptor)), gate_(Transport::NewObjectGate(serialInvoke))
{
}

IPCObjectStub::~IPCObjectStub()
{
    // No peer can hold the object any more, or this destructor would not run. The serial is never used again.
    Transport::Unexport(*gate_);
}

int IPCObjectStub::OnRemoteRequest(uint32_t code, MessageParcel&, MessageParcel& reply, MessageOption&)
{
    switch (code) {
        case CODE_PING:
            return IPC_OK;
        case CODE_DESCRIPTOR:
            return reply.WriteString16(descriptor_) ? IPC_OK : IPC_NO_RESOURCES;
        default:
            return IPC_UNKNOWN_CODE;
    }
}

int IPCObjectStub::SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option)
try {
    if (InForkedChild()) {
        return IPC_UNAVAILABLE;
    }
    // Through the gate and a worker, as a request of another process.
    return Transport::CallLocal(this, code, data, reply, option);
} catch (const std::bad_alloc&) {
    return IPC_NO_RESOURCES;
}

// A local object cannot die before its own process, so there is nothing to notify.
bool IPCObjectStub::AddDeathRecipient(const sptr<DeathRecipient>&)
{
    return false;
}

bool IPCObjectStub::RemoveDeathRecipient(const sptr<DeathRecipient>&)
{
    return false;
}

}  // namespace TAVO
