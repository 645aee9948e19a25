// SPDX-License-Identifier: Apache-2.0
// The ring of a lane that is used without pause: when it is offered, how it is read, when it is released.
// The receiver decides, since only it knows how many requests arrive. The sender may ignore the offer; until its frame
// "into the ring" arrives the socket carries the requests. Then the socket carries bells only: single bytes that wake
// up a receiver that has announced its sleep in the ring. ringMutex_ guards the ring against the control thread, which
// ends idle rings; the thread that has the lane reads it without the lock.
#include <utility>

#include "base/warn_limited.h"
#include "transport/in_lane.h"
#include "transport/session_host.h"

namespace TAVO::Transport {
namespace {

constexpr uint64_t RING_MESSAGES = 256;              // So many one-way requests within
constexpr std::chrono::milliseconds RING_TIME{100};  // that time are worth a ring.
constexpr uint64_t NO_RING = UINT64_MAX;             // in a descriptor's place: the offer is withdrawn

}  // namespace

IoResult InLane::Receive(void* place, size_t size, bool wait)
{
    if (!IsInRing()) {
        // Non-blocking: the lane waits in the epoll, not here.
        if (!wait) {
            return ReceiveNow(fd_.Get(), place, size);
        }
        // One-way lanes do not poll: no caller waits for a result, so the processor time would be wasted.
        const IoResult got = IsCallLane() ? spin_.Receive(fd_.Get(), place, size) : IoResult{IoStatus::WOULD_BLOCK, 0};
        return got.status != IoStatus::WOULD_BLOCK ? got : ReceiveOnce(fd_.Get(), place, size);
    }
    IoResult got = OwnRing().Read(place, size);
    if (got.status == IoStatus::WOULD_BLOCK && wait && !hasEnded_) {
        ringUsedAt_.store(Clock::now().time_since_epoch().count(), std::memory_order_relaxed);
        // Sleep() looks into the ring again after it has announced the sleep: a frame written in between needs no bell.
        if (OwnRing().Sleep()) {
            TakeBells(true);
        }
        got = OwnRing().Read(place, size);
    }
    // The sender has ended, and what it had published before is read: only now the lane ends.
    if (got.status == IoStatus::WOULD_BLOCK && hasEnded_) {
        got.status = IoStatus::CLOSED;
    }
    return got;
}

void InLane::TakeBells(bool wait)
{
    // More than one bell may be unread, from wake-ups for which this end had not waited. Their number has no meaning.
    uint8_t bells[16];
    const IoResult got =
        wait ? ReceiveOnce(fd_.Get(), bells, sizeof(bells)) : ReceiveNow(fd_.Get(), bells, sizeof(bells));
    hasEnded_ = hasEnded_ || got.status == IoStatus::CLOSED;
    // Also if no bell was read: the state must not stay "asleep" while the lane is served, or the sender rings for each
    // frame.
    OwnRing().WakeUp();
}

void InLane::OfferRing(uint64_t number)
{
    // The numbers of the messages count them already; the clock is read for one in 256.
    if (number % RING_MESSAGES != 0 || Kind() != ConnectionKind::ONE_WAY_LANE || IsInRing()) {
        return;
    }
    const Clock::time_point before = std::exchange(lastMark_, Clock::now());
    if (lastMark_ - before > RING_TIME) {
        return;
    }
    MutexLock lock(ringMutex_);
    if (ring_ != nullptr || (ring_ = RingReader::Make(services_.host.Self(), Number())) == nullptr) {
        return;
    }
    ringUsedAt_.store(lastMark_.time_since_epoch().count(), std::memory_order_relaxed);
    // The number of a descriptor, not the descriptor: the sender opens it below /proc, if it can.
    session_->Control().Send({RecordType::RING, 0, Number(), static_cast<uint64_t>(ring_->Fd())});
    // ExpectIdleLanes takes a lock of the event loop, which the order of locks puts before this one.
    lock.Unlock();
    services_.timers.ExpectIdleLanes();
}

bool InLane::GoIntoRing()
{
    MutexLock lock(ringMutex_);
    if (ring_ == nullptr || isInRing_) {
        WarnLimited("a peer switched to a ring that was not offered", "its lane was closed");
        return false;
    }
    isInRing_ = true;
    // The mapping stays. The sender has opened the file by now, so it needs no name any more, and a descriptor is
    // saved.
    ring_->CloseFd();
    ring_->WakeUp();
    // Bytes behind the last frame of the socket can only be bells: the sender writes frames into the ring from here on.
    input_.DropStash();
    return true;
}

bool InLane::EndIdleRing(Clock::time_point before)
{
    MutexLock lock(ringMutex_);
    if (ring_ == nullptr) {
        return false;
    }
    // EndIfUnused fails if something is unread: the frames in it were accepted by the sender's call, and must run.
    if (ringUsedAt_.load(std::memory_order_relaxed) >= before.time_since_epoch().count() || !ring_->EndIfUnused()) {
        return true;
    }
    if (isInRing_) {
        ShutDown();
    } else {
        ring_.reset();
        // Otherwise the sender could open a descriptor that has another meaning by then. It also checks what it opens.
        session_->Control().Send({RecordType::RING, 0, Number(), NO_RING});
    }
    return false;
}

}  // namespace TAVO::Transport
