// SPDX-License-Identifier: Apache-2.0
// The state of the machine under the service, from its probes.
#ifndef VELTRA_SERVICE_MACHINE_SOURCE_H
#define VELTRA_SERVICE_MACHINE_SOURCE_H

#include <array>
#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include <tavo/mutex.h>

#include "base/device_fields.h"
#include "probes/cpu_load.h"
#include "probes/drm_usage.h"
#include "probes/gpu_probe.h"
#include "probes/heat_judge.h"
#include "probes/root_files.h"
#include "probes/sensor_choice.h"

namespace TAVO::Veltra {

// How a machine is read.
struct MachineSettings {
    using TimePoint = std::chrono::steady_clock::time_point;

    SensorChoice sensors;
    // Readings that are younger are returned again: the hardware has nothing newer, and a game may ask in every frame.
    std::chrono::milliseconds heatInterval{1000};
    std::chrono::milliseconds loadInterval{250};
    std::function<TimePoint()> now = [] { return std::chrono::steady_clock::now(); };
};

class MachineSource final : public DeviceSource {
public:
    explicit MachineSource(const std::string& rootDir, const MachineSettings& settings = {})
        : settings_(settings), files_(rootDir), judge_(settings.sensors)
    {
    }

    // False: there is no such folder, or no descriptor was left for it. Nothing is known then.
    bool IsOpen() const { return files_.IsOpen(); }
    DeviceReading Read(const WantedState& wanted) override;

private:
    using TimePoint = MachineSettings::TimePoint;
    enum Part : size_t { HEAT, GPU, CPU, MEMORY, POWER, PARTS };
    struct LastReading {
        std::optional<TimePoint> readAt;
        DeviceReading reading;
    };

    // The part as it was read last if that is young enough, else what `read` returns. Two threads may read at once.
    template <typename Reader>
    DeviceReading Fresh(Part part, std::chrono::milliseconds interval, Reader read) TAVO_EXCLUDES(mutex_);
    DeviceReading ReadHeat(TimePoint now);
    DeviceReading ReadGpu(TimePoint now);
    DeviceReading ReadGame(pid_t game);
    DeviceReading ReadCpu();
    DeviceReading ReadMainMemory() const;
    DeviceReading ReadPower() const;

    const MachineSettings settings_;
    const RootFiles files_;
    Mutex mutex_;  // never held while a file is read
    HeatJudge judge_ TAVO_GUARDED_BY(mutex_);
    CpuLoad cpuLoad_ TAVO_GUARDED_BY(mutex_);
    GpuIdleTracker gpuIdle_ TAVO_GUARDED_BY(mutex_);
    DrmLoadTracker games_ TAVO_GUARDED_BY(mutex_);
    std::string busiestGpu_ TAVO_GUARDED_BY(mutex_);  // the one that is described
    int32_t gpuLevel_ TAVO_GUARDED_BY(mutex_) = 0;
    int32_t bandwidthLevel_ TAVO_GUARDED_BY(mutex_) = 0;
    std::array<LastReading, PARTS> parts_ TAVO_GUARDED_BY(mutex_);
};

}  // namespace TAVO::Veltra

#endif
