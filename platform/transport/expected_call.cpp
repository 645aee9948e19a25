// SPDX-License-Identifier: Apache-2.0
// At frame rate both ends of a call have cold caches, and a sleeping processor takes long to wake up. So the worker is
// alerted as soon as the thread enters the platform, and wakes up beside it. This must cost little where it comes too
// early or for nothing, so it takes no lock and looks up no object.
#include "transport/expected_call.h"

namespace TAVO::Transport {
namespace {

// Between calls without a pause a worker hardly sleeps. Where it does, other programs use the processors, and a wake-up
// beside a caller that goes on running would put it behind one of them.
constexpr std::chrono::milliseconds LEAST_PAUSE{1};

// A thread may make calls after its thread-local objects are destroyed: the main thread does in handlers of exit.
thread_local bool t_hasEnded = false;

struct LastCall {
    ~LastCall() { t_hasEnded = true; }

    const CallLane* lane = nullptr;  // only to compare; its memory is not used again as long as `owner` refers to it
    std::weak_ptr<CallLane> owner;   // does not keep the lane open
    Clock::time_point begunAt;
};

thread_local LastCall t_last;

}  // namespace

void RememberCall(const std::shared_ptr<CallLane>& lane) noexcept
{
    if (t_hasEnded) {
        return;
    }
    if (t_last.lane != lane.get()) {
        t_last.lane = lane.get();
        t_last.owner = lane;
    }
    t_last.begunAt = lane->usedAt;
}

void AlertLastLane() noexcept
{
    if (t_hasEnded || t_last.lane == nullptr || !Spin::IsTurnedOn() || Clock::now() - t_last.begunAt < LEAST_PAUSE) {
        return;
    }
    if (const std::shared_ptr<CallLane> lane = t_last.owner.lock(); lane != nullptr) {
        lane->page.Get()->Requests().Alert();
    }
}

}  // namespace TAVO::Transport
