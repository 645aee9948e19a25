// SPDX-License-Identifier: Apache-2.0
// Each state of the device gives an affordable step; the step in use follows it with delay. Two measurements run, one
// since when a lower step is called for and one since when a higher one is affordable; whichever reaches its dwell
// moves the step, and a state that no longer calls for it clears it. The thermal margin takes one step in advance, with
// a hysteresis so that it does not come and go. An unknown level clears both: a gap in the data is no evidence.
#include "veltra_quality_governor.h"

#include <algorithm>
#include <utility>

namespace TAVO::Veltra {

QualityGovernor::QualityGovernor(const GovernorOptions& options) noexcept : options_(options)
{
    // Swapped instead of refused: a constructor that cannot fail needs no error to handle.
    if (options_.lowest > options_.highest) {
        std::swap(options_.lowest, options_.highest);
    }
    step_ = options_.highest;
}

int32_t QualityGovernor::Affordable(const Heat& heat) noexcept
{
    if (!heat.margin) {
        isNearing_ = false;
    } else if (isNearing_) {
        isNearing_ = *heat.margin < options_.nearMargin + options_.hysteresis;
    } else {
        // Only with a rising trend: a machine that stays near its limit without passing it has found its balance.
        isNearing_ = *heat.margin < options_.nearMargin && heat.trend.value_or(0) > 0;
    }
    constexpr int64_t HOTTEST = 5;
    const int64_t level = std::clamp<int64_t>(*heat.level, 0, HOTTEST);
    const int64_t wanted = int64_t{options_.highest} - level - (isNearing_ ? 1 : 0);
    return static_cast<int32_t>(std::max<int64_t>(wanted, options_.lowest));
}

int32_t QualityGovernor::Update(const Heat& heat, std::chrono::nanoseconds now) noexcept
{
    if (!heat.level) {
        lowerSince_.reset();
        raiseSince_.reset();
        return step_;
    }
    const int32_t affordable = Affordable(heat);
    if (affordable >= step_) {
        lowerSince_.reset();
    } else if (!lowerSince_) {
        lowerSince_ = now;
    }
    if (affordable <= step_) {
        raiseSince_.reset();
    } else if (!raiseSince_) {
        raiseSince_ = now;
    }
    if (lowerSince_ && now - *lowerSince_ >= options_.lowerDwell) {
        // Down by as many steps as needed at once: the machine is about to throttle.
        step_ = affordable;
        lowerSince_.reset();
        // One step at a time, and each needs a dwell of its own: a better picture heats the machine again.
    } else if (raiseSince_ && now - *raiseSince_ >= options_.raiseDwell) {
        ++step_;
        raiseSince_.reset();
        if (affordable > step_) {
            raiseSince_ = now;
        }
    }
    return step_;
}

}  // namespace TAVO::Veltra
