// SPDX-License-Identifier: Apache-2.0
// Requests of this process to its own objects.
#ifndef TAVO_TRANSPORT_LOCAL_CALL_H
#define TAVO_TRANSPORT_LOCAL_CALL_H

#include <cstdint>

#include "tavo/ipc_object_stub.h"
#include "transport/worker_pool.h"

namespace TAVO::Transport {

// As IPCObjectStub::SendRequest: handled on a worker, never inside this call. Consumes `data`.
int CallLocal(const sptr<IPCObjectStub>& target, WorkerPool& workers, uint32_t code, MessageParcel& data,
              MessageParcel& reply, const MessageOption& option);

}  // namespace TAVO::Transport

#endif
