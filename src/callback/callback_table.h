// SPDX-License-Identifier: Apache-2.0
// The frame of every callback stub: which handler answers which request code, and what is refused before one runs.
#ifndef VELTRA_CALLBACK_CALLBACK_TABLE_H
#define VELTRA_CALLBACK_CALLBACK_TABLE_H

#include <cstdint>
#include <initializer_list>
#include <map>

#include "ipc/server_codes.h"
#include "tavo/ipc_object_stub.h"
#include "tavo/iremote_broker.h"
#include "tavo/message_parcel.h"
#include "utils/veltra_log.h"
#include "veltra_result.h"

namespace TAVO::Veltra {

// Read-only once made, so that requests on several threads share it without a lock.
//
// A handler decodes all of its arguments, calls the interface's operation on the stub, writes the result, an Int32, as
// the whole reply and returns 0. The result never becomes the status. A handler that fails writes nothing.
template <typename Stub>
class CallbackTable {
public:
    using Handler = int32_t (Stub::*)(MessageParcel& data, MessageParcel& reply);

    // One request code and what handles it.
    struct Row {
        CallbackCode code;
        Handler handler;
    };

    CallbackTable(std::initializer_list<Row> rows)
    {
        for (const Row& row : rows) {
            handlers_.emplace(static_cast<uint32_t>(row.code), row.handler);
        }
    }

    // The status of one request: the handler's, RESULT_TOKEN_REFUSED for a request meant for another interface, the
    // platform's for a code that has no row. Deliberate: what a caller's callback throws, and std::bad_alloc, passes
    // through. The platform makes IPC_EXCEPTION of it and logs a warning, which is not among this library's log lines.
    int32_t OnRemoteRequest(Stub& stub, uint32_t code, MessageParcel& data, MessageParcel& reply,
                            MessageOption& option) const
    {
        if (data.ReadInterfaceToken() != Stub::GetDescriptor()) {
            VELTRA_LOGE("descriptor checked fail !");
            return RESULT_TOKEN_REFUSED;
        }
        VELTRA_LOGI("OnReceived, cmd = %{public}u", code);
        const auto found = handlers_.find(code);
        return found != handlers_.end() ? (stub.*found->second)(data, reply)
                                        : stub.IPCObjectStub::OnRemoteRequest(code, data, reply, option);
    }

private:
    std::map<uint32_t, Handler> handlers_;
};

}  // namespace TAVO::Veltra

#endif
