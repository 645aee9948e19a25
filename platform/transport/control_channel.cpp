// SPDX-License-Identifier: Apache-2.0
// Records are appended to one queue and sent from its front. Before the session is established they may follow our
// hello. They count only if the peer accepts that hello, so they stay in the queue until its answer, and are sent again
// on the connection that is used. A record that cannot be queued would be missing for ever: it ends the session, by
// shutting the connection down, which the control thread notices.
#include "transport/control_channel.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <new>

#include "os/fd.h"

namespace TAVO::Transport {

ControlChannel::HelloSent ControlChannel::SendHello(int fd, const Instance& self)
{
    Hello hello;
    hello.instance = self;
    MutexLock lock(mutex_);
    // The check and the send are under one lock, so that YieldToPeer on the control thread either sees that the hello
    // was sent, or prevents it.
    if (hasYielded_ || isClosed_ || epoll_ >= 0) {
        return HelloSent::PEER_WAS_FIRST;
    }
    if (SendNow(fd, &hello, sizeof(hello)).status != IoStatus::OK) {
        return HelloSent::FAILED;
    }
    hasSentHello_ = true;
    fd_ = fd;
    // Records queued so far follow the hello at once: an ACQUIRE among them must not wait for the answer, since the
    // process that sent the reference may be dead by then.
    FlushLocked();
    return HelloSent::SENT;
}

bool ControlChannel::YieldToPeer(bool ownPrevails)
{
    MutexLock lock(mutex_);
    // Both ends compare the two instances, so they agree on the connection that stays. Once yielded, never again our
    // own: the peer may already use the other one.
    hasYielded_ = hasYielded_ || !(hasSentHello_ && ownPrevails);
    if (hasYielded_) {
        DetachLocked();
    }
    return hasYielded_;
}

void ControlChannel::WithdrawHello()
{
    MutexLock lock(mutex_);
    hasSentHello_ = false;
    DetachLocked();
}

void ControlChannel::Detach(int fd)
{
    MutexLock lock(mutex_);
    if (fd_ == fd) {
        DetachLocked();
    }
}

void ControlChannel::DetachLocked()
{
    fd_ = -1;
    sentEarly_ = 0;
}

void ControlChannel::Establish(int fd, int epoll, void* tag)
{
    MutexLock lock(mutex_);
    fd_ = fd;
    epoll_ = epoll;
    tag_ = tag;
    // What was sent behind an accepted hello has counted. DetachLocked sets sentEarly_ to 0 for a refused hello, and
    // then nothing is erased: all of it is sent again here.
    unsent_.erase(unsent_.begin(), unsent_.begin() + static_cast<std::ptrdiff_t>(sentEarly_));
    sentEarly_ = 0;
    if (isBroken_) {
        BreakLocked();
    }
    FlushLocked();
}

void ControlChannel::Close() noexcept
{
    MutexLock lock(mutex_);
    DetachLocked();
    unsent_.clear();
    isClosed_ = true;
}

bool ControlChannel::HasHungUp()
{
    MutexLock lock(mutex_);
    return fd_ < 0 || Transport::HasHungUp(fd_);
}

void ControlChannel::BreakLocked()
{
    isBroken_ = true;
    if (fd_ >= 0) {
        // Only the control thread closes the connection. A shutdown, unlike a close, is safe while that thread has the
        // descriptor in its epoll: it wakes up with EPOLLHUP and ends the session.
        ::shutdown(fd_, SHUT_RDWR);
    }
}

void ControlChannel::Send(const ControlRecord& record)
{
    MutexLock lock(mutex_);
    SendLocked(record);
}

void ControlChannel::SendRelease(uint64_t serial, uint64_t count, const MessagePlace& after)
{
    // Both under one lock: no other thread's RELEASE may come between.
    MutexLock lock(mutex_);
    if (after.lane != 0) {
        SendLocked({RecordType::AFTER, ControlRecord::OWN_LANE, after.lane, after.number});
    }
    SendLocked({RecordType::RELEASE, 0, serial, count});
}

void ControlChannel::SendLocked(const ControlRecord& record)
{
    // The session is dead: no peer reads the record.
    if (isClosed_) {
        return;
    }
    if (unsent_.size() > MAX_UNSENT_BYTES) {  // The peer has not read for very long.
        BreakLocked();
        return;
    }
    const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
    try {
        // Appended to the queue even if the socket has room: records take effect in their order, and part of an earlier
        // one may still be queued.
        unsent_.insert(unsent_.end(), bytes, bytes + sizeof(record));
    } catch (const std::bad_alloc&) {
        BreakLocked();
        return;
    }
    FlushLocked();
}

bool ControlChannel::Flush()
{
    MutexLock lock(mutex_);
    return FlushLocked();
}

bool ControlChannel::FlushLocked()
{
    if (fd_ < 0) {
        return true;
    }
    // Not established: the hello was sent, its answer is awaited. No EPOLLOUT can be requested yet, so what does not
    // fit waits for Establish.
    if (epoll_ < 0) {
        sentEarly_ += SendNow(fd_, unsent_.data() + sentEarly_, unsent_.size() - sentEarly_).bytes;
        return true;
    }
    if (unsent_.empty() && !awaitsRoom_) {
        return true;
    }
    bool alive = true;
    if (!unsent_.empty()) {
        const IoResult sent = SendNow(fd_, unsent_.data(), unsent_.size());
        unsent_.erase(unsent_.begin(), unsent_.begin() + static_cast<std::ptrdiff_t>(sent.bytes));
        if (sent.status == IoStatus::OK) {
            return true;
        }
        // WOULD_BLOCK is no error. CLOSED is noticed by the control thread too, which reads what the peer had sent
        // before.
        alive = sent.status != IoStatus::CLOSED;
    }
    // Interest in writing follows from the queue each time, instead of being remembered: so the epoll never reports a
    // writable socket with nothing to send, which would be a busy loop.
    awaitsRoom_ = !unsent_.empty();
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP | (awaitsRoom_ ? static_cast<uint32_t>(EPOLLOUT) : 0U);
    event.data.ptr = tag_;
    ::epoll_ctl(epoll_, EPOLL_CTL_MOD, fd_, &event);
    return alive;
}

}  // namespace TAVO::Transport
