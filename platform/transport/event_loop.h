// SPDX-License-Identifier: Apache-2.0
// The loop of the control thread: events of descriptors, jobs of other threads, timers.
#ifndef TAVO_TRANSPORT_EVENT_LOOP_H
#define TAVO_TRANSPORT_EVENT_LOOP_H

#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "os/wait_set.h"
#include "tavo/mutex.h"
#include "transport/lane_key.h"

namespace TAVO::Transport {

// Something that the loop watches.
class Pollable {
public:
    virtual ~Pollable() = default;
    virtual void OnReady(uint32_t events) = 0;
    // See EventLoop::EndLater.
    virtual void OnEnd() {}
};

// Something that has its turn in every round of the loop.
class LoopPart {
public:
    virtual ~LoopPart() = default;
    // The thread has just started.
    virtual void OnStart() {}
    // How long the loop may wait for events, at most; -1: no limit.
    virtual int TickMilliseconds() const = 0;
    virtual void OnTick(Clock::time_point now) = 0;
};

// Its thread is started at its first use. It never runs user code, takes no lock that user code can hold, never blocks.
class EventLoop {
public:
    // `openOthers` opens the descriptors of other threads; false when none is left. Called under the loop's lock.
    explicit EventLoop(std::function<bool()> openOthers) : openOthers_(std::move(openOthers)) {}
    // Before the thread starts.
    void AddPart(LoopPart& part) { parts_.push_back(&part); }

    // ---- Any thread
    // Opens what the loop waits with, and what `openOthers` opens. The thread need not run for that.
    bool Open();
    // Runs `job` on the loop's thread. If no memory, descriptor or thread is left, the job is lost and false returned.
    bool Post(std::function<void()> job) noexcept;
    int Epoll() const noexcept { return wait_.Epoll(); }

    // ---- The loop's thread
    // Waits for events on `fd` until RemovePoll, which is called before the pollable is destroyed. False when the
    // kernel has no memory for that.
    bool AddPoll(int fd, uint32_t events, Pollable* pollable);
    bool ModifyPoll(int fd, uint32_t events, Pollable* pollable) noexcept;
    void RemovePoll(int fd, Pollable* pollable) noexcept;
    // The descriptor is handed to another epoll.
    void ReleaseFd(int fd) noexcept;
    bool IsPolled(const Pollable* pollable) const { return polled_.count(pollable) != 0; }

    // Keeps a pollable until it is disowned; it is destroyed at the end of the round. If out of memory it is not taken.
    void Own(std::unique_ptr<Pollable>&& pollable);
    bool Owns(const Pollable* pollable) const { return owned_.count(pollable) != 0; }
    void Disown(Pollable* pollable);

    // Has OnEnd of an owned pollable called, once all that is readable now was handled. Allocates nothing. If OnEnd
    // runs out of memory it is called again in the next round.
    void EndLater(Pollable* pollable) noexcept;
    void CancelEnd(Pollable* pollable) noexcept;

private:
    bool OpenLocked() TAVO_REQUIRES(mutex_);
    bool Start() TAVO_REQUIRES(mutex_);
    void Run();
    void RunJobs();
    // Waits for events, at most for `milliseconds`, and acts on them.
    void Turn(int milliseconds);
    int TickMilliseconds() const;

    const std::function<bool()> openOthers_;
    WaitSet wait_;
    Mutex mutex_;
    bool isRunning_ TAVO_GUARDED_BY(mutex_) = false;
    std::vector<std::function<void()>> jobs_ TAVO_GUARDED_BY(mutex_);

    // The rest belongs to the loop's thread alone.
    std::vector<LoopPart*> parts_;
    std::vector<std::function<void()>> jobsInHand_;  // not empty between rounds: one ran out of memory, and runs again
    size_t jobsDone_ = 0;                            // of them
    std::unordered_set<const Pollable*> polled_;
    std::unordered_map<const Pollable*, std::unique_ptr<Pollable>> owned_;
    std::vector<std::unique_ptr<Pollable>> disowned_;  // until the end of the round
    std::vector<Pollable*> ends_;                      // noticed
    std::vector<Pollable*> due_;                       // noticed in an earlier round: acted on at the end of this one
};

}  // namespace TAVO::Transport

#endif
