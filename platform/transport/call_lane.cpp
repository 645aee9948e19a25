// SPDX-License-Identifier: Apache-2.0
// A call: the calling thread writes the header in front of the data, sends both from one buffer, and waits in recv for
// the reply, bounded by the socket's time-out. No other thread of the process takes part. A request is sent once: what
// failed after the first byte is never sent again. A lane whose call failed is closed, so that a late reply ends with
// it and does not reach the next call.
#include "transport/call_lane.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "base/parcel_access.h"
#include "tavo/ipc_status.h"
#include "transport/outgoing_frame.h"
#include "wire/frame_reader.h"

namespace TAVO::Transport {
namespace {

constexpr size_t FIRST_READ_BYTES = 4096;  // header and body of nearly every reply

// Other large messages use up the budget: the rest of this one stays in the socket. False when the deadline has passed.
bool WaitForBudget(Deadline deadline)
{
    constexpr std::chrono::milliseconds STEP{5};
    std::this_thread::sleep_until(std::min(deadline, Clock::now() + STEP));
    return Clock::now() < deadline;
}

// Where and until when a call waits for its reply.
struct ReplySource {
    int fd;
    std::chrono::milliseconds timeout;  // of the socket
    Deadline deadline;
};

// Reads one whole reply from the socket; OK only with a complete frame. Polls before it sleeps if there is a `spin`.
IoStatus ReadReply(const ReplySource& source, Spin* spin, FrameReader& reader, bool& extra)
{
    const auto [fd, timeout, deadline] = source;
    uint8_t first[FIRST_READ_BYTES];
    for (bool isFirst = true;; isFirst = false) {
        FrameReader::State state;
        IoResult got;
        if (!reader.HasHeader()) {
            // Polls only for the first bytes; the rest of a large reply arrives without a gap.
            got = isFirst && spin != nullptr ? spin->Receive(fd, first, sizeof(first))
                                             : IoResult{IoStatus::WOULD_BLOCK, 0};
            if (got.status == IoStatus::WOULD_BLOCK) {
                // The socket's timeout would exceed the deadline after a request that took long.
                const bool mayBlock = isFirst && CallLane::CoarseTimeout(deadline - Clock::now()) >= timeout;
                got = ReceiveUntil(fd, first, sizeof(first), deadline, mayBlock);
            }
            const uint8_t* from = first;
            state = got.status == IoStatus::OK ? reader.Consume(from, first + got.bytes) : FrameReader::State::MORE;
            // The peer sent more than one reply. This one is still delivered, but the lane is not used again.
            extra = got.status == IoStatus::OK && from != first + got.bytes;
        } else {
            const FrameReader::Room room = reader.RoomForBody();
            if (room.state == FrameReader::State::STALLED) {
                // The budget has no event either; the caller's own thread may sleep, unlike a worker.
                if (WaitForBudget(deadline)) {
                    continue;
                }
                return IoStatus::WOULD_BLOCK;
            }
            if (room.place == nullptr) {
                return IoStatus::CLOSED;  // no memory
            }
            got = ReceiveUntil(fd, room.place, room.size, deadline, isFirst);
            state = reader.Received(got.bytes);
        }
        if (state == FrameReader::State::COMPLETE) {
            return IoStatus::OK;
        }
        if (got.status != IoStatus::OK || state != FrameReader::State::MORE) {
            return got.status == IoStatus::OK ? IoStatus::CLOSED : got.status;
        }
    }
}

// Reads one whole reply, through the page where the peer has put it there.
IoStatus ReadReply(const ReplySource& source, CallBox& box, Spin* spin, FrameReader& reader, bool& extra)
{
    switch (box.Wait(spin, source.deadline).state) {
        case CallBox::ABSENT:
            return IoStatus::WOULD_BLOCK;
        case CallBox::FULL: {
            auto [from, end] = box.Frame();
            const FrameReader::State state = reader.Consume(from, end);
            return state == FrameReader::State::COMPLETE && from == end && box.Release() ? IoStatus::OK
                                                                                         : IoStatus::CLOSED;
        }
        case CallBox::SOCKET: {
            const IoStatus status = ReadReply(source, nullptr, reader, extra);
            box.ReleaseSocket();
            return status;
        }
        default:
            return IoStatus::CLOSED;
    }
}

}  // namespace

// In tenths of a second, rounded up: with a time in microseconds each call would have to set the socket's timeout
// again, two system calls more. ReceiveUntil checks the exact deadline after each return.
std::chrono::milliseconds CallLane::CoarseTimeout(Clock::duration duration)
{
    using Tenths = std::chrono::duration<int64_t, std::deci>;
    return std::max(std::chrono::ceil<Tenths>(duration), Tenths(1));
}

CallResult CallLane::Call(const CallRequest& request, MessageReferences& references, ByteBudget& budget)
{
    const bool isFirst = std::exchange(usedAt, Clock::now()) == Clock::time_point();
    // Polling pays only if the answer comes soon. The first one on a lane does not: the peer has to accept the lane.
    // Nor does the manager's (serial 0): its answers are cached, and what is still asked is a start or a registration.
    const bool mayPoll = !isFirst && request.serial != 0;
    if (const auto coarse = CoarseTimeout(request.deadline - usedAt); coarse != timeout) {
        SetTimeouts(fd.Get(), coarse, coarse);
        timeout = coarse;
    }
    CallPage* shared = page.Get();
    // Before the request is sent: the reply may come at once.
    if (shared != nullptr && !shared->Replies().Attend()) {
        shared = nullptr;
    }
    const CallResult sent = Send(request, references, shared);
    return sent.lane == CallResult::Lane::NO_REPLY ? Receive(request, references, budget, shared, mayPoll) : sent;
}

CallResult CallLane::Send(const CallRequest& request, MessageReferences& references, CallPage* shared)
{
    using Lane = CallResult::Lane;
    FrameHeader header;
    header.kind = request.kind;
    header.codeOrStatus = request.code;
    header.number = ++lastSent;
    header.serial = request.serial;
    OutgoingFrame frame(request.data, references, number);
    if (const int status = frame.Build(header, false, request.deadline); status != IPC_OK) {
        return {Lane::FINISHED, status};
    }
    if (shared != nullptr && shared->Requests().Put(frame.Data(), frame.Size())) {
        return {Lane::NO_REPLY, IPC_OK};
    }
    const IoResult sent = SendUntil(fd.Get(), frame.Data(), frame.Size(), request.deadline);
    if (sent.status == IoStatus::OK) {
        return {Lane::NO_REPLY, IPC_OK};
    }
    // Nothing has left, so the peer has seen no reference: the counts are taken back here. Otherwise the peer's
    // LANE_CLOSED decides.
    if (sent.bytes == 0) {
        frame.Withdraw();
    }
    if (sent.status == IoStatus::WOULD_BLOCK) {
        return {Lane::FINISHED, IPC_TIMED_OUT};
    }
    return {sent.bytes == 0 ? Lane::UNUSED : Lane::CUT_OFF, IPC_BROKEN};
}

CallResult CallLane::Receive(const CallRequest& request, MessageReferences& references, ByteBudget& budget,
                             CallPage* shared, bool mayPoll)
{
    using Lane = CallResult::Lane;
    bool extra = false;
    FrameReader reader(false, MessageKind::REPLY, &budget);
    Spin* const poll = mayPoll ? &spin : nullptr;
    const ReplySource source{fd.Get(), timeout, request.deadline};
    const IoStatus received = shared != nullptr ? ReadReply(source, shared->Replies(), poll, reader, extra)
                                                : ReadReply(source, poll, reader, extra);
    const FrameHeader& answer = reader.Header();
    if (received != IoStatus::OK || answer.kind != FrameKind::REPLY || answer.number != lastSent) {
        return {Lane::NO_REPLY, received == IoStatus::WOULD_BLOCK ? IPC_TIMED_OUT : IPC_BROKEN};
    }
    // Before the references are read: the peer must not release them when this lane is closed.
    lastReplyTaken = lastSent;
    if (!references.Take({true, number}, answer, reader.Body())) {
        return {Lane::FINISHED, IPC_BROKEN};
    }
    ParcelAccess::Swap(request.reply, reader.Body());
    // More than one reply: the rest must not reach the next call.
    return {extra ? Lane::FINISHED : Lane::REUSABLE, static_cast<int>(answer.codeOrStatus)};
}

}  // namespace TAVO::Transport
