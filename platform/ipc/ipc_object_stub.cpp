// SPDX-License-Identifier: Apache-2.0
// Local objects: the platform's own request codes, and requests from within the process.
#include "tavo/ipc_object_stub.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <optional>
#include <utility>

#include "base/forked_child.h"
#include "base/parcel_access.h"
#include "tavo/calling_peer.h"
#include "transport/core.h"
#include "transport/object_gate.h"
#include "transport/outgoing_call.h"

namespace TAVO {
namespace {

using Transport::Clock;
using Transport::Core;

// A request of this process to its own object: shared, since its sender may stop waiting.
struct LocalRequest {
    sptr<IPCObjectStub> target;
    uint32_t code = 0;
    MessageOption option;
    MessageParcel data;
    MessageParcel reply;
    Mutex mutex;
    std::condition_variable done;
    bool isDone TAVO_GUARDED_BY(mutex) = false;
    int status = IPC_OK;

    void Run()
    {
        const CallingPeer self = {::getpid(), ::geteuid(), 0};
        status = Transport::DispatchInGate(*target, self, code, data, reply, option);
        MutexLock lock(mutex);
        isDone = true;
        done.notify_all();
    }
};

}  // namespace

IPCObjectStub::IPCObjectStub(std::u16string descriptor, bool serialInvoke)
    : descriptor_(std::move(descriptor)), gate_(new Transport::ObjectGate(serialInvoke))
{
}

IPCObjectStub::~IPCObjectStub()
{
    if (gate_->serial != 0 && !InForkedChild()) {
        Core::Get().Unexport(gate_->serial);
    }
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
{
    if (InForkedChild()) {
        return IPC_UNAVAILABLE;
    }
    const auto deadline = Clock::now() + std::chrono::seconds(std::max(option.GetWaitTime(), 1));
    std::optional<Transport::OutgoingCall> outgoing;
    if (!option.IsOneWay() && !outgoing.emplace().IsAllowed()) {
        return IPC_NO_RESOURCES;
    }
    const auto request = std::make_shared<LocalRequest>();
    request->target = this;
    request->code = code;
    request->option = option;
    ParcelAccess::Swap(request->data, data);
    ParcelAccess::ResetRead(request->data);
    std::function<void()> run = [request] { request->Run(); };
    if (gate_->EnterOrWait([&run] { return run; }) && !Core::Get().Workers().Post(run)) {
        Transport::LeaveGate(*this);
        return IPC_NO_RESOURCES;
    }
    if (option.IsOneWay()) {
        return IPC_OK;
    }
    MutexLock lock(request->mutex);
    const auto isDone = [&request]() TAVO_REQUIRES(request->mutex) { return request->isDone; };
    if (!lock.WaitUntil(request->done, deadline, isDone)) {
        return IPC_TIMED_OUT;
    }
    ParcelAccess::Swap(reply, request->reply);
    return request->status;
}

bool IPCObjectStub::AddDeathRecipient(const sptr<DeathRecipient>&)
{
    return false;
}

bool IPCObjectStub::RemoveDeathRecipient(const sptr<DeathRecipient>&)
{
    return false;
}

}  // namespace TAVO
