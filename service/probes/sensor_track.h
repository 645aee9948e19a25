// SPDX-License-Identifier: Apache-2.0
// The recent past of one temperature sensor, by which false readings and the trend of the temperature are recognised.
#ifndef VELTRA_SERVICE_SENSOR_TRACK_H
#define VELTRA_SERVICE_SENSOR_TRACK_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <utility>

namespace TAVO::Veltra {

// One thread at a time. Temperatures are in thousandths of a degree Celsius.
class SensorTrack {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::seconds SPAN{10};          // over which the slope is taken
    static constexpr std::chrono::seconds SHORTEST_SPAN{5};  // over less than this jitter would pass for a slope
    static constexpr int64_t MOST_JUMP = 40000;

    // The temperature to go by, or nothing. `problem` says why the reading itself was left out; after a jump that is
    // not confirmed yet, the temperature before it is returned.
    std::optional<int64_t> Update(int64_t reading, TimePoint now, std::string& problem);

    // 1 rising, -1 falling, 0 neither, by the least-squares slope; nothing until they span 5 s. A slope
    // begins to count at a degree in 10 s and stops at half of that.
    std::optional<int32_t> Trend();

    TimePoint LastUpdate() const { return updatedAt_; }

private:
    std::optional<double> Slope() const;  // degrees per second

    std::deque<std::pair<TimePoint, int64_t>> readings_;  // of the last SPAN, ascending; the accepted ones
    std::optional<int64_t> jump_;                         // a reading that the next one has to confirm
    TimePoint updatedAt_;
    int32_t trend_ = 0;
};

}  // namespace TAVO::Veltra

#endif
