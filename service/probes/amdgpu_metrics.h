// SPDX-License-Identifier: Apache-2.0
// The binary file gpu_metrics of the amdgpu driver.
#ifndef VELTRA_SERVICE_AMDGPU_METRICS_H
#define VELTRA_SERVICE_AMDGPU_METRICS_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace TAVO::Veltra {

struct AmdgpuMetrics {
    std::optional<int64_t> loadPercent;
    std::optional<int64_t> memoryLoadPercent;
    std::optional<int64_t> graphicsClockMhz;
    std::optional<int64_t> memoryClockMhz;
    std::optional<int64_t> temperatureCelsius;
    std::optional<int64_t> powerMilliwatts;  // of the whole package where the GPU is part of one
};

// Formats 1.0 to 1.3 (cards), 2.0 to 2.4 and 3.0 (processors with graphics). Of other formats, and of a file that is
// shorter than its format, nothing is known.
AmdgpuMetrics ParseAmdgpuMetrics(std::string_view bytes);

}  // namespace TAVO::Veltra

#endif
