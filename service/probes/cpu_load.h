// SPDX-License-Identifier: Apache-2.0
// The load of the processors, which takes two readings.
#ifndef VELTRA_SERVICE_CPU_LOAD_H
#define VELTRA_SERVICE_CPU_LOAD_H

#include <cstdint>
#include <optional>

#include "probes/cpu_probe.h"

namespace TAVO::Veltra {

// One thread at a time.
class CpuLoad {
public:
    // Readings nearer together than this many ticks say nothing new: they get the load known before.
    static constexpr uint64_t LEAST_TICKS = 10;

    // Percent of the time since the reading before, 0 to 100; empty at the first and when the counters ran backwards.
    std::optional<int32_t> Update(const CpuTimes& now);

private:
    std::optional<CpuTimes> before_;
    std::optional<int32_t> percent_;
};

}  // namespace TAVO::Veltra

#endif
