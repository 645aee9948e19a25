// SPDX-License-Identifier: Apache-2.0
// The sender of the request that the current thread handles, as the kernel identifies it, and its objects.
#ifndef TAVO_CALLING_PEER_H
#define TAVO_CALLING_PEER_H

#include <sys/types.h>

#include <cstdint>

#include "tavo/export.h"
#include "tavo/iremote_object.h"

namespace TAVO {

struct CallingPeer {
    pid_t
        pid;  // at the time of connecting; for logs and for a child process of one's own, never a key: pids are reused
    uid_t uid;         // the trust boundary
    uint64_t session;  // names the connection to that process, never used again; 0 for this process itself
};

// Inside a request handler: its sender. Elsewhere: this process.
TAVO_EXPORT CallingPeer GetCallingPeer();

// Whether the object belongs to the process that GetCallingPeer names. A request may carry references to objects of any
// process; what a service keeps for a caller until the caller ends must be the caller's own. False for null.
TAVO_EXPORT bool IsOfCaller(const sptr<IRemoteObject>& object);

}  // namespace TAVO

#endif
