// SPDX-License-Identifier: Apache-2.0
// Reads the temperature sensors of a machine, from thermal zones and hwmon chips, as they are: nothing is judged here.
#ifndef VELTRA_SERVICE_THERMAL_PROBE_H
#define VELTRA_SERVICE_THERMAL_PROBE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "probes/root_files.h"
#include "probes/sensor_choice.h"

namespace TAVO::Veltra {

// One sensor. Temperatures are in thousandths of a degree Celsius, as the kernel gives them.
struct Sensor {
    std::string key;     // "hwmon4/temp1": unique on the machine, but may be another sensor's after a restart
    std::string source;  // the name in answers: "hwmon coretemp/temp1", "thermal x86_pkg_temp/thermal_zone0"
    std::string label;   // "Package id 0"; may be empty
    std::vector<std::string> names;  // by which a choice may refer to it: "coretemp/temp1", "coretemp/Package id 0"
    SensorClass sensorClass = SensorClass::UNKNOWN;
    bool isExcluded = false;
    bool isPreferred = false;
    bool hasFault = false;            // the driver reports that nothing is connected
    std::optional<int64_t> current;   // empty: not readable, or not read
    std::vector<int64_t> trips;       // ascending: throttling, the maker's maximum, hot, critical; fans do not count
    std::optional<int64_t> critical;  // the lowest trip at which the machine switches itself off
};

enum class SensorScope {
    RELEVANT,  // temperatures of disks, memory, radios, network cards and batteries are not read: that may wake them
    EVERYTHING,
};

// All sensors of the machine, thermal zones first, each in the order of its number. The choice has been applied.
std::vector<Sensor> ReadSensors(const RootFiles& files, const SensorChoice& choice, SensorScope scope);

}  // namespace TAVO::Veltra

#endif
