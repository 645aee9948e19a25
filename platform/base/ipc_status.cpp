// SPDX-License-Identifier: Apache-2.0
#include "tavo/ipc_status.h"

namespace TAVO {

const char* IpcStatusText(int status)
{
    switch (status) {
        case IPC_OK:
            return "ok";
        case IPC_DEAD_OBJECT:
            return "dead object";
        case IPC_TIMED_OUT:
            return "timed out";
        case IPC_BROKEN:
            return "connection broke during the call";
        case IPC_QUEUE_FULL:
            return "receiver does not keep up";
        case IPC_TOO_LARGE:
            return "message too large";
        case IPC_UNKNOWN_CODE:
            return "unknown request code";
        case IPC_EXCEPTION:
            return "exception in the handler";
        case IPC_NO_RESOURCES:
            return "out of descriptors, memory or threads";
        case IPC_UNAVAILABLE:
            return "platform not usable in a forked child";
        case IPC_BAD_MESSAGE:
            return "malformed message";
        default:
            // Anything else came from the remote handler, whose codes the platform does not know.
            return "status of the handler";
    }
}

}  // namespace TAVO
