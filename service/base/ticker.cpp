// SPDX-License-Identifier: Apache-2.0
// One thread that calls a function at the times that the function itself returns. It starts with the first Wake, so a
// service without subscribers has no such thread, and ends with the object.
#include "base/ticker.h"

#include <pthread.h>

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
    // Also if the thread is in the function just now: it then calls it again at once.
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
    pthread_setname_np(pthread_self(), "veltra-ticker");
    MutexLock lock(mutex_);
    while (!isStopping_) {
        isWoken_ = false;
        // The function reads files and takes locks of its own; Wake must not wait for it.
        lock.Unlock();
        const double next = tick_(clock_.Now());
        lock.Lock();
        lock.WaitUntil(changed_, clock_.At(next), [this]() TAVO_REQUIRES(mutex_) { return isWoken_ || isStopping_; });
    }
}

}  // namespace TAVO::Veltra
