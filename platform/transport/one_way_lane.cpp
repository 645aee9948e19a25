// SPDX-License-Identifier: Apache-2.0
// One-way requests and notices: one lane a session, sent in order, and never waiting for the receiver.
#include <cstring>
#include <new>
#include <utility>

#include "base/parcel_access.h"
#include "transport/core.h"
#include "transport/session.h"

namespace TAVO::Transport {

int Session::SendOneWay(ConnectionKind kind, uint64_t serial, uint32_t code, MessageParcel& data, Deadline deadline,
                        LanePlace& place)
{
    if (WaitUp(deadline) != State::UP) {  // Waits only before the first contact with the peer.
        return GetState() == State::DEAD ? IPC_DEAD_OBJECT : IPC_TIMED_OUT;
    }
    OneWayLane& lane = kind == ConnectionKind::NOTICE_LANE ? notice_ : oneWay_;
    MutexLock lock(lane.mutex);
    if (!lane.rest.empty()) {
        return IPC_QUEUE_FULL;  // The control thread sends the rest as soon as there is room.
    }
    const size_t dataBytes = data.GetDataSize();
    for (bool isFresh = false;;) {
        if (!lane.fd.IsOpen()) {
            if (const int status = OpenOneWay(lane, kind); status != IPC_OK) {
                return status;
            }
            isFresh = true;
        }
        FrameHeader header;
        header.codeOrStatus = code;
        header.number = lane.lastSent + 1;
        header.serial = serial;
        header.dataBytes = static_cast<uint32_t>(dataBytes);
        if (!ParcelAccess::References(data).empty()) {
            const int status = PassReferences({true, lane.number}, header.number, data, header, Deadline());
            if (status != IPC_OK) {
                ParcelAccess::Truncate(data, dataBytes);
                Withdraw({true, lane.number}, header.number);
                if (status == IPC_BROKEN && !isFresh && GetState() == State::UP) {
                    CloseOneWay(lane);  // The peer has closed it, and nothing of the request has left.
                    continue;
                }
                return status == IPC_TIMED_OUT ? IPC_QUEUE_FULL : status;  // It never waits: try again.
            }
        }
        uint8_t* const frame = ParcelAccess::Headroom(data, sizeof(header));
        const size_t size = sizeof(header) + header.BodyBytes();
        IoResult sent{IoStatus::WOULD_BLOCK, 0};
        int status = IPC_QUEUE_FULL;
        if (frame == nullptr || !header.IsPossible(true)) {
            status = frame == nullptr ? IPC_NO_RESOURCES : IPC_TOO_LARGE;
        } else {
            std::memcpy(frame, &header, sizeof(header));
            sent = PutOneWay(lane, frame, size);
        }
        if (sent.bytes != 0 && sent.status == IoStatus::WOULD_BLOCK) {
            try {
                lane.rest.assign(frame + sent.bytes, frame + size);
                Core::Get().Control().FlushLater(shared_from_this(), kind);
            } catch (const std::bad_alloc&) {  // Half a request: the lane cannot go on.
                sent.status = IoStatus::CLOSED;
            }
        }
        ParcelAccess::Truncate(data, dataBytes);
        if (sent.bytes != 0 && sent.status != IoStatus::CLOSED) {
            ++lane.lastSent;
            place = {lane.number, lane.lastSent};
            return IPC_OK;
        }
        if (sent.bytes == 0) {
            Withdraw({true, lane.number}, header.number);
        }
        if (sent.status != IoStatus::CLOSED) {
            return status;
        }
        CloseOneWay(lane);
        if (isFresh || sent.bytes != 0 || GetState() != State::UP) {
            return TransportError(IoStatus::CLOSED);
        }
    }
}

IoResult Session::PutOneWay(OneWayLane& lane, const void* frame, size_t size)
{
    if (!GoIntoRing(lane)) {
        return SendNow(lane.fd.Get(), frame, size);
    }
    bool needsBell = false;
    const IoResult put = lane.ring->Write(frame, size, needsBell);
    const uint8_t bell = 0;
    if (needsBell && SendNow(lane.fd.Get(), &bell, sizeof(bell)).status == IoStatus::CLOSED) {
        return {IoStatus::CLOSED, 0};  // Who slept there has ended.
    }
    return put;
}

bool Session::GoIntoRing(OneWayLane& lane)
{
    if (lane.ring == nullptr || lane.isInRing) {
        return lane.isInRing;
    }
    FrameHeader header;  // so small that it goes whole or not at all
    header.kind = FrameKind::INTO_RING;
    header.number = lane.lastSent + 1;
    lane.isInRing = SendNow(lane.fd.Get(), &header, sizeof(header)).status == IoStatus::OK;
    return lane.isInRing;
}

bool Session::OnRing(LaneKey lane, uint64_t fd)
try {
    std::unique_ptr<RingWriter> ring = RingWriter::Open(identity_.pid, fd, peer_, lane.number);
    MutexLock lock(oneWay_.mutex);
    if (oneWay_.fd.IsOpen() && oneWay_.number == lane.number && !oneWay_.isInRing) {
        oneWay_.ring.swap(ring);
    }
    lock.Unlock();
    return lane.own;
} catch (const std::bad_alloc&) {
    return true;  // It was an offer.
}

int Session::OpenOneWay(OneWayLane& lane, ConnectionKind kind)
{
    int status = IPC_OK;
    lane.number = nextLane_.fetch_add(1);
    lane.lastSent = 0;
    lane.fd = Connect(kind, lane.number, Clock::duration::zero(), status);
    return status;
}

void Session::CloseOneWay(OneWayLane& lane)
{
    lane.fd.Close();
    lane.rest.clear();
    lane.ring.reset();
    lane.isInRing = false;
    CloseOwnLane(lane.number, 0);
}

bool Session::FlushOneWay(ConnectionKind kind)
{
    OneWayLane& lane = kind == ConnectionKind::NOTICE_LANE ? notice_ : oneWay_;
    MutexLock lock(lane.mutex);
    if (!lane.fd.IsOpen() || lane.rest.empty()) {
        return true;
    }
    const IoResult sent = SendNow(lane.fd.Get(), lane.rest.data(), lane.rest.size());
    lane.rest.erase(lane.rest.begin(), lane.rest.begin() + static_cast<std::ptrdiff_t>(sent.bytes));
    if (sent.status == IoStatus::CLOSED) {
        CloseOneWay(lane);
    }
    return sent.status != IoStatus::WOULD_BLOCK;
}

}  // namespace TAVO::Transport
