// SPDX-License-Identifier: Apache-2.0
// The time of the service: seconds since it started, which a scenario may let pass faster or slower.
#ifndef VELTRA_SERVICE_SERVICE_CLOCK_H
#define VELTRA_SERVICE_SERVICE_CLOCK_H

#include <algorithm>
#include <chrono>

namespace TAVO::Veltra {

class ServiceClock {
public:
    using Steady = std::chrono::steady_clock;

    static constexpr double LEAST_SPEED = 0.01;
    static constexpr double MOST_SPEED = 100;

    explicit ServiceClock(double speed = 1) : speed_(speed) {}

    // By the clock of the machine as it was then: a later correction does not move it.
    std::chrono::system_clock::time_point StartedAt() const { return startedAt_; }
    double Speed() const { return speed_; }  // seconds of the service per second
    double Now() const { return std::chrono::duration<double>(Steady::now() - start_).count() * speed_; }
    // When the service's time will be `seconds`; what is more than a day off is a day off.
    Steady::time_point At(double seconds) const
    {
        const std::chrono::duration<double> ahead(std::min((seconds - Now()) / speed_, 86400.0));
        return Steady::now() + std::chrono::duration_cast<Steady::duration>(ahead);
    }

private:
    const Steady::time_point start_ = Steady::now();
    const std::chrono::system_clock::time_point startedAt_ = std::chrono::system_clock::now();
    const double speed_;
};

}  // namespace TAVO::Veltra

#endif
