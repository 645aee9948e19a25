// SPDX-License-Identifier: Apache-2.0
// The thread that runs death notices and load callbacks, so that no request handler can delay them.
#ifndef TAVO_TRANSPORT_DELIVERY_THREAD_H
#define TAVO_TRANSPORT_DELIVERY_THREAD_H

#include <atomic>
#include <memory>

#include "os/wait_set.h"
#include "tavo/mutex.h"
#include "tavo/ref_base.h"
#include "transport/event_loop.h"
#include "transport/peer_object.h"

namespace TAVO::Transport {

class PeerLane;

// Started at its first use.
class DeliveryThread final : public LoopPart {
public:
    // Opens what the thread waits with; false when no descriptor is left.
    bool Open();
    // Starts the thread now; false if it cannot be started.
    bool EnsureRunning() noexcept;
    // Notifies the recipients of a dead object, after those of objects that died before. Each object once. Allocates
    // nothing: the objects form the queue. Without a thread they stay queued until one can be started.
    void PostDeath(sptr<PeerObject> object) noexcept;
    // Serves a lane of notices from now on. False when the thread cannot be started.
    bool AddLane(const std::shared_ptr<PeerLane>& lane);

    // Control thread: starts the thread if notices are queued and that has failed before.
    int TickMilliseconds() const override { return isStarved_.load(std::memory_order_relaxed) ? 100 : -1; }
    void OnTick(Clock::time_point now) override;

private:
    // Notices are queued.
    void WakeUp() noexcept;
    bool Start() noexcept TAVO_REQUIRES(mutex_);
    void Run();
    void NotifyQueued();

    WaitSet wait_;
    Mutex mutex_;
    bool isRunning_ TAVO_GUARDED_BY(mutex_) = false;
    sptr<PeerObject> firstDead_ TAVO_GUARDED_BY(mutex_);      // linked by nextDead_
    PeerObject* lastDead_ TAVO_GUARDED_BY(mutex_) = nullptr;  // null: the queue is empty
    std::atomic<bool> isStarved_{false};                      // notices are queued, and the thread could not be started
};

}  // namespace TAVO::Transport

#endif
