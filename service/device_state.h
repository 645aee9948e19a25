// SPDX-License-Identifier: Apache-2.0
// The device state that GetDeviceInfo returns: what the probes found, as a JSON text.
#ifndef VELTRA_SERVICE_DEVICE_STATE_H
#define VELTRA_SERVICE_DEVICE_STATE_H

#include <cstdint>
#include <string>
#include <vector>

#include <tavo/mutex.h>

#include "device_fields.h"
#include "ipc/iveltra_server_interface.h"
#include "reading_history.h"
#include "root_files.h"
#include "thermal_probe.h"
#include "veltra_records.h"

namespace TAVO::Veltra {

// Any thread, several at once. Throws std::bad_alloc only.
class DeviceState {
public:
    explicit DeviceState(const std::string& rootDir) : files_(rootDir) {}

    // Code 0 and the document, or SERVICE_NO_SENSOR. No details ask for everything. What the machine does not tell has
    // no key; "sources" names the file or sensor behind each value.
    DeviceInfoResult Describe(const std::vector<QueryDeviceStateDetail>& details);

    bool TellsLevel() const;  // whether Describe would succeed now
    bool TellsGpu() const;

private:
    class Document;

    void AddThermalInfo(Document& document, const Temperature& temperature);
    void AddGpuInfo(Document& document) const;
    void AddCpuInfo(Document& document);

    const RootFiles files_;
    Mutex mutex_;  // never held while a file is read
    CpuLoad cpuLoad_ TAVO_GUARDED_BY(mutex_);
    ThermalTrend thermalTrend_ TAVO_GUARDED_BY(mutex_);
};

}  // namespace TAVO::Veltra

#endif
