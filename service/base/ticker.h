// SPDX-License-Identifier: Apache-2.0
// One thread that runs timed work, and sleeps in between.
#ifndef VELTRA_SERVICE_TICKER_H
#define VELTRA_SERVICE_TICKER_H

#include <condition_variable>
#include <functional>
#include <thread>
#include <utility>

#include <tavo/mutex.h>

#include "base/service_clock.h"

namespace TAVO::Veltra {

class Ticker {
public:
    // `tick` is called with the service's time and returns when it has to be called again; infinity: when Wake is
    // called. It must not throw.
    using Tick = std::function<double(double now)>;

    Ticker(const ServiceClock& clock, Tick tick) : clock_(clock), tick_(std::move(tick)) {}
    ~Ticker();  // waits for a tick that has begun
    Ticker(const Ticker&) = delete;
    Ticker& operator=(const Ticker&) = delete;

    // Ticks now, or once more after a tick in progress. Starts the thread at its first use; false when there is none.
    bool Wake();

private:
    void Run();

    const ServiceClock clock_;
    const Tick tick_;
    Mutex mutex_;  // not held during a tick
    std::condition_variable changed_;
    bool isWoken_ TAVO_GUARDED_BY(mutex_) = false;
    bool isStopping_ TAVO_GUARDED_BY(mutex_) = false;
    std::thread thread_ TAVO_GUARDED_BY(mutex_);
};

}  // namespace TAVO::Veltra

#endif
