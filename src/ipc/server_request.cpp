// SPDX-License-Identifier: Apache-2.0
// A failure is logged once, here, as if by the operation itself: under its name, the line in the proxy and the text
// that log collectors look for. The text is joined with the prefix at run time, and so may hold one conversion, which
// gets the status. An exception while sending can only be memory that ran out; it becomes a broken connection, so that
// operations see one kind of failure; only the overload for an object that is known lets it pass. Nothing is sent
// again.
#include "ipc/server_request.h"

#include <cstdio>

#include "ipc/iveltra_server_interface.h"
#include "tavo/message_option.h"
#include "utils/veltra_log.h"

namespace TAVO::Veltra {
namespace {

constexpr size_t MAX_FORMAT_BYTES = 256;
constexpr int WAIT_SECONDS = 8;  // for the service's answer
// Of a sending that did not reach the platform. They have the numbers that libtavo gives to these failures, under which
// veltra_result_text.h describes them.
constexpr int STATUS_DEAD_OBJECT = -100001;
constexpr int STATUS_BROKEN = -100003;

}  // namespace

bool ServerRequest::WriteToken(const char* failedText, int line)
{
    if (!data.WriteInterfaceToken(IVeltraServerInterface::GetDescriptor())) {
        LogError(line, failedText);
        return false;
    }
    return true;
}

bool ServerRequest::Send(const sptr<IRemoteObject>& remote, const char* nullText, const char* failedText, int line)
{
    if (remote == nullptr) {
        LogError(line, nullText);
        return false;
    }
    return Send(remote, failedText, line);
}

bool ServerRequest::Send(const sptr<IRemoteObject>& remote, const char* failedText, int line)
{
    try {
        status_ = remote != nullptr ? Send(*remote) : STATUS_DEAD_OBJECT;
    } catch (...) {  // no memory on the way
        status_ = STATUS_BROKEN;
    }
    if (status_ != 0) {
        LogError(line, failedText, status_);
        return false;
    }
    return true;
}

int ServerRequest::Send(IRemoteObject& remote)
{
    MessageOption option(flags_, WAIT_SECONDS);
    // Blocks the calling thread until the reply arrives, at most WAIT_SECONDS.
    status_ = remote.SendRequest(static_cast<uint32_t>(code_), data, reply, option);
    return status_;
}

void ServerRequest::LogError(int line, const char* text, int value) const
{
    char format[MAX_FORMAT_BYTES];
    std::snprintf(format, sizeof(format), "%s%s", VELTRA_LOG_PREFIX, text);
    // A text without a conversion of its own leaves the value unused.
    ScrivoPrint(LOG_TYPE, LOG_LEVEL_ERROR, LOG_DOMAIN, LOG_TAG, format, "", operation_, line, value);
}

}  // namespace TAVO::Veltra
