// SPDX-License-Identifier: Apache-2.0
// One loop over the queue of dead objects and the notice lanes. A death notice must not get lost, least of all when the
// process is out of memory: so the queue is made of the dead objects themselves.
#include "transport/delivery_thread.h"

#include <sys/epoll.h>

#include <utility>

#include "os/threads.h"
#include "transport/peer_lane.h"

namespace TAVO::Transport {

bool DeliveryThread::Open()
{
    MutexLock lock(mutex_);
    // When the loop is opened, before the first connection: a death must not find that no descriptor is left.
    return wait_.Open();
}

bool DeliveryThread::Start() noexcept
{
    isRunning_ = isRunning_ || (wait_.Open() && StartThread(ThreadRole::DELIVERY, "tavo-delivery", [this] { Run(); }));
    return isRunning_;
}

bool DeliveryThread::EnsureRunning() noexcept
{
    MutexLock lock(mutex_);
    return Start();
}

void DeliveryThread::PostDeath(sptr<PeerObject> object) noexcept
{
    {
        MutexLock lock(mutex_);
        PeerObject* const added = object.Get();
        // A list that is linked through the objects: each is dead once, so it is in the list once, and the list holds a
        // reference to it.
        (lastDead_ != nullptr ? lastDead_->nextDead_ : firstDead_) = std::move(object);
        lastDead_ = added;
    }
    WakeUp();
}

void DeliveryThread::OnTick(Clock::time_point)
{
    if (isStarved_.load(std::memory_order_relaxed)) {
        WakeUp();
    }
}

void DeliveryThread::WakeUp() noexcept
{
    MutexLock lock(mutex_);
    // No thread could be started (RLIMIT_NPROC, memory). The queue stays, and the control thread tries again at each
    // tick.
    isStarved_.store(!Start(), std::memory_order_relaxed);
    if (isRunning_) {
        wait_.Signal();
    }
}

bool DeliveryThread::AddLane(const std::shared_ptr<PeerLane>& lane)
{
    if (!EnsureRunning()) {
        return false;
    }
    lane->Join(wait_.Epoll());
    return true;
}

void DeliveryThread::Run()
{
    for (;;) {
        epoll_event event{};
        if (::epoll_wait(wait_.Epoll(), &event, 1, -1) <= 0) {
            continue;
        }
        if (event.data.ptr == nullptr) {  // anything else is a lane
            NotifyQueued();
        } else {
            // A notice of the manager: no request handler delays it, but a death recipient that runs long does.
            static_cast<PeerLane*>(event.data.ptr)->Serve(event.events);
        }
    }
}

void DeliveryThread::NotifyQueued()
{
    for (;;) {
        sptr<PeerObject> dead;
        {
            MutexLock lock(mutex_);
            if (lastDead_ == nullptr) {
                return;
            }
            // One at a time and without the lock: a recipient may run for long, and further deaths are queued
            // meanwhile.
            dead = std::move(firstDead_);
            firstDead_ = std::move(dead->nextDead_);
            if (firstDead_ == nullptr) {
                lastDead_ = nullptr;
            }
        }
        dead->NotifyRecipients();
    }
}

}  // namespace TAVO::Transport
