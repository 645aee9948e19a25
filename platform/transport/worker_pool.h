// SPDX-License-Identifier: Apache-2.0
// The threads that handle requests: they wait in one epoll for lanes and for jobs.
#ifndef TAVO_TRANSPORT_WORKER_POOL_H
#define TAVO_TRANSPORT_WORKER_POOL_H

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <utility>

#include "os/wait_set.h"
#include "tavo/ipc_threads.h"
#include "tavo/mutex.h"

namespace TAVO::Transport {

class PeerLane;

class WorkerPool {
public:
    static constexpr int KEPT = 4;
    static constexpr int MAX_LONG_STAYS = 2;

    // `watch` has EnsureSpare called, by a thread outside the pool, once work waits. False when it cannot.
    explicit WorkerPool(std::function<bool()> watch) : watch_(std::move(watch)) {}
    // The pool that the calling thread is a worker of; null elsewhere.
    static WorkerPool* OfThisThread() noexcept;

    // Opens what the workers wait with; false when no descriptor is left.
    bool Open();
    // What the workers wait with; readable while work waits for one.
    int Epoll() const noexcept { return wait_.Epoll(); }
    // Starts a worker if none is free; false when there is none then.
    bool EnsureSpare();
    // Hands a new lane to the workers. The pool is open. False if there is no worker and none can be started.
    bool AddLane(const std::shared_ptr<PeerLane>& lane);
    // Runs `job` on a worker. If no memory or descriptor is left, the job is lost and false returned.
    bool Post(std::function<void()> job) noexcept;

    // Whether another worker waits for work, so that the calling one may stay with its lane.
    bool HasSpare() const noexcept { return idle_.load(std::memory_order_relaxed) > 0; }

    // A worker wants to stay long with its lane, which it may only while another one waits for work. False if so many
    // do that lanes with requests could wait for them.
    bool BeginLongStay() noexcept
    {
        const bool mayStay = longStays_.fetch_add(1, std::memory_order_relaxed) < MAX_LONG_STAYS;
        if (!mayStay) {
            EndLongStay();
        }
        return mayStay;
    }
    void EndLongStay() noexcept { longStays_.fetch_sub(1, std::memory_order_relaxed); }

    // A worker enters an outgoing call: it is not counted meanwhile, and another may be started in its place. False if
    // the limit of threads is reached: the call must fail.
    bool BeginOutgoing();
    void EndOutgoing();
    // Around a handler on a worker. A worker outside one is about to be free: it has no peer to wait for.
    void BeginHandler() noexcept { handling_.fetch_add(1, std::memory_order_relaxed); }
    void EndHandler() noexcept { handling_.fetch_sub(1, std::memory_order_relaxed); }

private:
    void Run();
    // Starts one more thread if the limits allow; false when the system refused.
    bool Spawn() TAVO_REQUIRES(mutex_);
    bool MaySpawn() const TAVO_REQUIRES(mutex_);
    bool MayGrow();
    bool RetireIdle();
    void RunOneJob();

    const std::function<bool()> watch_;
    WaitSet wait_;
    Mutex mutex_;
    std::deque<std::function<void()>> jobs_ TAVO_GUARDED_BY(mutex_);
    int total_ TAVO_GUARDED_BY(mutex_) = 0;
    int outgoing_ TAVO_GUARDED_BY(mutex_) = 0;
    std::atomic<int> idle_{0};      // threads in epoll_wait, or started and on their way there
    std::atomic<int> handling_{0};  // threads inside a handler
    std::atomic<int> longStays_{0};
};

}  // namespace TAVO::Transport

#endif
