// SPDX-License-Identifier: Apache-2.0
#include "transport/dispatch.h"

#include <exception>
#include <functional>
#include <utility>

#include "base/warn_limited.h"
#include "transport/calling_peer_scope.h"
#include "transport/object_gate.h"
#include "transport/outgoing_call.h"

namespace TAVO::Transport {

int Dispatch(IPCObjectStub& target, const CallingPeer& peer, uint32_t code, MessageParcel& data, MessageParcel& reply,
             MessageOption& option)
{
    // GetCallingPeer in the handler finds it, on this thread only.
    const CallingPeerScope scope(peer);
    try {
        return target.OnRemoteRequest(code, data, reply, option);
    } catch (const std::exception& error) {
        WarnLimited("a request handler ended in an exception, its caller gets IPC_EXCEPTION", error.what());
    } catch (...) {
        WarnLimited("a request handler ended in an exception, its caller gets IPC_EXCEPTION", "no std::exception");
    }
    return IPC_EXCEPTION;
}

int DispatchInGate(IPCObjectStub& target, WorkerPool& workers, const CallingPeer& peer, uint32_t code,
                   MessageParcel& data, MessageParcel& reply, MessageOption& option)
{
    int status = IPC_OK;
    {
        const HandlerScope scope(ObjectGate::Of(target), workers);
        status = Dispatch(target, peer, code, data, reply, option);
    }
    LeaveGate(target, workers);
    return status;
}

void LeaveGate(IPCObjectStub& target, WorkerPool& workers)
{
    // The next request is posted instead of run here, so that this worker can go on with its own lane.
    while (std::function<void()> next = ObjectGate::Of(target).Leave()) {
        if (workers.Post(std::move(next))) {
            return;
        }
        // If out of memory that request is lost, but not the place that it had been given.
    }
}

}  // namespace TAVO::Transport
