// SPDX-License-Identifier: Apache-2.0
// Grows when the last free worker takes work, shrinks after a while without any.
#include "transport/worker_pool.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <new>
#include <utility>

#include "transport/in_lane.h"
#include "transport/threads.h"

namespace TAVO::Transport {
namespace {

constexpr int IDLE_MILLISECONDS = 5000;

}  // namespace

WorkerPool::WorkerPool()
    : epoll_(::epoll_create1(EPOLL_CLOEXEC)), jobsReady_(::eventfd(0, EFD_SEMAPHORE | EFD_NONBLOCK | EFD_CLOEXEC))
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = nullptr;  // null: jobs; anything else is a lane
    ::epoll_ctl(epoll_.Get(), EPOLL_CTL_ADD, jobsReady_.Get(), &event);
}

void WorkerPool::AddLane(const std::shared_ptr<InLane>& lane)
{
    EnsureSpare();
    lane->Join(epoll_.Get());
}

bool WorkerPool::Post(std::function<void()> job) noexcept
{
    try {
        MutexLock lock(mutex_);
        jobs_.push_back(std::move(job));
    } catch (const std::bad_alloc&) {
        return false;
    }
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(jobsReady_.Get(), &one, sizeof(one));
    EnsureSpare();
    return true;
}

bool WorkerPool::SetMax(size_t workers)
{
    if (workers < 1 || workers > IpcThreads::MAX_THREADS) {
        return false;
    }
    MutexLock lock(mutex_);
    max_ = static_cast<int>(workers);
    return true;
}

bool WorkerPool::BeginOutgoing()
{
    MutexLock lock(mutex_);
    ++outgoing_;
    if (HasSpare() || !MaySpawn()) {
        const bool exhausted = !HasSpare() && total_ >= static_cast<int>(IpcThreads::MAX_THREADS);
        if (exhausted) {
            --outgoing_;
        }
        return !exhausted;
    }
    Spawn();  // Without another thread the call goes on all the same: whoever answers it may not need one.
    return true;
}

void WorkerPool::EndOutgoing()
{
    MutexLock lock(mutex_);
    --outgoing_;
}

void WorkerPool::EnsureSpare()
{
    if (HasSpare()) {
        return;
    }
    MutexLock lock(mutex_);
    if (!HasSpare() && MaySpawn()) {
        Spawn();
    }
}

bool WorkerPool::MaySpawn() const
{
    return total_ - outgoing_ < max_ && total_ < static_cast<int>(IpcThreads::MAX_THREADS);
}

bool WorkerPool::Spawn()
{
    ++total_;
    idle_.fetch_add(1, std::memory_order_relaxed);
    if (StartThread(ThreadRole::WORKER, "tavo-worker", [this] { Run(); })) {
        return true;
    }
    --total_;
    idle_.fetch_sub(1, std::memory_order_relaxed);
    WarnLimited("no thread for requests", "going on with those that run");
    return false;
}

bool WorkerPool::RetireIdle()
{
    MutexLock lock(mutex_);
    if (total_ <= KEPT) {
        return false;
    }
    --total_;
    idle_.fetch_sub(1, std::memory_order_relaxed);
    return true;
}

void WorkerPool::Run()
{
    for (;;) {
        epoll_event event{};
        const int ready = ::epoll_wait(epoll_.Get(), &event, 1, IDLE_MILLISECONDS);
        if (ready == 0 && RetireIdle()) {
            return;
        }
        if (ready <= 0) {
            continue;
        }
        idle_.fetch_sub(1, std::memory_order_relaxed);
        EnsureSpare();
        if (event.data.ptr == nullptr) {
            RunOneJob();
        } else {
            static_cast<InLane*>(event.data.ptr)->Serve(event.events);
        }
        idle_.fetch_add(1, std::memory_order_relaxed);
    }
}

void WorkerPool::RunOneJob()
{
    uint64_t unit = 0;
    std::function<void()> job;
    {
        MutexLock lock(mutex_);
        if (jobs_.empty() || ::read(jobsReady_.Get(), &unit, sizeof(unit)) != sizeof(unit)) {
            return;  // Another worker was quicker.
        }
        job = std::move(jobs_.front());
        jobs_.pop_front();
    }
    job();
}

}  // namespace TAVO::Transport
