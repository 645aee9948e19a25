// SPDX-License-Identifier: Apache-2.0
// The values of the device state: their names, and where each is in the document and in an event.
#ifndef VELTRA_SERVICE_DEVICE_FIELDS_H
#define VELTRA_SERVICE_DEVICE_FIELDS_H

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/measured.h"
#include "veltra_records.h"

namespace TAVO::Veltra {

// Meaning of QueryDeviceStateDetail::queryType; other numbers ask for nothing. "tempLevel" is always there.
enum class QueryType : int32_t {
    EVERYTHING = 0,
    THERMAL = 1,  // thermalInfo, temperature
    GPU = 2,      // gpuInfo
    CPU = 3,      // cpuLoadPercent, cpuPressurePercent, cpuFrequencies and their limits
    MEMORY = 4,   // memoryInfo
    POWER = 5,    // powerInfo
};

struct DeviceField {
    const char* key;                          // unique in the whole document
    const char* section;                      // the object of the document that holds it; null: the document itself
    const char* unit;                         // empty: a level or a sign
    QueryType type;                           // EVERYTHING: returned for every query
    int32_t GameCallbackEventInfo::*inEvent;  // null: events do not carry it
    int32_t eventStep;                        // an event is sent for a change by more than this
    int64_t least;
    int64_t most;
};

const std::vector<DeviceField>& DeviceFields();
const DeviceField* FindDeviceField(std::string_view key);  // null: there is none

// Which parts of the state are wanted; reading costs time.
struct WantedState {
    bool thermal = true;
    bool gpu = true;
    bool cpu = true;
    bool memory = true;
    bool power = true;
    pid_t game = 0;  // process whose own use of the GPU is read; 0: none

    bool Includes(QueryType type) const
    {
        return type == QueryType::EVERYTHING || (type == QueryType::THERMAL && thermal) ||
               (type == QueryType::GPU && gpu) || (type == QueryType::CPU && cpu) ||
               (type == QueryType::MEMORY && memory) || (type == QueryType::POWER && power);
    }
};

// What is known at one moment. What the machine does not report is not in it.
struct DeviceReading {
    static constexpr char UNKNOWN_LEVEL[] = "unknown";

    std::map<std::string, Measured> values;                              // by DeviceField::key
    std::string levelFrom = UNKNOWN_LEVEL;                               // or "sensor", "throttling", "scenario"
    std::map<std::string, std::map<std::string, int32_t>> frequencies;   // MHz by key of the document and policy
    std::map<std::string, std::string> ignoredSensors;                   // why, by the name of the sensor
    std::optional<std::pair<std::string, std::string>> platformProfile;  // its name and its source

    bool HasLevel() const { return values.count("tempLevel") > 0; }
    bool IsEmpty() const { return values.empty() && frequencies.empty() && !platformProfile; }
    // Adds what `other` knows; the two know different things.
    void Add(const DeviceReading& other);
};

// Where readings come from. Any thread, several at once.
class DeviceSource {
public:
    virtual ~DeviceSource() = default;
    virtual DeviceReading Read(const WantedState& wanted) = 0;
};

}  // namespace TAVO::Veltra

#endif
