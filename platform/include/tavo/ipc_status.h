// SPDX-License-Identifier: Apache-2.0
// Results of SendRequest that are not the handler's own status.
#ifndef TAVO_IPC_STATUS_H
#define TAVO_IPC_STATUS_H

#include "tavo/export.h"

namespace TAVO {

// All are negative and far from errno values and from the codes that services use. Any other value that SendRequest
// returns is the status that the remote handler returned.
enum IpcStatus : int {
    IPC_OK = 0,
    IPC_DEAD_OBJECT = -100001,   // the object, or the process that owned it, no longer exists
    IPC_TIMED_OUT = -100002,     // no reply within the wait time; whether the request ran is unknown
    IPC_BROKEN = -100003,        // the connection broke during the call; whether the request ran is unknown
    IPC_QUEUE_FULL = -100004,    // the receiver does not keep up with one-way requests, or has not acknowledged the
                                 // references of 4,096 messages; nothing was sent
    IPC_TOO_LARGE = -100005,     // beyond 64 MiB, or 64 KiB one-way; nothing was sent
    IPC_UNKNOWN_CODE = -100006,  // the object does not know this request code
    IPC_EXCEPTION = -100007,     // the handler ended in an exception
    IPC_NO_RESOURCES = -100008,  // no descriptor, memory or thread left here or there, or no room for the reply;
                                 // whether the request ran is unknown
    IPC_UNAVAILABLE = -100009,   // this process cannot use the platform: it is a forked child
    IPC_BAD_MESSAGE = -100010,   // the request or the reply could not be decoded, or has an object that cannot be
                                 // sent; whether the request ran is unknown
};

// A short text for logs and tools; never null.
TAVO_EXPORT const char* IpcStatusText(int status);

}  // namespace TAVO

#endif
