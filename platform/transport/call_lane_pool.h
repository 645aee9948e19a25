// SPDX-License-Identifier: Apache-2.0
// The call lanes of a session that this process opened, in use or idle.
#ifndef TAVO_TRANSPORT_CALL_LANE_POOL_H
#define TAVO_TRANSPORT_CALL_LANE_POOL_H

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <vector>

#include "tavo/ipc_status.h"
#include "tavo/mutex.h"
#include "transport/call_lane.h"
#include "transport/lane_opener.h"
#include "transport/session_context.h"

namespace TAVO::Transport {

// Any thread.
class CallLanePool {
public:
    static constexpr size_t MAX_LANES = 64;

    struct Taken {
        std::shared_ptr<CallLane> lane;  // null: `status` is the reason
        int status = IPC_OK;
    };

    CallLanePool(const SessionContext& context, LaneOpener& opener) : context_(context), opener_(opener) {}

    // Takes an idle lane or opens one. Waits until `deadline` while all are in use.
    Taken Take(Deadline deadline);
    // The lane is idle again.
    void Return(const std::shared_ptr<CallLane>& lane);
    // Closes a lane that is in use.
    void Drop(const std::shared_ptr<CallLane>& lane);
    // Closes the lanes that are idle since before `before`; true while other idle ones remain.
    bool CloseIdle(Clock::time_point before);
    // The lane, in use or not, with this number; null when there is none.
    std::shared_ptr<CallLane> Find(uint64_t number);
    // The session is dead: wakes up those who wait for a lane or a reply. Allocates nothing.
    void Close() noexcept;

private:
    std::shared_ptr<CallLane> TakeIdle() TAVO_REQUIRES(mutex_);
    Taken Open(Deadline deadline);

    const SessionContext& context_;
    LaneOpener& opener_;

    Mutex mutex_;
    std::condition_variable changed_;  // a lane is idle or gone, or the pool is closed
    std::vector<std::shared_ptr<CallLane>> lanes_ TAVO_GUARDED_BY(mutex_);  // all, idle or not
    std::vector<std::shared_ptr<CallLane>> idle_ TAVO_GUARDED_BY(mutex_);   // last used last
    size_t opening_ TAVO_GUARDED_BY(mutex_) = 0;
    bool isClosed_ TAVO_GUARDED_BY(mutex_) = false;
};

}  // namespace TAVO::Transport

#endif
