// SPDX-License-Identifier: Apache-2.0
// Synchronous calls: the calling thread sends on a lane of its own and reads the reply from it.
#include "transport/call_lane.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <new>
#include <thread>
#include <utility>

#include "base/parcel_access.h"
#include "transport/core.h"
#include "transport/in_lane.h"
#include "transport/session.h"
#include "wire/frame_reader.h"

namespace TAVO::Transport {
namespace {

constexpr size_t FIRST_READ_BYTES = 4096;  // header and body of nearly every reply

// Other large messages are on their way: the rest of this one stays in the socket. False when the deadline has passed.
bool WaitForBudget(Deadline deadline)
{
    constexpr std::chrono::milliseconds STEP{5};
    std::this_thread::sleep_until(std::min(deadline, Clock::now() + STEP));
    return Clock::now() < deadline;
}

// Reads one whole reply; OK only with a complete frame.
IoStatus ReadReply(int fd, Spin& spin, FrameReader& reader, Deadline deadline, bool& extra)
{
    uint8_t first[FIRST_READ_BYTES];
    for (bool isFirst = true;; isFirst = false) {
        FrameReader::State state;
        IoResult got;
        if (!reader.HasHeader()) {
            got = isFirst ? spin.Receive(fd, first, sizeof(first)) : IoResult{IoStatus::WOULD_BLOCK, 0};
            if (got.status == IoStatus::WOULD_BLOCK) {
                got = ReceiveUntil(fd, first, sizeof(first), deadline, isFirst);
            }
            const uint8_t* from = first;
            state = got.status == IoStatus::OK ? reader.Consume(from, first + got.bytes) : FrameReader::State::MORE;
            extra = got.status == IoStatus::OK && from != first + got.bytes;
        } else {
            const FrameReader::Room room = reader.RoomForBody();
            if (room.state == FrameReader::State::STALLED) {
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
        if (got.status != IoStatus::OK || state == FrameReader::State::BAD) {
            return got.status == IoStatus::OK ? IoStatus::CLOSED : got.status;
        }
    }
}

// Coarse, so that a lane's time-outs stay as they are from one call to the next.
std::chrono::milliseconds CoarseTimeout(Clock::duration duration)
{
    using Tenths = std::chrono::duration<int64_t, std::deci>;
    return std::max(std::chrono::ceil<Tenths>(duration), Tenths(1));
}

}  // namespace

int Session::Call(FrameKind kind, uint64_t serial, uint32_t code, MessageParcel& data, MessageParcel& reply,
                  Deadline deadline)
{
    const size_t dataBytes = data.GetDataSize();
    for (;;) {
        int status = IPC_OK;
        const std::shared_ptr<CallLane> lane = TakeLane(deadline, status);
        if (lane == nullptr) {
            return status;
        }
        const Clock::time_point start = Clock::now();
        if (const auto timeout = CoarseTimeout(deadline - start); timeout != lane->timeout) {
            SetTimeouts(lane->fd.Get(), timeout, timeout);
            lane->timeout = timeout;
        }
        const uint64_t number = ++lane->lastSent;
        FrameHeader header;
        header.kind = kind;
        header.codeOrStatus = code;
        header.number = number;
        header.serial = serial;
        header.dataBytes = static_cast<uint32_t>(dataBytes);
        if (!ParcelAccess::References(data).empty()) {
            status = PassReferences({true, lane->number}, number, data, header, deadline);
        }
        uint8_t* const frame = ParcelAccess::Headroom(data, sizeof(header));
        if (status != IPC_OK || frame == nullptr || !header.IsPossible(false)) {
            ParcelAccess::Truncate(data, dataBytes);
            Withdraw({true, lane->number}, number);
            DropLane(lane);
            return status != IPC_OK ? status : frame == nullptr ? IPC_NO_RESOURCES : IPC_TOO_LARGE;
        }
        std::memcpy(frame, &header, sizeof(header));
        const IoResult sent = SendUntil(lane->fd.Get(), frame, sizeof(header) + header.BodyBytes(), deadline);
        ParcelAccess::Truncate(data, dataBytes);
        if (sent.status != IoStatus::OK) {
            if (sent.bytes == 0) {
                Withdraw({true, lane->number}, number);
            }
            DropLane(lane);
            if (sent.status == IoStatus::CLOSED && sent.bytes == 0 && WaitUp(deadline) == State::UP) {
                continue;  // The peer had closed this lane; nothing of the request has left.
            }
            return TransportError(sent.status);
        }
        bool extra = false;
        FrameReader reader(false, MessageKind::REPLY, &budget_);
        const IoStatus received = ReadReply(lane->fd.Get(), lane->spin, reader, deadline, extra);
        const FrameHeader& answer = reader.Header();
        if (received != IoStatus::OK || answer.kind != FrameKind::REPLY || answer.number != number) {
            DropLane(lane);
            WaitUp(deadline);  // If the peer never became one, the end of its session is on its way.
            return received == IoStatus::WOULD_BLOCK ? IPC_TIMED_OUT : TransportError(IoStatus::CLOSED);
        }
        lane->lastReplyTaken = number;
        if (!TakeReferences({true, lane->number}, answer, reader.Body())) {
            DropLane(lane);
            return IPC_BROKEN;
        }
        ParcelAccess::Swap(reply, reader.Body());
        if (extra) {
            DropLane(lane);  // The peer said more than it was asked: none of that may meet the next call.
        } else {
            ReturnLane(lane, start);
        }
        return static_cast<int>(answer.codeOrStatus);
    }
}

int Session::TransportError(IoStatus status) const
{
    if (status == IoStatus::WOULD_BLOCK) {
        return IPC_TIMED_OUT;
    }
    return GetState() == State::DEAD ? IPC_DEAD_OBJECT : IPC_BROKEN;
}

std::shared_ptr<CallLane> Session::TakeLane(Deadline deadline, int& status)
{
    if (GetState() == State::CONNECTING && !WaitForLanes(deadline)) {
        status = IPC_TIMED_OUT;
        return nullptr;
    }
    {
        MutexLock lock(mutex_);
        const auto mayGo = [this]() TAVO_REQUIRES(mutex_) {
            return GetState() == State::DEAD || !idleLanes_.empty() || callLanes_.size() + openingLanes_ < MAX_LANES;
        };
        if (!mayGo() && !lock.WaitUntil(changed_, deadline, mayGo)) {
            status = IPC_TIMED_OUT;
            return nullptr;
        }
        if (GetState() == State::DEAD) {
            status = IPC_DEAD_OBJECT;
            return nullptr;
        }
        if (!idleLanes_.empty()) {
            return TakeIdleLane();
        }
        callLanes_.reserve(MAX_LANES);
        idleLanes_.reserve(MAX_LANES);
        ++openingLanes_;
    }
    std::shared_ptr<CallLane> lane = OpenLane(deadline, status);
    MutexLock lock(mutex_);
    --openingLanes_;
    if (lane != nullptr && GetState() == State::DEAD) {
        status = IPC_DEAD_OBJECT;
        lane = nullptr;
    }
    if (lane != nullptr) {
        callLanes_.push_back(lane);
    }
    changed_.notify_all();
    return lane;
}

// The one that the calling thread used last, else the one used last of all: a thread and the worker at the other end of
// its lane come to share a processor then, and wake each other cheaply.
std::shared_ptr<CallLane> Session::TakeIdleLane()
{
    const auto isOwn = [self = std::this_thread::get_id()](const auto& lane) { return lane->usedBy == self; };
    auto chosen = std::find_if(idleLanes_.rbegin(), idleLanes_.rend(), isOwn);
    if (chosen == idleLanes_.rend()) {
        chosen = idleLanes_.rbegin();
    }
    std::shared_ptr<CallLane> lane = std::move(*chosen);
    idleLanes_.erase(std::next(chosen).base());
    return lane;
}

std::shared_ptr<CallLane> Session::OpenLane(Deadline deadline, int& status)
try {
    const auto lane = std::make_shared<CallLane>();
    lane->number = nextLane_.fetch_add(1);
    lane->timeout = CoarseTimeout(deadline - Clock::now());
    lane->fd = Connect(ConnectionKind::CALL_LANE, lane->number, lane->timeout, status);
    return lane->fd.IsOpen() ? lane : nullptr;
} catch (const std::bad_alloc&) {
    status = IPC_NO_RESOURCES;
    return nullptr;
}

ConnectionFd Session::Connect(ConnectionKind kind, uint64_t number, Clock::duration timeout, int& status)
{
    const std::string path = Core::Get().SocketPath(path_);
    const bool waits = timeout.count() > 0;
    ConnectionFd fd =
        waits ? ConnectStream(path, std::chrono::ceil<std::chrono::milliseconds>(timeout)) : ConnectStreamNow(path);
    Hello hello;
    hello.kind = kind;
    hello.instance = Core::Get().Self();
    hello.lane = number;
    if (!fd.IsOpen()) {
        switch (errno) {
            case EAGAIN:
                status = waits ? IPC_TIMED_OUT : IPC_QUEUE_FULL;
                break;
            case EMFILE:
            case ENFILE:
            case ENOMEM:
            case ENOBUFS:
                status = IPC_NO_RESOURCES;
                break;
            default:
                status = IPC_DEAD_OBJECT;
        }
        return fd;
    }
    const bool isAdded = AddOwnLane(number);
    if (!isAdded || SendNow(fd.Get(), &hello, sizeof(hello)).status != IoStatus::OK) {
        status = IPC_DEAD_OBJECT;
        fd.Close();
        if (isAdded) {
            CloseOwnLane(number, 0);
        }
    }
    return fd;
}

void Session::ReturnLane(const std::shared_ptr<CallLane>& lane, Clock::time_point usedAt)
{
    lane->usedAt = usedAt;
    lane->usedBy = std::this_thread::get_id();
    {
        MutexLock lock(mutex_);
        if (GetState() == State::DEAD) {
            return;
        }
        idleLanes_.push_back(lane);
        if (callLanes_.size() + openingLanes_ >= MAX_LANES) {
            changed_.notify_all();
        }
    }
    Core::Get().Control().ExpectIdleLanes();
}

void Session::DropLane(const std::shared_ptr<CallLane>& lane)
{
    lane->fd.ShutDown();
    {
        MutexLock lock(mutex_);
        std::erase(callLanes_, lane);
        changed_.notify_all();
    }
    CloseOwnLane(lane->number, lane->lastReplyTaken);
}

bool Session::CloseIdleLanes(Clock::time_point before)
{
    std::vector<std::shared_ptr<CallLane>> closing;
    std::vector<std::shared_ptr<InLane>> inLanes;
    bool remain = false;
    {
        MutexLock lock(mutex_);
        for (const auto& [number, lane] : inLanes_) {
            inLanes.push_back(lane.lane);
        }
        const auto firstKept = std::find_if(idleLanes_.begin(), idleLanes_.end(),
                                            [before](const auto& lane) { return lane->usedAt >= before; });
        closing.assign(std::make_move_iterator(idleLanes_.begin()), std::make_move_iterator(firstKept));
        idleLanes_.erase(idleLanes_.begin(), firstKept);
        remain = !idleLanes_.empty();
    }
    for (const auto& lane : inLanes) {
        remain = lane->EndIdleRing(before) || remain;
    }
    for (const auto& lane : closing) {
        DropLane(lane);
    }
    return remain;
}

}  // namespace TAVO::Transport
