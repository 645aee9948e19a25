// SPDX-License-Identifier: Apache-2.0
// The numbers of a device state, to compare them all at once.
#ifndef VELTRA_TESTS_SUPPORT_EVENT_VALUES_H
#define VELTRA_TESTS_SUPPORT_EVENT_VALUES_H

#include <vector>

#include "veltra_records.h"

namespace TAVO::Veltra {

// In the order of the record, from tempLevel to resultCode.
inline std::vector<int32_t> ValuesOf(const GameCallbackEventInfo& info)
{
    return {info.tempLevel,        info.gpuLoadLevel,       info.vertexLoadLevel,  info.fragmentLoadLevel,
            info.textureLoadLevel, info.bandwidthLoadLevel, info.currentFrequency, info.thermalMargin,
            info.thermalTrend,     info.extraValue,         info.resultCode};
}

}  // namespace TAVO::Veltra

#endif
