// SPDX-License-Identifier: Apache-2.0
// Temperatures of thermal zones and hwmon chips, and how near they are to the points at which the machine acts.
#ifndef VELTRA_SERVICE_THERMAL_PROBE_H
#define VELTRA_SERVICE_THERMAL_PROBE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "root_files.h"

namespace TAVO::Veltra {

// One sensor. Temperatures are in thousandths of a degree Celsius, as the kernel gives them.
struct Temperature {
    std::string source;  // "hwmon coretemp/temp1", "thermal x86_pkg_temp/thermal_zone0"
    int64_t current = 0;
    std::vector<int64_t> trips;       // ascending: throttling, the maker's maximum, hot, critical; fans do not count
    std::optional<int64_t> critical;  // the machine switches itself off there
};

// Sensors without trip points are taken to be hot here.
constexpr int64_t ASSUMED_TRIP = 95000;

// The sensor that is nearest to its first trip point; empty when the machine has no sensor that makes sense.
std::optional<Temperature> ReadHottest(const RootFiles& files);

// 0 more than 30 degrees below the first trip point, 1 more than 20, 2 more than 10, 3 below it, 4 at or above it,
// 5 at most 5 degrees below the critical one.
int32_t TemperatureLevel(const Temperature& temperature);

// Whole degrees to the next trip point above; beyond the last one, 0 or the negative distance. Empty without any.
std::optional<int32_t> TemperatureMargin(const Temperature& temperature);

}  // namespace TAVO::Veltra

#endif
