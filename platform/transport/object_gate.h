// SPDX-License-Identifier: Apache-2.0
// Bounds how many requests of one object run at once; the others wait here without a thread.
#ifndef TAVO_TRANSPORT_OBJECT_GATE_H
#define TAVO_TRANSPORT_OBJECT_GATE_H

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>

#include "tavo/mutex.h"

namespace TAVO::Transport {

class ObjectGate {
public:
    static constexpr int CONCURRENT = 12;  // of 16 workers: no object can occupy them all

    explicit ObjectGate(bool oneAtATime) : limit_(oneAtATime ? 1 : CONCURRENT)
    {
        exists_.store(true, std::memory_order_relaxed);
    }

    // Whether this process has had an object of its own, which others may come to call.
    static bool Exists() noexcept { return exists_.load(std::memory_order_relaxed); }

    // Lets a request in, or keeps `makeWaiting()` to be run by whoever leaves; true when it may run now.
    template <typename MakeWaiting>
    bool EnterOrWait(MakeWaiting makeWaiting)
    {
        MutexLock lock(mutex_);
        if (running_ < limit_) {
            ++running_;
            return true;
        }
        waiting_.push_back(makeWaiting());
        return false;
    }
    // Ends a request. What it returns (if anything) has entered in its place and must be run.
    std::function<void()> Leave()
    {
        MutexLock lock(mutex_);
        --running_;
        if (waiting_.empty() || running_ >= limit_) {
            return nullptr;
        }
        ++running_;
        std::function<void()> next = std::move(waiting_.front());
        waiting_.pop_front();
        return next;
    }
    // A request waits for an answer to a call of its own and leaves its place, except where one at a time was asked
    // for. It comes back without waiting, so that more than the limit may run for a while.
    std::function<void()> StepOut() { return limit_ == 1 ? nullptr : Leave(); }
    void StepBack()
    {
        MutexLock lock(mutex_);
        running_ += limit_ == 1 ? 0 : 1;
    }

    // The object's name in this process, drawn at its first export; guarded by the table of exported objects.
    uint64_t serial = 0;

private:
    static inline std::atomic<bool> exists_{false};

    Mutex mutex_;
    const int limit_;
    int running_ TAVO_GUARDED_BY(mutex_) = 0;
    std::deque<std::function<void()>> waiting_ TAVO_GUARDED_BY(mutex_);
};

}  // namespace TAVO::Transport

#endif
