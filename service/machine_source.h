// SPDX-License-Identifier: Apache-2.0
// The state of the machine under the service, from its probes.
#ifndef VELTRA_SERVICE_MACHINE_SOURCE_H
#define VELTRA_SERVICE_MACHINE_SOURCE_H

#include <string>

#include <tavo/mutex.h>

#include "device_fields.h"
#include "reading_history.h"
#include "root_files.h"
#include "thermal_probe.h"

namespace TAVO::Veltra {

class MachineSource final : public DeviceSource {
public:
    explicit MachineSource(const std::string& rootDir) : files_(rootDir) {}

    DeviceReading Read(const WantedState& wanted) override;

private:
    void AddThermal(DeviceReading& reading, const Temperature& temperature);
    void AddGpu(DeviceReading& reading) const;
    void AddCpu(DeviceReading& reading);

    const RootFiles files_;
    Mutex mutex_;  // never held while a file is read
    CpuLoad cpuLoad_ TAVO_GUARDED_BY(mutex_);
    ThermalTrend thermalTrend_ TAVO_GUARDED_BY(mutex_);
};

}  // namespace TAVO::Veltra

#endif
