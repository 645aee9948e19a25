// SPDX-License-Identifier: Apache-2.0
// First come the thermal zones, then the hwmon chips with each of their inputs. For each sensor its names are read
// first, its class follows from them, and the configuration may change that class; only then is it decided whether the
// temperature may be read at all, because a read may wake up a disk, a radio or a GPU that is suspended. Trip points
// outside of a plausible range are treated as not set. A folder may vanish at any time during the reading (a driver is
// unloaded): its values are absent then.
#include "probes/thermal_probe.h"

#include <algorithm>
#include <limits>
#include <map>

#include "probes/device_sleep.h"

namespace TAVO::Veltra {

namespace {

constexpr int64_t DEGREE = 1000;
// Trip points outside of these are not set: drivers report 0, -274 or the largest number then.
constexpr int64_t LEAST_TRIP = 30 * DEGREE;
constexpr int64_t MOST_TRIP = 150 * DEGREE;

void AddTrip(Sensor& sensor, std::optional<int64_t> trip, bool isCritical)
{
    if (!trip) {
        return;
    }
    sensor.trips.insert(std::upper_bound(sensor.trips.begin(), sensor.trips.end(), *trip), *trip);
    if (isCritical && (!sensor.critical || *trip < *sensor.critical)) {
        sensor.critical = trip;
    }
}

std::optional<int64_t> ReadTrip(const RootFiles& files, const std::string& path)
{
    return files.ReadNumber(path, LEAST_TRIP, MOST_TRIP);
}

// What is read of a machine, and how.
struct Reader {
    const RootFiles& files;
    const SensorChoice& choice;
    const SensorScope scope;

    Sensor Zone(const std::string& name) const;
    Sensor Input(const std::string& hwmon, const std::string& chip, const std::string& input) const;
    void ApplyChoice(Sensor& sensor) const;
    std::optional<int64_t> Current(const std::string& path, const Sensor& sensor) const;
};

template <typename Value>
const Value* FindMatch(const std::vector<std::pair<std::string, Value>>& entries, const Sensor& sensor)
{
    for (const auto& [pattern, value] : entries) {
        if (MatchesSensor(pattern, sensor.names)) {
            return &value;
        }
    }
    return nullptr;
}

bool IsListed(const std::vector<std::string>& patterns, const Sensor& sensor)
{
    return std::any_of(patterns.begin(), patterns.end(),
                       [&sensor](const std::string& pattern) { return MatchesSensor(pattern, sensor.names); });
}

void Reader::ApplyChoice(Sensor& sensor) const
{
    sensor.isExcluded = IsListed(choice.excluded, sensor);
    sensor.isPreferred = IsListed(choice.preferred, sensor);
    if (const std::string* name = FindMatch(choice.names, sensor)) {
        sensor.source = *name;
    }
    if (const SensorClass* sensorClass = FindMatch(choice.classes, sensor)) {
        sensor.sensorClass = *sensorClass;
    }
}

std::optional<int64_t> Reader::Current(const std::string& path, const Sensor& sensor) const
{
    const bool mayWake = sensor.sensorClass >= SensorClass::MEMORY && sensor.sensorClass <= SensorClass::BATTERY;
    if (scope == SensorScope::RELEVANT && (mayWake || sensor.isExcluded)) {
        return std::nullopt;
    }
    using Limits = std::numeric_limits<int32_t>;
    return files.ReadNumber(path, Limits::min(), Limits::max());
}

Sensor Reader::Zone(const std::string& name) const
{
    const std::string dir = "sys/class/thermal/" + name + "/";
    const std::string type = files.ReadName(dir + "type").value_or("unnamed");
    Sensor zone;
    zone.key = name;
    zone.source = "thermal " + type + "/" + name;
    zone.names = {type, type + "/" + name};
    zone.sensorClass = ClassOfZone(type);
    ApplyChoice(zone);
    // After the class is known: it decides whether the file may be read.
    zone.current = Current(dir + "temp", zone);
    for (const int number : files.Numbers(dir, "trip_point_", "_temp")) {
        const std::string trip = dir + "trip_point_" + std::to_string(number);
        const std::string kind = files.ReadName(trip + "_type").value_or("");
        // "active" is where a fan starts, which costs no speed.
        if (kind == "passive" || kind == "hot" || kind == "critical") {
            AddTrip(zone, ReadTrip(files, trip + "_temp"), kind == "critical");
        }
    }
    return zone;
}

Sensor Reader::Input(const std::string& hwmon, const std::string& chip, const std::string& input) const
{
    const std::string path = "sys/class/hwmon/" + hwmon + "/" + input;
    Sensor sensor;
    sensor.key = hwmon + "/" + input;
    sensor.label = files.ReadName(path + "_label").value_or("");
    // The folder follows the name where several chips share one: "amdgpu@hwmon3".
    sensor.source = "hwmon " + chip + "/" + input;
    sensor.names = {chip + "/" + input, chip + "/" + sensor.label};
    sensor.sensorClass = ClassOfInput(chip, sensor.label);
    ApplyChoice(sensor);
    if (sensor.sensorClass == SensorClass::GPU && IsAsleep(files, "sys/class/hwmon/" + hwmon + "/device/")) {
        return sensor;
    }
    sensor.hasFault = files.ReadNumber(path + "_fault", 1, 1).has_value();
    sensor.current = Current(path + "_input", sensor);
    AddTrip(sensor, ReadTrip(files, path + "_max"), false);
    AddTrip(sensor, ReadTrip(files, path + "_crit"), true);
    return sensor;
}

// Names of chips by the number of their folder. A name that several chips share is followed by the folder.
std::map<int, std::string> ChipNames(const RootFiles& files)
{
    std::map<int, std::string> names;
    std::map<std::string, int> count;
    for (const int number : files.Numbers("sys/class/hwmon", "hwmon")) {
        const std::string folder = "hwmon" + std::to_string(number);
        names[number] = files.ReadName("sys/class/hwmon/" + folder + "/name").value_or(folder);
        ++count[names[number]];
    }
    for (auto& [number, name] : names) {
        name += count[name] > 1 ? "@hwmon" + std::to_string(number) : "";
    }
    return names;
}

}  // namespace

std::vector<Sensor> ReadSensors(const RootFiles& files, const SensorChoice& choice, SensorScope scope)
{
    const Reader reader{files, choice, scope};
    std::vector<Sensor> sensors;
    for (const int number : files.Numbers("sys/class/thermal", "thermal_zone")) {
        sensors.push_back(reader.Zone("thermal_zone" + std::to_string(number)));
    }
    for (const auto& [number, chip] : ChipNames(files)) {
        const std::string hwmon = "hwmon" + std::to_string(number);
        for (const int input : files.Numbers("sys/class/hwmon/" + hwmon, "temp", "_input")) {
            sensors.push_back(reader.Input(hwmon, chip, "temp" + std::to_string(input)));
        }
    }
    return sensors;
}

}  // namespace TAVO::Veltra
