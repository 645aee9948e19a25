// SPDX-License-Identifier: Apache-2.0
// One request to a stub, and its outcome.
#ifndef VELTRA_TESTS_SERVICE_SENT_REQUEST_H
#define VELTRA_TESTS_SERVICE_SENT_REQUEST_H

#include <tavo/ipc_object_stub.h>

#include "ipc/iveltra_server_interface.h"
#include "support/parcel_items.h"

namespace TAVO::Veltra {

struct Sent {
    Sent(IPCObjectStub& stub, ServerCode code, const Items& items, size_t replyCapacity = Parcel::MAX_DATA_BYTES,
         std::u16string_view token = IVeltraServerInterface::GetDescriptor())
    {
        MessageParcel data;
        MessageOption option;
        reply.SetCapacityLimit(replyCapacity);
        data.WriteInterfaceToken(token);
        WriteItems(data, items);
        status = stub.OnRemoteRequest(static_cast<uint32_t>(code), data, reply, option);
    }

    MessageParcel reply;
    int status = -1;
};

}  // namespace TAVO::Veltra

#endif
