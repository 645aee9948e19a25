// SPDX-License-Identifier: Apache-2.0
// One loop over queued notices and notice lanes.
#include "transport/delivery_thread.h"

#include <sys/epoll.h>

#include <exception>
#include <new>
#include <utility>

#include "transport/in_lane.h"
#include "transport/threads.h"

namespace TAVO::Transport {

bool DeliveryThread::Open()
{
    MutexLock lock(mutex_);
    return wait_.Open();
}

bool DeliveryThread::Start()
{
    isRunning_ = isRunning_ || (wait_.Open() && StartThread(ThreadRole::DELIVERY, "tavo-delivery", [this] { Run(); }));
    return isRunning_;
}

bool DeliveryThread::Post(std::function<void()> job) noexcept
{
    try {
        MutexLock lock(mutex_);
        if (!Start()) {
            return false;
        }
        jobs_.push_back(std::move(job));
    } catch (const std::bad_alloc&) {
        return false;
    }
    wait_.Signal();
    return true;
}

bool DeliveryThread::AddLane(const std::shared_ptr<InLane>& lane)
{
    {
        MutexLock lock(mutex_);
        if (!Start()) {
            return false;
        }
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
            RunJobs();
        } else {
            static_cast<InLane*>(event.data.ptr)->Serve(event.events);
        }
    }
}

void DeliveryThread::RunJobs()
{
    wait_.Take();
    for (;;) {
        std::function<void()> job;
        {
            MutexLock lock(mutex_);
            if (jobs_.empty()) {
                return;
            }
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        job();
    }
}

}  // namespace TAVO::Transport
