// SPDX-License-Identifier: Apache-2.0
// The ring of a lane that is used without pause: when it is offered, how it is read, when it is released.
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
        if (!wait) {
            return ReceiveNow(fd_.Get(), place, size);
        }
        const IoResult got = IsCallLane() ? spin_.Receive(fd_.Get(), place, size) : IoResult{IoStatus::WOULD_BLOCK, 0};
        return got.status != IoStatus::WOULD_BLOCK ? got : ReceiveOnce(fd_.Get(), place, size);
    }
    IoResult got = OwnRing().Read(place, size);
    if (got.status == IoStatus::WOULD_BLOCK && wait && !hasEnded_) {
        ringUsedAt_.store(Clock::now().time_since_epoch().count(), std::memory_order_relaxed);
        if (OwnRing().Sleep()) {
            TakeBells(true);
        }
        got = OwnRing().Read(place, size);
    }
    if (got.status == IoStatus::WOULD_BLOCK && hasEnded_) {
        got.status = IoStatus::CLOSED;
    }
    return got;
}

void InLane::TakeBells(bool wait)
{
    uint8_t bells[16];
    const IoResult got =
        wait ? ReceiveOnce(fd_.Get(), bells, sizeof(bells)) : ReceiveNow(fd_.Get(), bells, sizeof(bells));
    hasEnded_ = hasEnded_ || got.status == IoStatus::CLOSED;
    OwnRing().WakeUp();
}

void InLane::OfferRing(uint64_t number)
{
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
    session_->Control().Send({RecordType::RING, 0, Number(), static_cast<uint64_t>(ring_->Fd())});
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
    ring_->CloseFd();
    ring_->WakeUp();
    std::vector<uint8_t>().swap(stash_);  // bells
    stashUsed_ = 0;
    return true;
}

bool InLane::EndIdleRing(Clock::time_point before)
{
    MutexLock lock(ringMutex_);
    if (ring_ == nullptr) {
        return false;
    }
    if (ringUsedAt_.load(std::memory_order_relaxed) >= before.time_since_epoch().count() || !ring_->EndIfUnused()) {
        return true;
    }
    if (isInRing_) {
        ShutDown();
    } else {
        ring_.reset();
        session_->Control().Send({RecordType::RING, 0, Number(), NO_RING});
    }
    return false;
}

}  // namespace TAVO::Transport
