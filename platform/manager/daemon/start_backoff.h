// SPDX-License-Identifier: Apache-2.0
// When a service whose start has failed is started again.
#ifndef TAVO_MANAGER_START_BACKOFF_H
#define TAVO_MANAGER_START_BACKOFF_H

#include <algorithm>
#include <chrono>

namespace TAVO::Manager {

// State of one ability between a failed start and the next registration. No lock and no clock of its own: the caller
// passes the current time.
class StartBackoff {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds FIRST_PAUSE{100};
    static constexpr std::chrono::milliseconds LONGEST_PAUSE{10000};
    // A service that no client has requested for this long is not started again until a client requests it.
    static constexpr std::chrono::minutes REQUEST_LIFETIME{1};

    void Requested(Clock::time_point now) noexcept { lastRequest_ = now; }
    void Failed(Clock::time_point now) noexcept
    {
        pause_ = std::clamp(2 * pause_, FIRST_PAUSE, LONGEST_PAUSE);
        nextTry_ = now + pause_;
    }
    void Registered() noexcept { pause_ = std::chrono::milliseconds{0}; }

    // True from the first failed start until the service registers.
    bool IsFailing() const noexcept { return pause_.count() > 0; }
    Clock::time_point NextTry() const noexcept { return nextTry_; }
    bool IsRequested(Clock::time_point now) const noexcept { return now - lastRequest_ <= REQUEST_LIFETIME; }

private:
    std::chrono::milliseconds pause_{0};  // after the last failed start; 0: none has failed
    Clock::time_point nextTry_;
    Clock::time_point lastRequest_;
};

}  // namespace TAVO::Manager

#endif
