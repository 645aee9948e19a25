// SPDX-License-Identifier: Apache-2.0
// Decides how hot the machine is: which sensors count, how near they are to their limits, and the level that follows.
#ifndef VELTRA_SERVICE_HEAT_JUDGE_H
#define VELTRA_SERVICE_HEAT_JUDGE_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "probes/sensor_choice.h"
#include "probes/sensor_track.h"
#include "probes/steady_level.h"
#include "probes/thermal_probe.h"
#include "probes/throttle_probe.h"

namespace TAVO::Veltra {

// Where the levels of one sensor begin. In thousandths of a degree Celsius.
struct HeatLimits {
    int64_t hot = 0;  // the first trip point
    std::optional<int64_t> critical;
    int64_t step = 0;
    bool isOwn = false;  // the sensor's trip points or the user's thresholds, not a default
};

struct SensorVerdict {
    Sensor sensor;
    HeatLimits limits;
    std::optional<int64_t> temperature;  // the reading, if it is plausible
    int32_t level = 0;                   // by its temperature alone
    std::string ignored;                 // why the reading is implausible; empty if it is not
    std::string excluded;                // why it takes no part in the decision; empty if it does
};

struct HeatVerdict {
    std::optional<int32_t> level;  // empty: unknown
    std::string levelSource;       // the sensor, or what reports throttling
    bool isThrottling = false;     // the kernel reports it now, or did within the last THROTTLING_LASTS
    bool isLevelFromThrottling = false;
    bool reportsThrottling = false;
    std::optional<int64_t> temperature;  // of the deciding sensor, as are the next two
    std::optional<int32_t> margin;       // whole degrees to its next trip point; beyond the last one 0 or below
    std::optional<int32_t> trend;
    std::string temperatureSource;
    std::string hottestKey;  // the deciding sensor's Sensor::key
    std::vector<SensorVerdict> sensors;
};

// One thread at a time.
class HeatJudge {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr int64_t HYSTERESIS = 2000;
    static constexpr int32_t THROTTLING_LEVEL = 3;
    // A counter that has risen says that there was throttling, not that it is over.
    static constexpr std::chrono::seconds THROTTLING_LASTS{5};

    explicit HeatJudge(const SensorChoice& choice) : choice_(choice) {}

    HeatVerdict Judge(std::vector<Sensor> sensors, const ThrottleReading& throttling, TimePoint now);

private:
    SensorVerdict JudgeSensor(Sensor sensor, TimePoint now);
    void UpdateThrottling(const ThrottleReading& throttling, TimePoint now, HeatVerdict& verdict);
    void UpdateLevel(TimePoint now, HeatVerdict& verdict);
    void ForgetLostSensors(TimePoint now);

    const SensorChoice choice_;
    std::map<std::string, SensorTrack> tracks_;  // by Sensor::key
    SteadyLevel level_;
    std::string levelSource_;  // of the last reading, as is the next one
    bool isLevelFromThrottling_ = false;
    std::map<int, int64_t> throttleEvents_;  // by processor
    std::optional<TimePoint> countedAt_;     // when throttleEvents_ were read
    std::optional<TimePoint> throttledAt_;   // when the count was seen to rise
};

}  // namespace TAVO::Veltra

#endif
