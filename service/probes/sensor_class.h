// SPDX-License-Identifier: Apache-2.0
// What a temperature sensor measures, derived from the names that its driver gives it, and the temperatures that are
// assumed for a sensor that has no trip points.
#ifndef VELTRA_SERVICE_SENSOR_CLASS_H
#define VELTRA_SERVICE_SENSOR_CLASS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace TAVO::Veltra {

enum class SensorClass : size_t {
    CPU,
    GPU,
    SOC,
    SKIN,
    CASE,
    MEMORY,
    DISK,
    NETWORK,
    WIRELESS,
    BATTERY,
    UNKNOWN,
};
constexpr size_t SENSOR_CLASSES = 11;

// In thousandths of a degree Celsius.
struct ClassThresholds {
    int64_t hot;       // level 4 begins here
    int64_t critical;  // level 5 begins half a step below
    int64_t step;      // levels 3, 2 and 1 begin one, two and three steps below `hot`
};
using ThresholdTable = std::array<ClassThresholds, SENSOR_CLASSES>;

// The documented defaults, by class.
const ThresholdTable& DefaultThresholds();

const char* NameOf(SensorClass sensorClass);
std::optional<SensorClass> FindSensorClass(std::string_view name);

// Only these say how hot a game makes the machine.
constexpr bool DecidesLevel(SensorClass sensorClass)
{
    return sensorClass <= SensorClass::SKIN;
}

// From the type of a thermal zone: "x86_pkg_temp", "gpuss-0-usr".
SensorClass ClassOfZone(const std::string& type);
// From the name of a hwmon chip and the label of its input, which may be empty: "coretemp" and "Package id 0".
SensorClass ClassOfInput(const std::string& chip, const std::string& label);

}  // namespace TAVO::Veltra

#endif
