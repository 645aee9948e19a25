// SPDX-License-Identifier: Apache-2.0
// The values that make up the state of a device: their names, where each stands in the document and in an event.
#ifndef VELTRA_SERVICE_DEVICE_FIELDS_H
#define VELTRA_SERVICE_DEVICE_FIELDS_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "measured.h"
#include "veltra_records.h"

namespace TAVO::Veltra {

// Meaning of QueryDeviceStateDetail::queryType; other numbers ask for nothing. "tempLevel" is always there.
enum class QueryType : int32_t {
    EVERYTHING = 0,
    THERMAL = 1,  // thermalInfo, temperature
    GPU = 2,      // gpuInfo
    CPU = 3,      // cpuLoadPercent, cpuFrequencies
};

struct DeviceField {
    const char* key;
    const char* section;                      // the object of the document that holds it; null: the document itself
    QueryType type;                           // EVERYTHING: told whatever is asked for
    int32_t GameCallbackEventInfo::*inEvent;  // null: events do not carry it
    int32_t least;
    int32_t most;
};

const std::vector<DeviceField>& DeviceFields();
const DeviceField* FindDeviceField(std::string_view key);  // null: there is none

// Which parts of the state somebody wants; reading costs time.
struct WantedState {
    bool thermal = true;
    bool gpu = true;
    bool cpu = true;

    bool Includes(QueryType type) const
    {
        return type == QueryType::EVERYTHING || (type == QueryType::THERMAL && thermal) ||
               (type == QueryType::GPU && gpu) || (type == QueryType::CPU && cpu);
    }
};

// What is known at one moment. What the machine does not tell is not in it.
struct DeviceReading {
    std::map<std::string, Measured> values;  // by DeviceField::key
    std::string levelFrom;                   // "sensor", "cpuPressure", "scenario"
    std::map<std::string, int32_t> cpuFrequencies;

    bool HasLevel() const { return values.count("tempLevel") > 0; }
};

// Where readings come from. Any thread, several at once.
class DeviceSource {
public:
    virtual ~DeviceSource() = default;
    virtual DeviceReading Read(const WantedState& wanted) = 0;
};

}  // namespace TAVO::Veltra

#endif
