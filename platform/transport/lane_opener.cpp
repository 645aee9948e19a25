// SPDX-License-Identifier: Apache-2.0
// Opening a lane is a connection to the peer's socket and one hello, on the thread that wants to send. The kernel
// connects without the peer's doing, up to the backlog of its socket: beyond that connect gives EAGAIN, and only a
// caller with a time-out waits. The hello is small and the socket's buffer empty, so it is sent at once or the peer is
// gone. The lane is made known to HeldObjects before the hello: from then on the peer may acknowledge its messages or
// report its end.
#include "transport/lane_opener.h"

#include <cerrno>
#include <chrono>
#include <string>

#include "transport/session_host.h"

namespace TAVO::Transport {
namespace {

int StatusOf(int connectError, bool hasWaited)
{
    switch (connectError) {
        case EAGAIN:
            // connect() on an AF_UNIX socket: EAGAIN means that the listener's backlog is full. A blocking socket waits
            // for room, as long as SO_SNDTIMEO allows, and then returns EAGAIN too.
            return hasWaited ? IPC_TIMED_OUT : IPC_QUEUE_FULL;
        case EMFILE:
        case ENFILE:
        case ENOMEM:
        case ENOBUFS:
            return IPC_NO_RESOURCES;
        default:
            // ENOENT, ECONNREFUSED: no process listens there any more.
            return IPC_DEAD_OBJECT;
    }
}

}  // namespace

LaneOpener::Opened LaneOpener::Open(ConnectionKind kind, Clock::duration timeout)
{
    const std::string path = context_.host.SocketPath(context_.path);
    const bool waits = timeout.count() > 0;
    Opened lane;
    lane.number = lastNumber_.fetch_add(1) + 1;
    lane.fd =
        // A one-way request and a notice have no timeout: the sender must not wait for a receiver that does not accept.
        waits ? ConnectStream(path, std::chrono::ceil<std::chrono::milliseconds>(timeout)) : ConnectStreamNow(path);
    if (!lane.fd.IsOpen()) {
        lane.status = StatusOf(errno, waits);
        return lane;
    }
    Hello hello;
    hello.kind = kind;
    hello.instance = context_.host.Self();
    hello.lane = lane.number;
    const bool isKnown = held_.OpenOwnLane(lane.number);
    if (!isKnown || SendNow(lane.fd.Get(), &hello, sizeof(hello)).status != IoStatus::OK) {
        lane.status = IPC_DEAD_OBJECT;
        lane.fd.Close();
        if (isKnown) {
            Close(lane.number, 0);
        }
    }
    return lane;
}

void LaneOpener::Close(uint64_t number, uint64_t lastReplyTaken)
{
    held_.CloseOwnLane(number);
    control_.Send({RecordType::LANE_CLOSED, ControlRecord::OWN_LANE, number, lastReplyTaken});
}

}  // namespace TAVO::Transport
