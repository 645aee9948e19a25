// SPDX-License-Identifier: Apache-2.0
// One-way requests go out in order, from whichever thread sends them. If the socket accepts nothing of a request, it is
// refused (IPC_QUEUE_FULL). If it accepts a part, the rest is copied, the control thread sends it, and meanwhile all
// further requests are refused. A receiver that gets many requests offers a ring, and from then on they go through it.
#include "transport/one_way_lane.h"

#include <new>
#include <utility>

#include "transport/session_host.h"

namespace TAVO::Transport {

int OneWayLane::Send(uint64_t serial, uint32_t code, MessageParcel& data, MessagePlace& place)
{
    MutexLock lock(mutex_);
    // Half a request is in the socket; another one behind it would be read as its end.
    if (!rest_.empty()) {
        return IPC_QUEUE_FULL;
    }
    if (fd_.IsOpen()) {
        const Attempt attempt = TrySend(serial, code, data, place);
        // The receiver may have ended the lane (an idle ring does so). If no byte of the request was sent, it is sent
        // once more on a new lane.
        if (!attempt.mayRetry || context_.State() != SessionState::ESTABLISHED) {
            return attempt.status;
        }
    }
    if (const int status = Open(); status != IPC_OK) {
        return status;
    }
    return TrySend(serial, code, data, place).status;
}

OneWayLane::Attempt OneWayLane::TrySend(uint64_t serial, uint32_t code, MessageParcel& data, MessagePlace& place)
{
    FrameHeader header;
    header.codeOrStatus = code;
    header.number = lastSent_ + 1;
    header.serial = serial;
    OutgoingFrame frame(data, references_, number_);
    if (const int status = frame.Build(header, true, Deadline()); status != IPC_OK) {
        if (status == IPC_BROKEN) {
            CloseLocked();
            return {status, true};
        }
        return {status == IPC_TIMED_OUT ? IPC_QUEUE_FULL : status};  // It never waits: the caller tries again.
    }
    IoResult sent = Put(frame.Data(), frame.Size());
    if (sent.bytes != 0 && sent.status == IoStatus::WOULD_BLOCK &&
        !KeepRest(frame.Data() + sent.bytes, frame.Size() - sent.bytes)) {
        sent.status = IoStatus::CLOSED;  // The lane cannot go on after half a request.
    }
    // The whole request, or a part whose rest is kept: for the sender it is accepted.
    if (sent.bytes != 0 && sent.status != IoStatus::CLOSED) {
        ++lastSent_;
        // A RELEASE of the target that follows names this message (AFTER), since it travels on another connection.
        place = {number_, lastSent_};
        return {IPC_OK};
    }
    if (sent.bytes == 0) {
        frame.Withdraw();
    }
    if (sent.status != IoStatus::CLOSED) {
        return {IPC_QUEUE_FULL};
    }
    CloseLocked();
    return {context_.State() == SessionState::DEAD ? IPC_DEAD_OBJECT : IPC_BROKEN, sent.bytes == 0};
}

IoResult OneWayLane::Put(const uint8_t* frame, size_t size)
{
    if (!GoIntoRing()) {
        return SendNow(fd_.Get(), frame, size);
    }
    bool needsBell = false;
    const IoResult put = ring_->Write(frame, size, needsBell);
    const uint8_t bell = 0;
    // Bells do not fill the socket: the receiver is marked awake with the first, and the next is sent only after it has
    // gone to sleep again.
    if (needsBell && SendNow(fd_.Get(), &bell, sizeof(bell)).status == IoStatus::CLOSED) {
        return {IoStatus::CLOSED, 0};  // The receiver has ended in its sleep.
    }
    return put;
}

bool OneWayLane::KeepRest(const uint8_t* rest, size_t size)
try {
    rest_.assign(rest, rest + size);
    return context_.host.FlushLater(context_.session.lock(), kind_);
} catch (const std::bad_alloc&) {
    return false;
}

bool OneWayLane::GoIntoRing()
{
    // The switch is made at the next send, by the thread that sends, so that it falls between two frames.
    if (ring_ == nullptr || isInRing_) {
        return isInRing_;
    }
    FrameHeader header;  // so small that it is sent whole or not at all
    header.kind = FrameKind::INTO_RING;
    header.number = lastSent_ + 1;
    // With a full socket the switch waits for the next send.
    isInRing_ = SendNow(fd_.Get(), &header, sizeof(header)).status == IoStatus::OK;
    return isInRing_;
}

void OneWayLane::OfferRing(uint64_t number, std::unique_ptr<RingWriter> ring)
{
    MutexLock lock(mutex_);
    // The offer may be for a lane that has been closed. Null withdraws the offer, which is too late once it is used.
    if (fd_.IsOpen() && number_ == number && !isInRing_) {
        // The replaced ring is unmapped after the lock.
        ring_.swap(ring);
    }
    lock.Unlock();
}

int OneWayLane::Open()
{
    LaneOpener::Opened opened = opener_.Open(kind_, Clock::duration::zero());
    number_ = opened.number;
    lastSent_ = 0;
    fd_ = std::move(opened.fd);
    return opened.status;
}

void OneWayLane::OnClosedByPeer(uint64_t number)
{
    MutexLock lock(mutex_);
    if (fd_.IsOpen() && number_ == number) {
        CloseLocked();  // Its ring is of no use any more.
    }
}

void OneWayLane::Close() noexcept
{
    MutexLock lock(mutex_);
    if (fd_.IsOpen()) {
        CloseLocked();
    }
}

void OneWayLane::CloseLocked()
{
    // Requests in the ring are not lost: the receiver reads everything that was published before it ends the lane.
    fd_.Close();
    rest_.clear();
    ring_.reset();
    isInRing_ = false;
    opener_.Close(number_, 0);
}

bool OneWayLane::Flush()
{
    MutexLock lock(mutex_);
    if (!fd_.IsOpen() || rest_.empty()) {
        return true;
    }
    const IoResult sent = SendNow(fd_.Get(), rest_.data(), rest_.size());
    rest_.erase(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(sent.bytes));
    if (sent.status == IoStatus::CLOSED) {
        CloseLocked();
    }
    // False: the timers call again in a few milliseconds.
    return sent.status != IoStatus::WOULD_BLOCK;
}

}  // namespace TAVO::Transport
