// SPDX-License-Identifier: Apache-2.0
// What only two readings together tell: the load of the processors and where the temperature goes.
#ifndef VELTRA_SERVICE_READING_HISTORY_H
#define VELTRA_SERVICE_READING_HISTORY_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "cpu_probe.h"

namespace TAVO::Veltra {

// One thread at a time.
class CpuLoad {
public:
    // Readings nearer together than this many ticks say nothing new: they get the load known before.
    static constexpr uint64_t LEAST_TICKS = 10;

    // Percent of the time since the reading before, 0 to 100; empty at the first and when the counters ran backwards.
    std::optional<int32_t> Update(const CpuTimes& now);

private:
    std::optional<CpuTimes> before_;
    std::optional<int32_t> percent_;
};

// One thread at a time.
class ThermalTrend {
public:
    static constexpr int64_t STEP = 1000;  // thousandths of a degree
    static constexpr std::chrono::seconds STEADY_AFTER{10};

    // 1 when the temperature has last moved up by a degree, -1 when down, 0 when it has stayed for STEADY_AFTER; empty
    // until one of these is known, also after the hottest sensor became another one.
    std::optional<int32_t> Update(const std::string& source, int64_t temperature,
                                  std::chrono::steady_clock::time_point now);

private:
    std::string source_;
    int64_t reference_ = 0;  // thousandths of a degree
    std::chrono::steady_clock::time_point since_;
    std::optional<int32_t> trend_;
};

}  // namespace TAVO::Veltra

#endif
