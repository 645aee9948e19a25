// SPDX-License-Identifier: Apache-2.0
// A steady clock that stops until a test advances it. Copies share the time.
#ifndef VELTRA_TESTS_SERVICE_FAKE_CLOCK_H
#define VELTRA_TESTS_SERVICE_FAKE_CLOCK_H

#include <chrono>
#include <functional>
#include <memory>

namespace TAVO::Veltra {

class FakeClock {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    std::function<TimePoint()> Now() const
    {
        return [now = now_] { return *now; };
    }
    void Advance(std::chrono::milliseconds time) const { *now_ += time; }
    void Set(std::chrono::milliseconds sinceStart) const { *now_ = TimePoint(sinceStart); }

private:
    const std::shared_ptr<TimePoint> now_ = std::make_shared<TimePoint>();
};

}  // namespace TAVO::Veltra

#endif
