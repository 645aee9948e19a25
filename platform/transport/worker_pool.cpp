// SPDX-License-Identifier: Apache-2.0
// Workers wait together in one epoll, for lanes and for jobs. A worker that takes work while no other is free has the
// epoll watched by the control thread, which starts another worker once more work waits. A worker that waits for the
// answer to a call of its own does not count. Idle workers end after a while, but for a few.
#include "transport/worker_pool.h"

#include <sys/epoll.h>

#include <cerrno>
#include <new>
#include <utility>

#include "base/warn_limited.h"
#include "os/threads.h"
#include "transport/lane_scratch.h"
#include "transport/peer_lane.h"

namespace TAVO::Transport {
namespace {

constexpr int IDLE_MILLISECONDS = 5000;

thread_local WorkerPool* t_pool = nullptr;

}  // namespace

WorkerPool* WorkerPool::OfThisThread() noexcept
{
    return t_pool;
}

bool WorkerPool::Open()
{
    MutexLock lock(mutex_);
    return wait_.Open();
}

bool WorkerPool::AddLane(const std::shared_ptr<PeerLane>& lane)
{
    // A lane without a thread to serve it must be refused, so that its caller gets an error instead of a timeout.
    EnsureSpare();
    {
        MutexLock lock(mutex_);
        if (total_ == 0) {
            return false;
        }
    }
    lane->Join(wait_.Epoll());
    return true;
}

bool WorkerPool::Post(std::function<void()> job) noexcept
{
    try {
        MutexLock lock(mutex_);
        if (!wait_.Open()) {
            return false;
        }
        jobs_.push_back(std::move(job));
    } catch (const std::bad_alloc&) {
        return false;
    }
    wait_.Signal();
    EnsureSpare();
    return true;
}

bool WorkerPool::BeginOutgoing()
{
    MutexLock lock(mutex_);
    ++outgoing_;
    // The caller is counted as outgoing already, so MaySpawn has one place more.
    if (HasSpare() || !MaySpawn()) {
        // The workers of a nest of calls that has just returned are not idle yet, but they have left their handlers.
        const int most = static_cast<int>(IpcThreads::MAX_THREADS);
        const bool exhausted = !HasSpare() && total_ >= most && handling_.load(std::memory_order_relaxed) >= most;
        if (exhausted) {
            --outgoing_;
        }
        return !exhausted;
    }
    Spawn();  // Without another thread the call goes on all the same: the callee may not need one.
    return true;
}

void WorkerPool::EndOutgoing()
{
    MutexLock lock(mutex_);
    --outgoing_;
}

bool WorkerPool::EnsureSpare()
{
    if (HasSpare()) {
        return true;
    }
    MutexLock lock(mutex_);
    return HasSpare() || (MaySpawn() && Spawn());
}

bool WorkerPool::MayGrow()
{
    MutexLock lock(mutex_);
    return MaySpawn();
}

bool WorkerPool::MaySpawn() const
{
    // Two limits: 16 workers that are not waiting for a call of their own, and 64 threads in all, so that circles of
    // nested calls end with an error instead of using up the machine.
    return total_ - outgoing_ < static_cast<int>(IpcThreads::DEFAULT_WORKERS) &&
           total_ < static_cast<int>(IpcThreads::MAX_THREADS);
}

bool WorkerPool::Spawn()
{
    // Counted before it runs: two callers must not both start the last thread that is allowed.
    ++total_;
    idle_.fetch_add(1, std::memory_order_relaxed);
    if (StartThread(ThreadRole::WORKER, "tavo-worker", [this] { Run(); })) {
        return true;
    }
    --total_;
    idle_.fetch_sub(1, std::memory_order_relaxed);
    WarnLimited("no thread can be started for requests",
                "the running ones go on; raise the limit of processes (ulimit -u)");
    return false;
}

bool WorkerPool::RetireIdle()
{
    MutexLock lock(mutex_);
    if (total_ <= KEPT) {
        return false;
    }
    if (idle_.fetch_sub(1, std::memory_order_relaxed) == 1) {  // The last free one, whatever the others wait for.
        idle_.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    --total_;
    return true;
}

void WorkerPool::Run()
{
    t_pool = this;
    for (;;) {
        epoll_event event{};
        // One event at a time: with more, the others would wait for the handler of the first.
        const int ready = ::epoll_wait(wait_.Epoll(), &event, 1, IDLE_MILLISECONDS);
        if (ready == 0 && RetireIdle()) {
            FreeLaneScratch();
            return;
        }
        // EINTR, or one of the threads that are kept.
        if (ready <= 0) {
            continue;
        }
        idle_.fetch_sub(1, std::memory_order_relaxed);
        // This was the last free worker. Starting another at once would make each single call pay for a thread. So the
        // control thread watches the epoll of the pool, and starts one only if more work arrives before a worker is
        // free again. If it cannot watch, one is started here.
        if (!HasSpare() && MayGrow() && !watch_()) {
            EnsureSpare();
        }
        if (event.data.ptr == nullptr) {  // anything else is a lane
            RunOneJob();
        } else {
            static_cast<PeerLane*>(event.data.ptr)->Serve(event.events);
        }
        idle_.fetch_add(1, std::memory_order_relaxed);
    }
}

void WorkerPool::RunOneJob()
{
    std::function<void()> job;
    bool hasMore = false;
    {
        MutexLock lock(mutex_);
        if (jobs_.empty()) {
            return;  // The signal had come after a worker signalled for what it left.
        }
        job = std::move(jobs_.front());
        jobs_.pop_front();
        hasMore = !jobs_.empty();
    }
    if (hasMore) {
        wait_.Signal();  // This worker may have received the signals of several jobs, and takes one.
    }
    job();
}

}  // namespace TAVO::Transport
