// SPDX-License-Identifier: Apache-2.0
// GPU counters from NVIDIA's management library, where the machine has it.
#ifndef VELTRA_SERVICE_NVML_COUNTERS_H
#define VELTRA_SERVICE_NVML_COUNTERS_H

#include <memory>

#include "base/gpu_counters.h"

namespace TAVO::Veltra {

// Loads the library and sets it up, which may take a second where there is a GPU. Each entry is resolved on its own:
// what an older library or a GPU does not report is absent. Null without a library or without a GPU. The
// library stays loaded: it has threads of its own.
std::unique_ptr<GpuCounterSource> OpenNvmlCounters(const char* library = "libnvidia-ml.so.1");

}  // namespace TAVO::Veltra

#endif
