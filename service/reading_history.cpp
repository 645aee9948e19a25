// SPDX-License-Identifier: Apache-2.0
#include "reading_history.h"

#include <cstdlib>

namespace TAVO::Veltra {

std::optional<int32_t> CpuLoad::Update(const CpuTimes& now)
{
    if (!before_ || now.total < before_->total || now.idle < before_->idle) {
        before_ = now;
        percent_.reset();
        return percent_;
    }
    const uint64_t total = now.total - before_->total;
    const uint64_t idle = now.idle - before_->idle;
    if (total >= LEAST_TICKS && idle <= total) {
        before_ = now;
        percent_ = static_cast<int32_t>(100.0 * static_cast<double>(total - idle) / static_cast<double>(total));
    }
    return percent_;
}

std::optional<int32_t> ThermalTrend::Update(const std::string& source, int64_t temperature,
                                            std::chrono::steady_clock::time_point now)
{
    const bool isOther = source != source_;
    const bool hasMoved = std::abs(temperature - reference_) >= STEP;
    if (isOther) {
        source_ = source;
        trend_.reset();
    } else if (hasMoved) {
        trend_ = temperature > reference_ ? 1 : -1;
    } else if (now - since_ >= STEADY_AFTER) {
        trend_ = 0;
    } else {
        return trend_;
    }
    reference_ = temperature;
    since_ = now;
    return trend_;
}

}  // namespace TAVO::Veltra
