// SPDX-License-Identifier: Apache-2.0
// The device and its GPU counters as clients see them: the real ones with what is simulated on top.
#ifndef VELTRA_SERVICE_SIMULATED_DEVICE_H
#define VELTRA_SERVICE_SIMULATED_DEVICE_H

#include <functional>
#include <memory>
#include <vector>

#include <tavo/mutex.h>

#include "base/device_fields.h"
#include "base/gpu_counters.h"
#include "scenario/simulation.h"

namespace TAVO::Veltra {

// Every simulated value has a source that says so.
class SimulatedDevice final : public DeviceSource {
public:
    SimulatedDevice(const Simulation& simulation, std::unique_ptr<DeviceSource> machine)
        : simulation_(simulation), machine_(std::move(machine))
    {
    }

    DeviceReading Read(const WantedState& wanted) override;

private:
    const Simulation& simulation_;
    const std::unique_ptr<DeviceSource> machine_;
};

class SimulatedCounters final : public GpuCounterSource {
public:
    // `open` finds the machine's counters, null when it has none now. Called when they are needed, until it has found
    // some; one thread at a time.
    using Open = std::function<std::unique_ptr<GpuCounterSource>()>;

    SimulatedCounters(const Simulation& simulation, Open open) : simulation_(simulation), open_(std::move(open)) {}

    bool IsThere();  // any thread
    double Interval(int32_t milliseconds) const override;
    std::vector<GpuPerfInfo> Batch(double now, const CounterStream& stream) override;

private:
    GpuCounterSource* Machine() TAVO_EXCLUDES(mutex_);

    const Simulation& simulation_;
    const Open open_;
    Mutex mutex_;                                                        // held while the counters are opened
    std::unique_ptr<GpuCounterSource> machine_ TAVO_GUARDED_BY(mutex_);  // never replaced once it is set
};

}  // namespace TAVO::Veltra

#endif
