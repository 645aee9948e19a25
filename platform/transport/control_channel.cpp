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
    if (hasYielded_ || isClosed_ || epoll_ >= 0) {
        return HelloSent::PEER_WAS_FIRST;
    }
    if (SendNow(fd, &hello, sizeof(hello)).status != IoStatus::OK) {
        return HelloSent::FAILED;
    }
    hasSentHello_ = true;
    fd_ = fd;
    FlushLocked();
    return HelloSent::SENT;
}

bool ControlChannel::YieldToPeer(bool ownPrevails)
{
    MutexLock lock(mutex_);
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
    if (isClosed_) {
        return;
    }
    if (unsent_.size() > MAX_UNSENT_BYTES) {  // The peer has not read for very long.
        BreakLocked();
        return;
    }
    const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
    try {
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
        alive = sent.status != IoStatus::CLOSED;
    }
    awaitsRoom_ = !unsent_.empty();
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP | (awaitsRoom_ ? static_cast<uint32_t>(EPOLLOUT) : 0U);
    event.data.ptr = tag_;
    ::epoll_ctl(epoll_, EPOLL_CTL_MOD, fd_, &event);
    return alive;
}

}  // namespace TAVO::Transport
