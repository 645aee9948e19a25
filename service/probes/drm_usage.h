// SPDX-License-Identifier: Apache-2.0
// How much of the GPUs one process uses, from what the DRM drivers write into proc/<pid>/fdinfo.
#ifndef VELTRA_SERVICE_DRM_USAGE_H
#define VELTRA_SERVICE_DRM_USAGE_H

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "probes/root_files.h"

namespace TAVO::Veltra {

// One engine of a GPU ("gfx", "render"), summed over the process's descriptors. Drivers count time or cycles.
struct DrmEngine {
    std::optional<uint64_t> busyNanoseconds;
    std::optional<uint64_t> busyCycles;
    uint64_t allCycles = 0;        // that passed meanwhile; 0: not reported
    uint64_t cyclesPerSecond = 0;  // at most; 0: not reported
    uint64_t capacity = 1;         // engines of this kind
};

struct DrmUsage {
    std::map<std::string, DrmEngine> engines;
    std::optional<uint64_t> memoryBytes;
};

// By the GPU's place on the PCI bus, or by the name of its driver where it has none. Empty when the process has no GPU
// open, has ended, or belongs to another user.
std::map<std::string, DrmUsage> ReadDrmUsage(const RootFiles& files, pid_t process);

// The part of a GPU that a process used since the reading before. One thread at a time.
class DrmLoadTracker {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr size_t MOST_PROCESSES = 64;  // whose last reading is kept; the oldest one goes

    struct Use {
        std::optional<int64_t> loadPercent;  // of the busiest engine; from the second reading on
        std::optional<int64_t> memoryBytes;
    };
    using Uses = std::map<std::string, Use>;  // as in ReadDrmUsage

    // The last result if it is younger than `interval`.
    std::optional<Uses> Recent(pid_t process, TimePoint now, std::chrono::milliseconds interval) const;
    Uses Update(pid_t process, std::map<std::string, DrmUsage> usage, TimePoint now);

private:
    struct Past {
        TimePoint at;
        std::map<std::string, DrmUsage> usage;
        Uses uses;
    };
    std::map<pid_t, Past> past_;
};

}  // namespace TAVO::Veltra

#endif
