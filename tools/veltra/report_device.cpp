// SPDX-License-Identifier: Apache-2.0
// How long the device was hot, and its extremes. Each record has all values that were known at its time. A value counts
// until the next record, but no longer than a running service may take to send one: after that the state is unknown.
#include "report_device.h"

#include <algorithm>

namespace VeltraTool {

namespace {

constexpr double MOST_SILENCE = 30;
constexpr double SLOW_SHARE = 0.7;

std::optional<double> ValueOf(const Json::Value& values, const char* key)
{
    return values.isMember(key) ? std::optional(values[key].asDouble()) : std::nullopt;
}

// Keeps the first of equal values.
void KeepExtreme(std::optional<TimedValue>& extreme, std::optional<double> value, double seconds, double sign)
{
    if (value && (!extreme || *value * sign > extreme->value * sign)) {
        extreme = {*value, seconds};
    }
}

// Adds the time since the record before, `passed` seconds ago, if the device was in the phase then (`wasIn`).
void Follow(Phase& phase, bool wasIn, bool isIn, double seconds, double passed)
{
    phase.seconds += wasIn ? std::min(passed, MOST_SILENCE) : 0;
    if (isIn && !wasIn) {
        ++phase.times;
        phase.first = phase.first.value_or(seconds);
    }
}

}  // namespace

void DeviceStory::Add(double seconds, const Json::Value& values)
{
    const double passed = seconds - seconds_;
    const std::optional<double> level = ValueOf(values, "tempLevel");
    KeepExtreme(highestLevel_, level, seconds, 1);
    KeepExtreme(highestTemperature_, ValueOf(values, "temperature"), seconds, 1);
    KeepExtreme(leastMargin_, ValueOf(values, "thermalMargin"), seconds, -1);
    for (int hot = HOT_LEVEL; hot <= MOST_LEVEL; ++hot) {
        Follow(hot_[hot], level_.value_or(0) >= hot, level.value_or(0) >= hot, seconds, passed);
    }
    const bool isThrottling = ValueOf(values, "throttling").value_or(0) > 0;
    Follow(throttling_, isThrottling_, isThrottling, seconds, passed);
    if (const std::optional<double> frequency = ValueOf(values, "currentFrequency")) {
        AddFrequency(seconds, *frequency, level.value_or(0) >= HOT_LEVEL);
    }
    if (const std::optional<double> charge = ValueOf(values, "batteryPercent")) {
        lastCharge_ = {*charge, seconds};
        firstCharge_ = firstCharge_ ? firstCharge_ : lastCharge_;
    }
    level_ = level;
    isThrottling_ = isThrottling;
    seconds_ = seconds;
}

void DeviceStory::AddFrequency(double seconds, double frequency, bool isHot)
{
    highestFrequency_ = std::max(highestFrequency_, frequency);
    if (isHot && frequency < highestFrequency_ * SLOW_SHARE) {
        KeepExtreme(slowest_, frequency, seconds, -1);
    }
}

}  // namespace VeltraTool
