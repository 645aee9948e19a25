// SPDX-License-Identifier: Apache-2.0
// For each level two times are kept: since when the level is reached, and since when it would be left. The level in use
// rises to the highest that has been reached for UP_DWELL, and falls step by step while it has been left for
// DOWN_DWELL. After a gap in the readings nothing is known about the time between, so the new reading counts at once.
#include "probes/steady_level.h"

namespace TAVO::Veltra {

namespace {

void Note(std::optional<SteadyLevel::TimePoint>& since, bool holds, SteadyLevel::TimePoint now)
{
    if (!holds) {
        since.reset();
    } else if (!since) {
        since = now;
    }
}

}  // namespace

int32_t SteadyLevel::Update(int32_t level, int32_t levelBeforeFall, TimePoint now)
{
    const bool isSparse = level_ && now - updatedAt_ > LONGEST_GAP;
    updatedAt_ = now;
    for (int32_t step = 1; step <= MOST; ++step) {
        const auto index = static_cast<size_t>(step);
        Note(reachedAt_[index], level >= step, now);
        // levelBeforeFall includes the hysteresis in degrees; the dwell is in time. Both must be exceeded.
        Note(leftAt_[index], levelBeforeFall < step, now);
    }
    if (!level_) {
        level_ = level;
    }
    for (int32_t step = MOST; step > *level_; --step) {
        const std::optional<TimePoint>& since = reachedAt_[static_cast<size_t>(step)];
        if (since && (isSparse || now - *since >= UP_DWELL)) {
            level_ = step;
        }
    }
    while (*level_ > 0) {
        const std::optional<TimePoint>& since = leftAt_[static_cast<size_t>(*level_)];
        if (!since || (!isSparse && now - *since < DOWN_DWELL)) {
            break;
        }
        level_ = *level_ - 1;
    }
    return *level_;
}

std::optional<int32_t> SteadyLevel::Miss(TimePoint now)
{
    if (now - updatedAt_ >= DOWN_DWELL) {
        *this = SteadyLevel();
    }
    return level_;
}

}  // namespace TAVO::Veltra
