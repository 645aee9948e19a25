// SPDX-License-Identifier: Apache-2.0
// A reading passes two checks before it counts. First, values that no running machine has (the pattern of an open
// input, absolute zero, out of range) are dropped. Second, a jump by more than MOST_JUMP counts only when the next
// reading confirms it; until then the temperature before the jump holds. Accepted readings of the last SPAN form the
// line whose least-squares slope is the trend; a confirmed jump starts it again. No lock: the owner admits one thread
// at a time.
#include "probes/sensor_track.h"

#include <cstdlib>

namespace TAVO::Veltra {

namespace {

constexpr int64_t DEGREE = 1000;
constexpr int64_t LEAST_TEMPERATURE = -40 * DEGREE;
constexpr int64_t MOST_TEMPERATURE = 150 * DEGREE;
constexpr int64_t ALL_ONES = 127 * DEGREE;           // a signed byte of a register that nothing drives
constexpr int64_t MILLIDEGREES_MIN = -128 * DEGREE;  // the smallest value of such a byte
constexpr int64_t ABSOLUTE_ZERO = -273 * DEGREE;
constexpr size_t MOST_READINGS = 256;
// Degrees per second. A trend begins at RISING and ends below STILL, so that it does not flicker in between.
constexpr double RISING = 0.1;
constexpr double STILL = 0.05;

std::string Degrees(int64_t temperature)
{
    return std::to_string(temperature / DEGREE) + " C";
}

// Why no sensor of a running machine reads this; empty if one may.
std::string Implausible(int64_t reading)
{
    if (reading == ALL_ONES || reading == MILLIDEGREES_MIN) {
        return Degrees(reading) + ": the input is not connected";
    }
    if (reading <= ABSOLUTE_ZERO) {
        return Degrees(reading) + ": absolute zero";
    }
    if (reading < LEAST_TEMPERATURE || reading > MOST_TEMPERATURE) {
        return Degrees(reading) + ": out of range";
    }
    return {};
}

}  // namespace

std::optional<int64_t> SensorTrack::Update(int64_t reading, TimePoint now, std::string& problem)
{
    updatedAt_ = now;
    // Two limits: the span of the trend, and memory if it is asked very often.
    while (!readings_.empty() && (now - readings_.front().first > SPAN || readings_.size() >= MOST_READINGS)) {
        readings_.pop_front();
    }
    problem = Implausible(reading);
    if (!problem.empty()) {
        jump_.reset();
        return std::nullopt;
    }
    if (!readings_.empty() && std::abs(reading - readings_.back().second) > MOST_JUMP) {
        // A single wrong value on a bus is followed by a right one; a real jump by a similar one.
        const bool isConfirmed = jump_ && std::abs(reading - *jump_) <= MOST_JUMP;
        jump_ = reading;
        if (!isConfirmed) {
            problem = Degrees(readings_.back().second) + " to " + Degrees(reading) + ": jump not confirmed yet";
            return readings_.back().second;
        }
        readings_.clear();  // a slope across the jump would mean nothing
    }
    jump_.reset();
    readings_.emplace_back(now, reading);
    return reading;
}

std::optional<int32_t> SensorTrack::Trend()
{
    const std::optional<double> slope = Slope();
    if (!slope) {
        trend_ = 0;
        return std::nullopt;
    }
    const double least = trend_ == 0 ? RISING : STILL;
    if (*slope >= (trend_ > 0 ? least : RISING)) {
        trend_ = 1;
    } else if (*slope <= -(trend_ < 0 ? least : RISING)) {
        trend_ = -1;
    } else {
        trend_ = 0;
    }
    return trend_;
}

std::optional<double> SensorTrack::Slope() const
{
    if (readings_.empty() || readings_.back().first - readings_.front().first < SHORTEST_SPAN) {
        return std::nullopt;
    }
    const auto seconds = [this](TimePoint time) {
        return std::chrono::duration<double>(time - readings_.front().first).count();
    };
    const auto count = static_cast<double>(readings_.size());
    double meanTime = 0;
    double meanDegrees = 0;
    for (const auto& [time, temperature] : readings_) {
        meanTime += seconds(time) / count;
        meanDegrees += static_cast<double>(temperature) / DEGREE / count;
    }
    double product = 0;
    double square = 0;
    for (const auto& [time, temperature] : readings_) {
        const double offset = seconds(time) - meanTime;
        product += offset * (static_cast<double>(temperature) / DEGREE - meanDegrees);
        square += offset * offset;
    }
    return product / square;  // not 0: the readings span SHORTEST_SPAN at least
}

}  // namespace TAVO::Veltra
