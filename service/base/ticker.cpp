// SPDX-License-Identifier: Apache-2.0
#include "base/ticker.h"

#include <system_error>

namespace TAVO::Veltra {

Ticker::~Ticker()
{
    std::thread thread;
    {
        MutexLock lock(mutex_);
        isStopping_ = true;
        thread.swap(thread_);
    }
    changed_.notify_all();
    if (thread.joinable()) {
        thread.join();
    }
}

bool Ticker::Wake()
{
    MutexLock lock(mutex_);
    isWoken_ = true;
    if (thread_.joinable()) {
        changed_.notify_all();
        return true;
    }
    try {
        thread_ = std::thread([this] { Run(); });
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

void Ticker::Run()
{
    MutexLock lock(mutex_);
    while (!isStopping_) {
        isWoken_ = false;
        lock.Unlock();
        const double next = tick_(clock_.Now());
        lock.Lock();
        lock.WaitUntil(changed_, clock_.At(next), [this]() TAVO_REQUIRES(mutex_) { return isWoken_ || isStopping_; });
    }
}

}  // namespace TAVO::Veltra
