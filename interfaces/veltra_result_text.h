// SPDX-License-Identifier: Apache-2.0
// What a result code means and what to do about it, for logs and for people: those of the library, of the service of
// this project, and of the platform.
#ifndef VELTRA_RESULT_TEXT_H
#define VELTRA_RESULT_TEXT_H

#include <cstdint>

#include "service_result.h"
#include "veltra_result.h"

namespace TAVO::Veltra {

struct ResultText {
    int32_t code;
    const char* name;
    const char* meaning;
    const char* remedy;  // empty: there is nothing to do
};

// Each code appears once. Those from 1010310101 on are the service's own (docs/service.md). Those of the platform are
// numbers, so that the library can be built on another platform.
inline constexpr ResultText RESULT_TEXTS[] = {
    {RESULT_OK, "RESULT_OK", "done", ""},
    {RESULT_NO_BUNDLE_NAMES, "RESULT_NO_BUNDLE_NAMES", "no bundle name was given, and nothing was sent",
     "name at least one application"},
    {RESULT_CALLBACK_MISSING, "RESULT_CALLBACK_MISSING", "the object that holds the callbacks no longer exists",
     "register a callback again"},
    {RESULT_TOKEN_REFUSED, "RESULT_TOKEN_REFUSED", "the request was not meant for the object that it reached",
     "use a client library and a service of the same version"},
    {RESULT_BAD_PARCEL, "RESULT_BAD_PARCEL", "a message could not be decoded or its reply not written",
     "use a client library and a service of the same version"},
    {RESULT_NO_SERVICE, "RESULT_NO_SERVICE", "the service cannot be reached, died, or did not answer in time",
     "run \"veltra doctor\", which finds out why"},
    {RESULT_NOT_REGISTERED, "RESULT_NOT_REGISTERED",
     "nothing is registered in this process, or the service refused the registration", "register a callback first"},
    {RESULT_UNREGISTER_REFUSED, "RESULT_UNREGISTER_REFUSED",
     "the service does not know of the registration, perhaps because it was restarted", "register again"},
    {RESULT_GPU_REFUSED, "RESULT_GPU_REFUSED", "the service refused to start or stop the stream of GPU counters",
     "the machine may have no GPU with readable counters; docs/service.md lists those that have"},
    {RESULT_BAD_DEVICE_STATE, "RESULT_BAD_DEVICE_STATE", "the device state is no usable document",
     "use a client library and a service of the same version"},
    {RESULT_TOO_MANY_PRIORITIES, "RESULT_TOO_MANY_PRIORITIES", "an answer about priorities has more than 100 texts",
     "ask about fewer applications"},
    {RESULT_PRIORITIES_REFUSED, "RESULT_PRIORITIES_REFUSED", "the service refused the query of priorities",
     "start the service with --catalogue FILE"},
    {RESULT_DOWNLOAD_RESULTS_REFUSED, "RESULT_DOWNLOAD_RESULTS_REFUSED", "the service refused the download results",
     "send at most 1000 results of at most 64 KiB of text each"},
    {RESULT_RENDER_NO_SERVICE, "RESULT_RENDER_NO_SERVICE", "the service cannot be reached",
     "run \"veltra doctor\", which finds out why"},
    {SERVICE_BAD_REQUEST, "SERVICE_BAD_REQUEST", "the request is short, or one of its values is out of bounds",
     "compare the arguments with docs/service.md"},
    {SERVICE_NOT_SUPPORTED, "SERVICE_NOT_SUPPORTED", "this service does not offer the operation",
     "queries about applications need a service that was started with --catalogue FILE"},
    {SERVICE_NO_SENSOR, "SERVICE_NO_SENSOR", "the machine reports no value of its state",
     "run \"veltra explain\", which lists what was looked for"},
    {SERVICE_DENIED, "SERVICE_DENIED", "the service does not accept the request from this process",
     "run it as the user that runs the service"},
    {SERVICE_NO_RESOURCES, "SERVICE_NO_RESOURCES",
     "descriptors, memory or threads are exhausted, or 16 answers are pending",
     "wait for the pending answers, or raise the limits of the service (ulimit -n, ulimit -u)"},
    {SERVICE_NOT_SUBSCRIBED, "SERVICE_NOT_SUBSCRIBED", "there is no subscription to end", ""},
    {SERVICE_NO_GPU_COUNTERS, "SERVICE_NO_GPU_COUNTERS", "the machine has no GPU with readable counters", ""},
    {-100001, "IPC_DEAD_OBJECT", "the process that was called has ended", "call again, which starts it"},
    {-100002, "IPC_TIMED_OUT", "no answer within the time limit; whether the request ran is unknown",
     "run \"veltra doctor\", which finds out whether the process hangs"},
    {-100003, "IPC_BROKEN", "the connection broke during the call; whether the request ran is unknown", "call again"},
    {-100004, "IPC_QUEUE_FULL", "the receiver does not keep up; nothing was sent", "send less often"},
    {-100005, "IPC_TOO_LARGE", "the request is too large; nothing was sent", "send less at once"},
    {-100006, "IPC_UNKNOWN_CODE", "the other side does not know the request", "use programs of the same version"},
    {-100007, "IPC_EXCEPTION", "the handler of the request failed", "see the log of the service"},
    {-100008, "IPC_NO_RESOURCES", "descriptors, memory or threads are exhausted",
     "raise the limits (ulimit -n, ulimit -u)"},
    {-100009, "IPC_UNAVAILABLE", "this process is a forked child, in which the platform does not work",
     "start a program instead of forking"},
    {-100010, "IPC_BAD_MESSAGE", "the message could not be decoded", "use programs of the same version"},
};

// Null for a code that is not known.
constexpr const ResultText* FindResultText(int32_t code) noexcept
{
    for (const ResultText& text : RESULT_TEXTS) {
        if (text.code == code) {
            return &text;
        }
    }
    return nullptr;
}

}  // namespace TAVO::Veltra

#endif
