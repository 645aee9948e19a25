// SPDX-License-Identifier: Apache-2.0
// Starts a worker when work arrives while all are busy.
#ifndef TAVO_TRANSPORT_WORKER_WATCH_H
#define TAVO_TRANSPORT_WORKER_WATCH_H

#include <sys/epoll.h>

#include "transport/event_loop.h"
#include "transport/worker_pool.h"

namespace TAVO::Transport {

// The workers' epoll is readable while work waits for one; the control thread watches it after Arm.
class WorkerWatch final : public Pollable, public LoopPart {
public:
    WorkerWatch(EventLoop& loop, WorkerPool& workers) : loop_(loop), workers_(workers) {}

    // Any thread: the last free worker is about to take work. Starting another one in advance would delay a first
    // request. False when the kernel has no memory.
    bool Arm() noexcept { return loop_.ModifyPoll(workers_.Epoll(), EPOLLIN | EPOLLONESHOT, this); }

    void OnReady(uint32_t) override { workers_.EnsureSpare(); }
    void OnStart() override { loop_.AddPoll(workers_.Epoll(), EPOLLONESHOT, this); }
    int TickMilliseconds() const override { return -1; }
    void OnTick(Clock::time_point) override {}

private:
    EventLoop& loop_;
    WorkerPool& workers_;
};

}  // namespace TAVO::Transport

#endif
