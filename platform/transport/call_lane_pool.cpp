// SPDX-License-Identifier: Apache-2.0
// Each call takes a lane for itself and returns it. Lanes are opened as needed, outside the lock. The end of the
// session shuts them down and does not close them: that wakes up the callers, and a reply that has arrived can still be
// read.
#include "transport/call_lane_pool.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <thread>
#include <utility>

#include "transport/expected_call.h"
#include "transport/session_host.h"

namespace TAVO::Transport {

CallLanePool::Taken CallLanePool::Take(Deadline deadline)
{
    {
        MutexLock lock(mutex_);
        const auto mayGo = [this]() TAVO_REQUIRES(mutex_) {
            // Lanes that are being opened count, so that at most MAX_LANES exist. The 65th caller of a process waits
            // here, within its deadline.
            return isClosed_ || !idle_.empty() || lanes_.size() + opening_ < MAX_LANES;
        };
        if (!mayGo() && !lock.WaitUntil(changed_, deadline, mayGo)) {
            return {nullptr, IPC_TIMED_OUT};
        }
        if (isClosed_) {
            return {nullptr, IPC_DEAD_OBJECT};
        }
        if (!idle_.empty()) {
            return {TakeIdle(), IPC_OK};
        }
        lanes_.reserve(MAX_LANES);  // Returning a lane allocates nothing.
        idle_.reserve(MAX_LANES);
        ++opening_;
    }
    // Without the lock: connecting may wait as long as the peer's queue is full.
    Taken opened = Open(deadline);
    MutexLock lock(mutex_);
    --opening_;
    // Close() has run meanwhile and did not see this lane, so it would never be shut down.
    if (opened.lane != nullptr && isClosed_) {
        opened = {nullptr, IPC_DEAD_OBJECT};
    }
    if (opened.lane != nullptr) {
        lanes_.push_back(opened.lane);
    }
    changed_.notify_all();
    return opened;
}

// The one that the calling thread used last, else the one used last of all. A thread and the worker at the other end of
// its lane then tend to share a processor, and wake each other up cheaply.
std::shared_ptr<CallLane> CallLanePool::TakeIdle()
{
    const auto isOwn = [self = std::this_thread::get_id()](const auto& lane) { return lane->usedBy == self; };
    auto chosen = std::find_if(idle_.rbegin(), idle_.rend(), isOwn);
    if (chosen == idle_.rend()) {
        chosen = idle_.rbegin();
    }
    std::shared_ptr<CallLane> lane = std::move(*chosen);
    idle_.erase(std::next(chosen).base());
    return lane;
}

CallLanePool::Taken CallLanePool::Open(Deadline deadline)
try {
    const auto lane = std::make_shared<CallLane>();
    lane->timeout = CallLane::CoarseTimeout(deadline - Clock::now());
    LaneOpener::Opened opened = opener_.Open(ConnectionKind::CALL_LANE, lane->timeout);
    if (!opened.fd.IsOpen()) {
        return {nullptr, opened.status};
    }
    lane->fd = std::move(opened.fd);
    lane->number = opened.number;
    return {lane, IPC_OK};
} catch (const std::bad_alloc&) {
    return {nullptr, IPC_NO_RESOURCES};
}

void CallLanePool::Return(const std::shared_ptr<CallLane>& lane)
{
    lane->usedBy = std::this_thread::get_id();
    if (lane->page.Get() != nullptr) {
        RememberCall(lane);
    }
    {
        MutexLock lock(mutex_);
        if (isClosed_) {
            return;
        }
        idle_.push_back(lane);
        // Only then can a caller be waiting. Otherwise each call would pay for a notification.
        if (lanes_.size() + opening_ >= MAX_LANES) {
            changed_.notify_all();
        }
    }
    context_.host.ExpectIdleLanes();
}

void CallLanePool::Drop(const std::shared_ptr<CallLane>& lane)
{
    lane->ShutDown();
    {
        MutexLock lock(mutex_);
        std::erase(lanes_, lane);
        changed_.notify_all();
    }
    opener_.Close(lane->number, lane->lastReplyTaken);
}

bool CallLanePool::CloseIdle(Clock::time_point before)
{
    std::vector<std::shared_ptr<CallLane>> closing;
    bool remain = false;
    {
        MutexLock lock(mutex_);
        const auto firstKept =
            // In the order of their return; the first ones are idle longest.
            std::find_if(idle_.begin(), idle_.end(), [before](const auto& lane) { return lane->usedAt >= before; });
        closing.assign(std::make_move_iterator(idle_.begin()), std::make_move_iterator(firstKept));
        idle_.erase(idle_.begin(), firstKept);
        remain = !idle_.empty();
    }
    for (const auto& lane : closing) {
        Drop(lane);
    }
    return remain;
}

std::shared_ptr<CallLane> CallLanePool::Find(uint64_t number)
{
    MutexLock lock(mutex_);
    const auto found =
        std::find_if(lanes_.begin(), lanes_.end(), [number](const auto& lane) { return lane->number == number; });
    return found != lanes_.end() ? *found : nullptr;
}

void CallLanePool::Close() noexcept
{
    std::vector<std::shared_ptr<CallLane>> lanes;
    {
        MutexLock lock(mutex_);
        isClosed_ = true;
        lanes.swap(lanes_);
        idle_.clear();
        changed_.notify_all();
    }
    for (const auto& lane : lanes) {
        lane->ShutDown();
    }
}

}  // namespace TAVO::Transport
