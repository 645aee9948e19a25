// SPDX-License-Identifier: Apache-2.0
// What the device went through in a recording, as far as a report has words for it.
#ifndef VELTRA_TOOLS_REPORT_DEVICE_H
#define VELTRA_TOOLS_REPORT_DEVICE_H

#include <json/value.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace VeltraTool {

// All times are seconds since the recording began.
struct TimedValue {
    double value;
    double seconds;
};

// A state of the device that comes and goes.
struct Phase {
    std::optional<double> first;
    size_t times = 0;
    double seconds = 0;  // in all
};

class DeviceStory {
public:
    static constexpr int HOT_LEVEL = 3;
    static constexpr int MOST_LEVEL = 5;

    void Add(double seconds, const Json::Value& values);

    const std::optional<TimedValue>& HighestLevel() const { return highestLevel_; }
    const std::optional<TimedValue>& HighestTemperature() const { return highestTemperature_; }
    const std::optional<TimedValue>& LeastMargin() const { return leastMargin_; }
    // At this level or above; by level, from HOT_LEVEL on.
    const std::map<int, Phase>& HotPhases() const { return hot_; }
    const Phase& Throttling() const { return throttling_; }
    // The lowest frequency of the GPU while the device was hot, if that is below 70 % of the highest before.
    const std::optional<TimedValue>& SlowestWhileHot() const { return slowest_; }
    double HighestFrequency() const { return highestFrequency_; }
    const std::optional<TimedValue>& FirstCharge() const { return firstCharge_; }
    const std::optional<TimedValue>& LastCharge() const { return lastCharge_; }

private:
    void AddFrequency(double seconds, double frequency, bool isHot);

    std::optional<TimedValue> highestLevel_;
    std::optional<TimedValue> highestTemperature_;
    std::optional<TimedValue> leastMargin_;
    std::map<int, Phase> hot_;
    Phase throttling_;
    std::optional<TimedValue> slowest_;
    double highestFrequency_ = 0;
    std::optional<TimedValue> firstCharge_;
    std::optional<TimedValue> lastCharge_;
    // Of the record before.
    std::optional<double> level_;
    bool isThrottling_ = false;
    double seconds_ = 0;
};

}  // namespace VeltraTool

#endif
