// SPDX-License-Identifier: Apache-2.0
// Runs request handlers, inside or outside the gate of their object.
#ifndef TAVO_TRANSPORT_DISPATCH_H
#define TAVO_TRANSPORT_DISPATCH_H

#include <cstdint>

#include "tavo/calling_peer.h"
#include "tavo/ipc_object_stub.h"
#include "transport/worker_pool.h"

namespace TAVO::Transport {

// Runs a handler for a request of `peer`; an exception becomes IPC_EXCEPTION.
int Dispatch(IPCObjectStub& target, const CallingPeer& peer, uint32_t code, MessageParcel& data, MessageParcel& reply,
             MessageOption& option);
// The same for a request that has entered the object's gate; it leaves the gate afterwards.
int DispatchInGate(IPCObjectStub& target, WorkerPool& workers, const CallingPeer& peer, uint32_t code,
                   MessageParcel& data, MessageParcel& reply, MessageOption& option);
// Ends a request that had entered the object's gate; one that waited goes to a worker.
void LeaveGate(IPCObjectStub& target, WorkerPool& workers);

}  // namespace TAVO::Transport

#endif
