// SPDX-License-Identifier: Apache-2.0
// A number that the machine reported, and its source.
#ifndef VELTRA_SERVICE_MEASURED_H
#define VELTRA_SERVICE_MEASURED_H

#include <cstdint>
#include <string>

namespace TAVO::Veltra {

struct Measured {
    int64_t value = 0;
    std::string source;  // "drm card0/gpu_busy_percent"
};

}  // namespace TAVO::Veltra

#endif
