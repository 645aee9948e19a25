// SPDX-License-Identifier: Apache-2.0
// The records that a game and the service exchange. Plain values: copy, compare and change them at will.
#ifndef VELTRA_RECORDS_H
#define VELTRA_RECORDS_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "tavo/parcel.h"
#include "veltra_export.h"

namespace TAVO::Veltra {

// Fields with positional names (text1, int1, long1...) are opaque to this library: the service gives them their
// meaning, which docs/service.md lists. Texts may hold any bytes. The order of the fields is part of the contract.

// What ReportGameEvent reports.
struct GameInfo {
    int32_t int32Value = 0;
    int64_t int64Value = 0;
    std::string text1;
    std::string text2;
    std::string text3;
    std::string text4;
    std::string text5;
    std::string text6;
};

// What QueryGameState fills in.
struct GameState {
    int32_t state = 0;       // as the service reports it; 2: no game is running
    std::string bundleName;  // the application that the state belongs to
};

// One item of a GetDeviceInfo query.
struct QueryDeviceStateDetail {
    int32_t queryType = 0;
    std::map<std::string, std::string> queryParams;
};

// The state of the device: sent with each game event, returned by GetDeviceInfo. A value that the service does not know
// has its default. If an event arrives incomplete, its missing values are 0 or empty. GetDeviceInfo fills neither
// eventText nor extraValue.
struct GameCallbackEventInfo {
    std::string eventText;
    int32_t tempLevel = -1;  // -1: unknown
    int32_t gpuLoadLevel = 0;
    int32_t vertexLoadLevel = 0;
    int32_t fragmentLoadLevel = 0;
    int32_t textureLoadLevel = 0;
    int32_t bandwidthLoadLevel = 0;
    int32_t currentFrequency = 0;
    int32_t thermalMargin = std::numeric_limits<int32_t>::min();  // the smallest value: unknown
    int32_t thermalTrend = 0;
    int32_t extraValue = 0;
    int32_t resultCode = 0;  // of GetDeviceInfo: 0 or a code of veltra_result.h; always 0 in an event
};

// One resource of an application, in answers to QueryAppResourceInfos.
class VELTRA_EXPORT AppResourceInfo final : public TAVO::Parcelable {
public:
    AppResourceInfo();

    // Writes the eight fields in their order; false at the first write that fails.
    bool Marshalling(TAVO::Parcel& parcel) const override;
    // A new record that the caller owns, or null when a field is missing or memory runs out. Does not throw.
    static AppResourceInfo* Unmarshalling(TAVO::Parcel& parcel);
    // The same into this record; false when a field is missing, those before it are set then.
    bool ReadFields(TAVO::Parcel& parcel);

    std::string text1;
    int32_t int1 = 1;
    int32_t int2 = 0;
    std::string text2;
    std::string text3;
    int64_t long1 = 0;
    int32_t int3 = 0;
    std::string text4;
};

// The records that answer one QueryAppResourceInfos.
struct AppResourceInfos {
    std::vector<AppResourceInfo> resourceInfos;
};

// The outcome of one download, for NotifyAppResourceDownLoadResults. text1 and text4 of resourceInfo are not sent.
struct AppResourceDownLoadResult {
    std::string text1;
    std::string text2;
    int64_t value1 = 0;
    int64_t value2 = 0;
    int64_t value3 = 0;
    int32_t count1 = 0;
    int32_t count2 = 0;
    int64_t value4 = 0;
    AppResourceInfo resourceInfo;
};

// One GPU counter sample. Samples come in batches of up to 524288, so reading one is inline.
class VELTRA_EXPORT GpuPerfInfo final : public TAVO::Parcelable {
public:
    GpuPerfInfo();

    static constexpr size_t FIXED_PARCEL_BYTES = 84;  // what every sample takes in a parcel

    // Writes the sixteen fields in their order; false at the first write that fails.
    bool Marshalling(TAVO::Parcel& parcel) const override;
    // A new record that the caller owns, or null when a field is missing or memory runs out. Does not throw.
    static GpuPerfInfo* Unmarshalling(TAVO::Parcel& parcel);
    // The same into this record, from a Parcel or from TAVO::CheckedItems; false when a field is missing, those before
    // it are set then.
    template <typename Items>
    bool ReadFields(Items& parcel)
    {
        return parcel.ReadInt64(long1) && parcel.ReadInt64(long2) && parcel.ReadInt32(int1) &&
               parcel.ReadUint32(uint1) && parcel.ReadUint32(uint2) && parcel.ReadUint64(ulong1) &&
               parcel.ReadUint64(ulong2) && parcel.ReadUint64(ulong3) && parcel.ReadUint32(uint3) &&
               parcel.ReadUint32(uint4) && parcel.ReadUint32(uint5) && parcel.ReadUint32(uint6) &&
               parcel.ReadUint32(uint7) && parcel.ReadUint32(uint8) && parcel.ReadUint32(uint9) &&
               parcel.ReadUint32(uint10);
    }

    int64_t long1 = 0;
    int64_t long2 = 0;
    int32_t int1 = 0;
    uint32_t uint1 = 0;
    uint32_t uint2 = 0;
    uint64_t ulong1 = 0;
    uint64_t ulong2 = 0;
    uint64_t ulong3 = 0;
    uint32_t uint3 = 0;
    uint32_t uint4 = 0;
    uint32_t uint5 = 0;
    uint32_t uint6 = 0;
    uint32_t uint7 = 0;
    uint32_t uint8 = 0;
    uint32_t uint9 = 0;
    uint32_t uint10 = 0;
};

}  // namespace TAVO::Veltra

#endif
