// SPDX-License-Identifier: Apache-2.0
// The service as both sides see it: its number, its operations, its result codes.
#ifndef EXAMPLES_ECHO_IECHO_H
#define EXAMPLES_ECHO_IECHO_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "tavo/iremote_broker.h"

namespace Echo {

using namespace TAVO;

// The number of the service in its ability file.
constexpr int32_t ECHO_SA_ID = 70001;

// Results beside 0 and the negative IpcStatus of a request that failed.
constexpr int32_t ECHO_TEXT_TOO_LONG = 1;
constexpr int32_t ECHO_NOT_YOUR_LISTENER = 2;  // the listener is not of the caller's process, or the caller has ended
constexpr int32_t ECHO_TOO_MANY_LISTENERS = 3;

constexpr size_t MAX_TEXT_BYTES = 1000;

// What a client implements to hear what others say.
class IEchoListener : public IRemoteBroker {
public:
    TAVO_DECLARE_DESCRIPTOR(u"example.IEchoListener")

    enum Code : uint32_t { TEXT = 1 };

    // One-way: the service does not wait, and ignores the result.
    virtual int32_t OnText(const std::string& text) = 0;
};

class IEcho : public IRemoteBroker {
public:
    TAVO_DECLARE_DESCRIPTOR(u"example.IEcho")

    enum Code : uint32_t { SAY = 1, LISTEN = 2 };

    // Sends `text` to all listeners; `answer` repeats it and names the process that serves.
    virtual int32_t Say(const std::string& text, std::string& answer) = 0;
    // Sends each text to `listener` from now on, until the caller's process ends.
    virtual int32_t Listen(const sptr<IEchoListener>& listener) = 0;
};

}  // namespace Echo

#endif
