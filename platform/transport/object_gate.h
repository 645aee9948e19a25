// SPDX-License-Identifier: Apache-2.0
// Bounds how many requests of one object run at once; the others wait here without a thread.
#ifndef TAVO_TRANSPORT_OBJECT_GATE_H
#define TAVO_TRANSPORT_OBJECT_GATE_H

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>

#include "tavo/ipc_object_stub.h"
#include "tavo/mutex.h"

namespace TAVO::Transport {

class ObjectGate {
public:
    static constexpr int CONCURRENT = 12;  // of 16 workers: no object can occupy them all

    explicit ObjectGate(bool oneAtATime) : limit_(oneAtATime ? 1 : CONCURRENT)
    {
        exists_.store(true, std::memory_order_relaxed);
    }

    static ObjectGate& Of(IPCObjectStub& object) noexcept { return *object.gate_; }
    // Whether this process has had an object of its own, which peers may call later.
    static bool Exists() noexcept { return exists_.load(std::memory_order_relaxed); }

    // Admits a request, or keeps `makeWaiting()`, to be run when another one leaves. True when it may run now.
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
    // Ends a request. The result, if not null, has entered in its place and must be run.
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
    // A request waits for the answer to a call of its own, and leaves its place meanwhile, unless requests run one at a
    // time. It returns without waiting, so that more than the limit may run for a while.
    std::function<void()> StepOut() { return limit_ == 1 ? nullptr : Leave(); }
    void StepBack()
    {
        MutexLock lock(mutex_);
        running_ += limit_ == 1 ? 0 : 1;
    }

    // The object's name in this process, 0 before its first export. Written under the lock of ExportedObjects.
    uint64_t Serial() const noexcept { return serial_.load(std::memory_order_relaxed); }
    void SetSerial(uint64_t serial) noexcept { serial_.store(serial, std::memory_order_relaxed); }

private:
    static inline std::atomic<bool> exists_{false};

    const int limit_;
    std::atomic<uint64_t> serial_{0};
    Mutex mutex_;
    int running_ TAVO_GUARDED_BY(mutex_) = 0;
    std::deque<std::function<void()>> waiting_ TAVO_GUARDED_BY(mutex_);
};

}  // namespace TAVO::Transport

#endif
