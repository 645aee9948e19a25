// SPDX-License-Identifier: Apache-2.0
// One loop over queued notices and notice lanes.
#include "transport/delivery_thread.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <exception>
#include <new>
#include <utility>

#include "transport/in_lane.h"
#include "transport/threads.h"

namespace TAVO::Transport {

DeliveryThread::DeliveryThread()
    : epoll_(::epoll_create1(EPOLL_CLOEXEC)), jobsReady_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = nullptr;  // null: jobs; anything else is a lane
    ::epoll_ctl(epoll_.Get(), EPOLL_CTL_ADD, jobsReady_.Get(), &event);
}

bool DeliveryThread::Start()
{
    isRunning_ = isRunning_ || StartThread(ThreadRole::DELIVERY, "tavo-delivery", [this] { Run(); });
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
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(jobsReady_.Get(), &one, sizeof(one));
    return true;
}

void DeliveryThread::AddLane(const std::shared_ptr<InLane>& lane)
{
    {
        MutexLock lock(mutex_);
        Start();
    }
    lane->Join(epoll_.Get());
}

void DeliveryThread::Run()
{
    for (;;) {
        epoll_event event{};
        if (::epoll_wait(epoll_.Get(), &event, 1, -1) <= 0) {
            continue;
        }
        if (event.data.ptr == nullptr) {
            RunJobs();
        } else {
            static_cast<InLane*>(event.data.ptr)->Serve(event.events);
        }
    }
}

void DeliveryThread::RunJobs()
{
    uint64_t units = 0;
    [[maybe_unused]] const ssize_t got = ::read(jobsReady_.Get(), &units, sizeof(units));
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
