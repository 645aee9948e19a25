// SPDX-License-Identifier: Apache-2.0
// Which sensors a user prefers, excludes, renames or gives another class, and the thresholds of a class.
#ifndef VELTRA_SERVICE_SENSOR_CHOICE_H
#define VELTRA_SERVICE_SENSOR_CHOICE_H

#include <bitset>
#include <string>
#include <utility>
#include <vector>

#include "probes/sensor_class.h"

namespace TAVO::Veltra {

// Patterns are matched against each name of a sensor ("coretemp/temp1", "coretemp/Package id 0"); "*" stands for any
// text. Where several entries match, the first one counts.
struct SensorChoice {
    std::vector<std::string> preferred;  // if one of them can be read, no other sensor decides the level
    std::vector<std::string> excluded;
    std::vector<std::pair<std::string, std::string>> names;
    std::vector<std::pair<std::string, SensorClass>> classes;
    ThresholdTable thresholds = DefaultThresholds();
    std::bitset<SENSOR_CLASSES> hasThresholds;  // of these classes the user gave them: they count as trip points
};

bool MatchesSensor(const std::string& pattern, const std::vector<std::string>& sensorNames);

}  // namespace TAVO::Veltra

#endif
