// SPDX-License-Identifier: Apache-2.0
// What the kernel reports about slowing the processor or the GPU down because of heat.
#ifndef VELTRA_SERVICE_THROTTLE_PROBE_H
#define VELTRA_SERVICE_THROTTLE_PROBE_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "probes/root_files.h"

namespace TAVO::Veltra {

struct CoolingDevice {
    std::string source;            // "cooling_device3 thermal-cpufreq-0"
    bool counts = false;           // it slows a processor or a GPU down; fans and displays do not
    std::optional<int64_t> state;  // 0: not active
};

struct ThrottleReading {
    std::vector<CoolingDevice> devices;
    std::map<int, int64_t> events;  // by processor, since the machine started
    std::string gpuReason;          // a file by which a GPU driver reports that heat slows it down now; may be empty
    bool reportsGpu = false;        // there is such a file

    // The first device that is active, or the GPU's file; empty when the kernel reports nothing.
    std::string Active() const;
    // Whether the machine has any means to report throttling.
    bool ReportsAnything() const;
};

ThrottleReading ReadThrottling(const RootFiles& files);

}  // namespace TAVO::Veltra

#endif
