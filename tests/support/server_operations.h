// SPDX-License-Identifier: Apache-2.0
// The seventeen operations of the service with one set of arguments each, for tables on both sides of the wire.
#ifndef VELTRA_TESTS_SUPPORT_SERVER_OPERATIONS_H
#define VELTRA_TESTS_SUPPORT_SERVER_OPERATIONS_H

#include <functional>
#include <vector>

#include "ipc/veltra_server_proxy.h"
#include "support/parcel_items.h"

namespace TAVO::Veltra {

// How an operation reports what went wrong.
enum class Report {
    CODE,       // by its result
    STATUS,     // by its result; a failed sending gives the platform's status
    REPLY,      // by its result, which is the reply's even after a failed sending
    EMPTY_MAP,  // by an empty map; the call then yields 0, else 1
    NOTHING,    // not at all; the call yields 0
};

// What a request that cannot be sent logs; null: with the operation's name, as most have it; %d is the status. NONE: no
// line of its own, and without a remote object that of a failed sending.
struct RequestTexts {
    static constexpr char NONE[] = "";

    const char* remoteNull = nullptr;
    const char* sendFailed = nullptr;
    const char* tokenRefused = "write descriptor fail";
};

struct ServerOperation {
    const char* name;
    uint32_t code;
    Report report;
    Items payload;  // behind the interface token
    std::function<int32_t(VeltraServerProxy&)> call;
    RequestTexts texts = {};
    Items reply = {4711};  // with all that the operation may return

    bool HasResult() const { return report != Report::EMPTY_MAP && report != Report::NOTHING; }
};

const std::vector<ServerOperation>& ServerOperations();

}  // namespace TAVO::Veltra

#endif
