// SPDX-License-Identifier: Apache-2.0
// The decision in five steps. Each sensor's reading is checked against its own past. Sensors that measure something
// else than what a game heats drop out, then all but the preferred ones if there are any, then those without limits of
// their own if another sensor has them. Of the rest the one with the highest level decides, among equals the nearest to
// its limit. Throttling that the kernel reports lifts the level to 3. What results is made steady.
#include "probes/heat_judge.h"

#include <algorithm>
#include <utility>

namespace TAVO::Veltra {

namespace {

constexpr int64_t DEGREE = 1000;
constexpr int64_t NEAR_CRITICAL = 5 * DEGREE;  // of sensors with steps of ten degrees: half a step
constexpr char THROTTLE_COUNTERS[] = "cpu*/thermal_throttle counters";

HeatLimits LimitsOf(const Sensor& sensor, const SensorChoice& choice)
{
    const auto index = static_cast<size_t>(sensor.sensorClass);
    const ClassThresholds& thresholds = choice.thresholds[index];
    HeatLimits limits{thresholds.hot, thresholds.critical, thresholds.step, choice.hasThresholds[index]};
    // The machine's own limits come before any table.
    if (!sensor.trips.empty()) {
        limits = {sensor.trips.front(), sensor.critical, thresholds.step, true};
    }
    return limits;
}

int32_t LevelAt(const HeatLimits& limits, int64_t temperature)
{
    if (limits.critical && *limits.critical - temperature <= std::min(NEAR_CRITICAL, limits.step / 2)) {
        return 5;
    }
    const int64_t headroom = limits.hot - temperature;
    if (headroom <= 0) {
        return 4;
    }
    return static_cast<int32_t>(std::max<int64_t>(0, 3 - (headroom - 1) / limits.step));
}

// Beyond the last trip point, 0 or the negative distance.
std::optional<int32_t> MarginOf(const SensorVerdict& verdict)
{
    std::vector<int64_t> trips = verdict.sensor.trips;
    if (trips.empty() && verdict.limits.isOwn) {
        // Limits of the configuration count as trip points.
        trips = {verdict.limits.hot, *verdict.limits.critical};
    }
    if (trips.empty()) {
        return std::nullopt;
    }
    // The first one above. Trip points are kept in ascending order.
    const auto next = std::upper_bound(trips.begin(), trips.end(), *verdict.temperature);
    const int64_t trip = next == trips.end() ? trips.back() : *next;
    return static_cast<int32_t>((trip - *verdict.temperature) / DEGREE);
}

std::string WhyExcluded(const SensorVerdict& verdict)
{
    const Sensor& sensor = verdict.sensor;
    if (sensor.isExcluded) {
        return "excluded by the configuration";
    }
    if (!DecidesLevel(sensor.sensorClass)) {
        return std::string("class ") + NameOf(sensor.sensorClass) + " does not decide the level";
    }
    if (sensor.hasFault) {
        return "the driver reports a fault";
    }
    if (!sensor.current) {
        return "cannot be read";
    }
    return verdict.temperature ? "" : "implausible";
}

// If a sensor that takes part has the property, excludes those without it.
template <typename Property>
void KeepThose(std::vector<SensorVerdict>& verdicts, Property property, const char* why)
{
    const auto counts = [](const SensorVerdict& verdict) { return verdict.excluded.empty(); };
    const bool isAny = std::any_of(verdicts.begin(), verdicts.end(),
                                   [&](const SensorVerdict& verdict) { return counts(verdict) && property(verdict); });
    for (SensorVerdict& verdict : verdicts) {
        if (isAny && counts(verdict) && !property(verdict)) {
            verdict.excluded = why;
        }
    }
}

// Whether the first sensor is nearer to its limits, measured in its own steps.
bool IsHotter(const SensorVerdict& left, const SensorVerdict& right)
{
    const auto headroom = [](const SensorVerdict& verdict) {
        return static_cast<double>(verdict.limits.hot - *verdict.temperature) /
               // In steps, so that a skin sensor with steps of 3 degrees can be compared with a processor's 10.
               static_cast<double>(verdict.limits.step);
    };
    return left.level != right.level ? left.level > right.level : headroom(left) < headroom(right);
}

const SensorVerdict* Hottest(const std::vector<SensorVerdict>& verdicts)
{
    const SensorVerdict* hottest = nullptr;
    for (const SensorVerdict& verdict : verdicts) {
        if (verdict.excluded.empty() && (hottest == nullptr || IsHotter(verdict, *hottest))) {
            hottest = &verdict;
        }
    }
    return hottest;
}

}  // namespace

HeatVerdict HeatJudge::Judge(std::vector<Sensor> sensors, const ThrottleReading& throttling, TimePoint now)
{
    HeatVerdict verdict;
    for (Sensor& sensor : sensors) {
        verdict.sensors.push_back(JudgeSensor(std::move(sensor), now));
    }
    // The number of tracks is bounded by the sensors of the last minutes.
    ForgetLostSensors(now);
    KeepThose(
        verdict.sensors, [](const SensorVerdict& candidate) { return candidate.sensor.isPreferred; },
        "another sensor is preferred");
    KeepThose(
        verdict.sensors, [](const SensorVerdict& candidate) { return candidate.limits.isOwn; },
        "has no trip points, and another sensor has");
    UpdateThrottling(throttling, now, verdict);
    if (const SensorVerdict* hottest = Hottest(verdict.sensors)) {
        verdict.temperature = hottest->temperature;
        verdict.margin = MarginOf(*hottest);
        verdict.trend = tracks_[hottest->sensor.key].Trend();
        verdict.temperatureSource = hottest->sensor.source;
        verdict.hottestKey = hottest->sensor.key;
    }
    UpdateLevel(now, verdict);
    return verdict;
}

void HeatJudge::UpdateLevel(TimePoint now, HeatVerdict& verdict)
{
    int32_t level = -1;
    int32_t levelBeforeFall = -1;
    for (const SensorVerdict& candidate : verdict.sensors) {
        if (candidate.excluded.empty()) {
            level = std::max(level, candidate.level);
            // The level that the sensor would have if it were warmer by the hysteresis: the level in use falls only
            // below this.
            levelBeforeFall = std::max(levelBeforeFall, LevelAt(candidate.limits, *candidate.temperature + HYSTERESIS));
        }
    }
    verdict.isLevelFromThrottling = verdict.isThrottling && level < THROTTLING_LEVEL;
    if (verdict.isThrottling) {
        level = std::max(level, THROTTLING_LEVEL);
        levelBeforeFall = std::max(levelBeforeFall, THROTTLING_LEVEL);
    }
    if (level < 0) {
        // No sensor counts now. A single failed reading must not make the level unknown for one answer.
        verdict.level = level_.Miss(now);
        verdict.levelSource = verdict.level ? levelSource_ : "";
        verdict.isLevelFromThrottling = verdict.level && isLevelFromThrottling_;
        return;
    }
    if (!verdict.isLevelFromThrottling) {
        verdict.levelSource = verdict.temperatureSource;
    }
    levelSource_ = verdict.levelSource;
    isLevelFromThrottling_ = verdict.isLevelFromThrottling;
    verdict.level = level_.Update(level, levelBeforeFall, now);
}

SensorVerdict HeatJudge::JudgeSensor(Sensor sensor, TimePoint now)
{
    SensorVerdict verdict;
    verdict.limits = LimitsOf(sensor, choice_);
    if (sensor.current && !sensor.hasFault) {
        verdict.temperature = tracks_[sensor.key].Update(*sensor.current, now, verdict.ignored);
    }
    if (verdict.temperature) {
        verdict.level = LevelAt(verdict.limits, *verdict.temperature);
    }
    verdict.sensor = std::move(sensor);
    verdict.excluded = WhyExcluded(verdict);
    return verdict;
}

void HeatJudge::UpdateThrottling(const ThrottleReading& throttling, TimePoint now, HeatVerdict& verdict)
{
    for (const auto& [processor, events] : throttling.events) {
        const auto before = throttleEvents_.find(processor);
        // The first reading of a processor is no event: the counters run since the start of the machine. Nor is a rise
        // since a reading of long ago, which may be as old as that.
        if (before != throttleEvents_.end() && events > before->second && now - *countedAt_ <= THROTTLING_LASTS) {
            throttledAt_ = now;
        }
    }
    throttleEvents_ = throttling.events;
    countedAt_ = now;
    verdict.reportsThrottling = throttling.ReportsAnything();
    verdict.levelSource = throttling.Active();
    if (verdict.levelSource.empty() && throttledAt_ && now - *throttledAt_ <= THROTTLING_LASTS) {
        verdict.levelSource = THROTTLE_COUNTERS;
    }
    verdict.isThrottling = !verdict.levelSource.empty();
}

// A sensor that is not readable for a moment keeps its past.
void HeatJudge::ForgetLostSensors(TimePoint now)
{
    for (auto track = tracks_.begin(); track != tracks_.end();) {
        track = now - track->second.LastUpdate() > SensorTrack::SPAN ? tracks_.erase(track) : std::next(track);
    }
}

}  // namespace TAVO::Veltra
