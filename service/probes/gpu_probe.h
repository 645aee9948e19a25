// SPDX-License-Identifier: Apache-2.0
// What the graphics drivers report about each GPU of the machine: load, clocks and their caps, memory, power.
#ifndef VELTRA_SERVICE_GPU_PROBE_H
#define VELTRA_SERVICE_GPU_PROBE_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/measured.h"
#include "probes/root_files.h"

namespace TAVO::Veltra {

// What is not known is empty. A GPU that sleeps is not read, since that would wake it: it has a name and no values.
struct GpuReading {
    std::string name;        // "card0", or the name of a devfreq device
    std::string slot;        // on the PCI bus: "0000:03:00.0"; may be empty
    bool canRender = false;  // it has a render node, or is a devfreq device: a GPU also while nothing is known of it

    std::optional<Measured> loadPercent;
    std::optional<Measured> memoryLoadPercent;  // of the memory interface
    std::optional<Measured> frequencyMhz;
    std::optional<Measured> frequencyCapMhz;  // as it is set now
    std::optional<Measured> frequencyMaxMhz;  // what the hardware allows
    std::optional<Measured> memoryFrequencyMhz;
    std::optional<Measured> memoryUsedBytes;
    std::optional<Measured> memoryTotalBytes;
    std::optional<Measured> temperatureCelsius;
    std::optional<Measured> powerMilliwatts;
    std::optional<Measured> energyMillijoules;
    std::optional<Measured> fanPercent;
    std::optional<Measured> idleMilliseconds;  // since it was started; drivers without a load report this instead

    bool IsEmpty() const;
};

// Graphics cards by their number, then GPUs that are devfreq devices only. A card that cannot render and reports
// nothing is a display controller and left out.
std::vector<GpuReading> ReadGpus(const RootFiles& files);

// The busiest; where none reports its load, the first that reports anything. Null when none does. The one named
// `before` stays it until another is busier by BUSIER_BY percent: two GPUs with the same load must not take turns.
constexpr int64_t BUSIER_BY = 10;
const GpuReading* Busiest(const std::vector<GpuReading>& gpus, const std::string& before = {});

// The load of GPUs that report how long they were idle. One thread at a time.
class GpuIdleTracker {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    // Fills in the load where the driver reports none, from the second call on.
    void AddLoads(std::vector<GpuReading>& gpus, TimePoint now);

private:
    struct Past {
        TimePoint at;
        int64_t idleMilliseconds = 0;
        std::optional<int64_t> percent;
    };
    std::map<std::string, Past> past_;  // by the name of the GPU
};

// 0 below 20 percent, 1 below 40, 2 below 60, 3 below 80, 4 below 95, else 5.
int32_t LoadLevel(int64_t percent);

}  // namespace TAVO::Veltra

#endif
