// SPDX-License-Identifier: Apache-2.0
// Reads the 32 bytes of the hello, in as many parts as they arrive, and offers the complete hello to the acceptor.
// While the acceptor makes the connection wait, nothing more is read from it. Control thread; the acceptor closes
// connections that are incomplete after 2 s.
#include "transport/pending_connection.h"

#include <sys/socket.h>

#include <new>

#include "base/warn_limited.h"

namespace TAVO::Transport {

void PendingConnection::OnReady(uint32_t)
{
    if (IsComplete()) {
        owner_.OnSettled(*this);  // Data or an end arrived while it waited for its session: too early.
        return;
    }
    // At most the bytes of the hello: what follows is read by the worker or the link that serves the connection.
    const IoResult got =
        ReceiveNow(fd_.Get(), reinterpret_cast<uint8_t*>(&hello_) + received_, sizeof(hello_) - received_);
    received_ += got.bytes;
    if (got.status == IoStatus::CLOSED) {
        owner_.OnSettled(*this);
        return;
    }
    if (!IsComplete()) {
        return;
    }
    if (!hello_.IsValid()) {
        WarnLimited("a connection did not begin with a hello of this version",
                    "closed; the peer may be of another release");
        owner_.OnSettled(*this);
        return;
    }
    Retry();
}

void PendingConnection::Retry()
{
    HelloResult result = HelloResult::SETTLED;
    try {
        result = owner_.OnHello(fd_, hello_, identity_);
    } catch (const std::bad_alloc&) {
        WarnLimited("out of memory", "a connection was refused");
    }
    if (result == HelloResult::SETTLED) {
        owner_.OnSettled(*this);
        return;
    }
    if (result == HelloResult::AWAITS_ROOM) {
        deadline_ = Clock::time_point::max();  // It lasts as long as its caller waits.
    }
    // (A level-triggered epoll would otherwise report the unread request again and again.)
    loop_.ModifyPoll(fd_.Get(), 0, this);  // Its request may have arrived already; a worker reads it with the lane.
}

bool PendingConnection::EndInput()
{
    // First: a hello that is not here now fails at the peer, which then sends no message behind it.
    ::shutdown(fd_.Get(), SHUT_RD);
    received_ +=
        ReceiveNow(fd_.Get(), reinterpret_cast<uint8_t*>(&hello_) + received_, sizeof(hello_) - received_).bytes;
    return IsComplete();
}

}  // namespace TAVO::Transport
