// SPDX-License-Identifier: Apache-2.0
// The thread that runs death notices and load callbacks, so that no request handler can delay them.
#ifndef TAVO_TRANSPORT_DELIVERY_THREAD_H
#define TAVO_TRANSPORT_DELIVERY_THREAD_H

#include <deque>
#include <functional>
#include <memory>

#include "tavo/mutex.h"
#include "transport/wait_set.h"

namespace TAVO::Transport {

class InLane;

// Started at its first use.
class DeliveryThread {
public:
    // Opens what the thread waits with; false when no descriptor is left.
    bool Open();
    // Runs `job` behind those that wait. False without memory, thread or descriptor.
    bool Post(std::function<void()> job) noexcept;
    // Serves a lane of notices from now on. False when the thread cannot be had.
    bool AddLane(const std::shared_ptr<InLane>& lane);

private:
    bool Start() TAVO_REQUIRES(mutex_);
    void Run();
    void RunJobs();

    WaitSet wait_{WaitSet::Jobs::ALL};
    Mutex mutex_;
    bool isRunning_ TAVO_GUARDED_BY(mutex_) = false;
    std::deque<std::function<void()>> jobs_ TAVO_GUARDED_BY(mutex_);
};

}  // namespace TAVO::Transport

#endif
