// SPDX-License-Identifier: Apache-2.0
// What the kernel reports about its processors: time spent, clocks, and how long work waits for one.
#ifndef VELTRA_SERVICE_CPU_PROBE_H
#define VELTRA_SERVICE_CPU_PROBE_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "base/measured.h"
#include "probes/root_files.h"

namespace TAVO::Veltra {

// Clock ticks since the machine started, all processors together.
struct CpuTimes {
    uint64_t total = 0;
    uint64_t idle = 0;  // waiting for input and output counts as idle
};

// From proc/stat.
std::optional<CpuTimes> ReadCpuTimes(const RootFiles& files);

// MHz by cpufreq policy ("policy0") from its file: scaling_cur_freq is the current frequency, scaling_max_freq the cap,
// cpuinfo_max_freq what the hardware allows. Empty on machines without frequency control.
std::map<std::string, int32_t> ReadCpuFrequencies(const RootFiles& files, const std::string& file);

// From proc/pressure/`resource` ("cpu", "memory"): percent of the last 10 s in which some work waited for it.
std::optional<Measured> ReadPressure(const RootFiles& files, const std::string& resource);

}  // namespace TAVO::Veltra

#endif
