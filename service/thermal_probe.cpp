// SPDX-License-Identifier: Apache-2.0
#include "thermal_probe.h"

#include <algorithm>

namespace TAVO::Veltra {

namespace {

constexpr int64_t DEGREE = 1000;
// What lies outside is a register that nothing is wired to.
constexpr int64_t LEAST_TEMPERATURE = -40 * DEGREE;
constexpr int64_t MOST_TEMPERATURE = 150 * DEGREE;
constexpr int64_t LEAST_TRIP = 30 * DEGREE;

std::optional<int64_t> ReadTrip(const RootFiles& files, const std::string& path)
{
    return files.ReadNumber(path, LEAST_TRIP, MOST_TEMPERATURE);
}

void AddTrip(Temperature& temperature, std::optional<int64_t> trip, bool isCritical)
{
    if (!trip) {
        return;
    }
    temperature.trips.insert(std::upper_bound(temperature.trips.begin(), temperature.trips.end(), *trip), *trip);
    if (isCritical && (!temperature.critical || *trip < *temperature.critical)) {
        temperature.critical = trip;
    }
}

int64_t Headroom(const Temperature& temperature)
{
    return (temperature.trips.empty() ? ASSUMED_TRIP : temperature.trips.front()) - temperature.current;
}

void Keep(std::optional<Temperature>& hottest, Temperature candidate)
{
    if (!hottest || Headroom(candidate) < Headroom(*hottest)) {
        hottest = std::move(candidate);
    }
}

void ReadZone(const RootFiles& files, const std::string& name, std::optional<Temperature>& hottest)
{
    const std::string dir = "sys/class/thermal/" + name + "/";
    const std::optional<int64_t> current = files.ReadNumber(dir + "temp", LEAST_TEMPERATURE, MOST_TEMPERATURE);
    if (!current) {
        return;
    }
    Temperature zone;
    zone.source = "thermal " + files.ReadName(dir + "type").value_or("unnamed") + "/" + name;
    zone.current = *current;
    for (const int number : files.Numbers(dir, "trip_point_", "_temp")) {
        const std::string trip = dir + "trip_point_" + std::to_string(number);
        const std::string type = files.ReadName(trip + "_type").value_or("");
        if (type == "passive" || type == "hot" || type == "critical") {
            AddTrip(zone, ReadTrip(files, trip + "_temp"), type == "critical");
        }
    }
    Keep(hottest, std::move(zone));
}

void ReadChip(const RootFiles& files, const std::string& name, std::optional<Temperature>& hottest)
{
    const std::string dir = "sys/class/hwmon/" + name + "/";
    const std::string chip = "hwmon " + files.ReadName(dir + "name").value_or(name) + "/";
    for (const int number : files.Numbers(dir, "temp", "_input")) {
        const std::string item = "temp" + std::to_string(number);
        const std::string path = dir + item;
        const std::optional<int64_t> current = files.ReadNumber(path + "_input", LEAST_TEMPERATURE, MOST_TEMPERATURE);
        if (!current || files.ReadNumber(path + "_fault", 1, 1)) {
            continue;
        }
        Temperature sensor;
        sensor.source = chip + item;
        sensor.current = *current;
        AddTrip(sensor, ReadTrip(files, path + "_max"), false);
        AddTrip(sensor, ReadTrip(files, path + "_crit"), true);
        Keep(hottest, std::move(sensor));
    }
}

}  // namespace

std::optional<Temperature> ReadHottest(const RootFiles& files)
{
    std::optional<Temperature> hottest;
    for (const int number : files.Numbers("sys/class/thermal", "thermal_zone")) {
        ReadZone(files, "thermal_zone" + std::to_string(number), hottest);
    }
    for (const int number : files.Numbers("sys/class/hwmon", "hwmon")) {
        ReadChip(files, "hwmon" + std::to_string(number), hottest);
    }
    return hottest;
}

int32_t TemperatureLevel(const Temperature& temperature)
{
    if (temperature.critical && *temperature.critical - temperature.current <= 5 * DEGREE) {
        return 5;
    }
    const int64_t headroom = Headroom(temperature);
    if (headroom > 30 * DEGREE) {
        return 0;
    }
    if (headroom > 20 * DEGREE) {
        return 1;
    }
    if (headroom > 10 * DEGREE) {
        return 2;
    }
    return headroom > 0 ? 3 : 4;
}

std::optional<int32_t> TemperatureMargin(const Temperature& temperature)
{
    const std::vector<int64_t>& trips = temperature.trips;
    if (trips.empty()) {
        return std::nullopt;
    }
    const auto next = std::upper_bound(trips.begin(), trips.end(), temperature.current);
    const int64_t trip = next == trips.end() ? trips.back() : *next;
    return static_cast<int32_t>((trip - temperature.current) / DEGREE);
}

}  // namespace TAVO::Veltra
