// SPDX-License-Identifier: Apache-2.0
// The device state as it is sent to clients: the text that GetDeviceInfo returns, and the record in events.
#ifndef VELTRA_SERVICE_DEVICE_STATE_H
#define VELTRA_SERVICE_DEVICE_STATE_H

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/device_fields.h"
#include "ipc/iveltra_server_interface.h"
#include "veltra_records.h"

namespace TAVO::Veltra {

// Any thread, several at once. Throws std::bad_alloc only.
class DeviceState {
public:
    explicit DeviceState(std::unique_ptr<DeviceSource> source) : source_(std::move(source)) {}

    // Code 0 and the document, or SERVICE_NO_SENSOR if the machine reports no value. No details ask for everything;
    // `game` is the process whose own use of the GPU is included, 0 for none. What is not known has no key, except
    // that "tempLevel" is -1 then; "sources" and "units" name the file or sensor and the unit of each value.
    DeviceInfoResult Describe(const std::vector<QueryDeviceStateDetail>& details, pid_t game = 0) const;

    // The device state as an event carries it. What is not known keeps the record's default; eventText stays empty.
    GameCallbackEventInfo Event() const;

    // The values that are known, by DeviceField::key.
    std::map<std::string, int64_t> Values() const;

    bool ReportsAnything() const;  // whether Describe would succeed now
    bool ReportsGpu() const;

private:
    const std::unique_ptr<DeviceSource> source_;
};

}  // namespace TAVO::Veltra

#endif
