// SPDX-License-Identifier: Apache-2.0
// Battery, power draw, power profile, fans and main memory.
#ifndef VELTRA_SERVICE_POWER_PROBE_H
#define VELTRA_SERVICE_POWER_PROBE_H

#include <optional>
#include <string>
#include <utility>

#include "base/measured.h"
#include "probes/root_files.h"

namespace TAVO::Veltra {

struct BatteryReading {
    std::optional<Measured> percent;
    std::optional<Measured> isCharging;      // 1 or 0
    std::optional<Measured> drawMilliwatts;  // while it is being discharged
};

// The first battery that supplies the machine; those of mice and headsets do not count.
BatteryReading ReadBattery(const RootFiles& files);

// The name that the firmware gives the profile, and the file.
std::optional<std::pair<std::string, std::string>> ReadPlatformProfile(const RootFiles& files);

// The fastest fan, in revolutions per minute.
std::optional<Measured> ReadFan(const RootFiles& files);

struct MemoryReading {
    std::optional<Measured> availableBytes;
    std::optional<Measured> totalBytes;
};
MemoryReading ReadMemory(const RootFiles& files);

}  // namespace TAVO::Veltra

#endif
