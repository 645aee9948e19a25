// SPDX-License-Identifier: Apache-2.0
// What the graphics drivers tell about the load and the clock of a GPU.
#ifndef VELTRA_SERVICE_GPU_PROBE_H
#define VELTRA_SERVICE_GPU_PROBE_H

#include <cstdint>
#include <optional>

#include "measured.h"
#include "root_files.h"

namespace TAVO::Veltra {

struct GpuReading {
    std::optional<Measured> loadPercent;
    std::optional<Measured> memoryLoadPercent;  // of the memory interface
    std::optional<Measured> frequencyMhz;

    bool IsEmpty() const { return !loadPercent && !memoryLoadPercent && !frequencyMhz; }
};

// The busiest card; where none tells its load, the first that tells anything. Empty when none does.
GpuReading ReadGpu(const RootFiles& files);

// 0 below 20 percent, 1 below 40, 2 below 60, 3 below 80, 4 below 95, else 5.
int32_t LoadLevel(int32_t percent);

}  // namespace TAVO::Veltra

#endif
