// SPDX-License-Identifier: Apache-2.0
// QualityGovernor: computes a quality step from the heat of the device, with delays so that it does not change back and
// forth.
#ifndef VELTRA_QUALITY_GOVERNOR_H
#define VELTRA_QUALITY_GOVERNOR_H

#include <chrono>
#include <cstdint>
#include <optional>

#include "veltra_export.h"

namespace TAVO::Veltra {

struct GovernorOptions {
    int32_t lowest = 1;   // the step for the hottest machine
    int32_t highest = 5;  // the step for a cool one, and at the beginning; one step less for each level above 0
    // One step less in advance while the limit is nearer than this, in degrees, and the temperature rises. It ends when
    // the limit is further away by `hysteresis`.
    int64_t nearMargin = 8;
    int64_t hysteresis = 2;
    // How long a lower step must be needed before it is chosen; 0: at once.
    std::chrono::nanoseconds lowerDwell{0};
    // How long a higher step must be affordable before the next one is chosen; for each step anew.
    std::chrono::nanoseconds raiseDwell{std::chrono::seconds(5)};
};

// Values of the device state; unknown ones are absent.
struct Heat {
    std::optional<int64_t> level;   // DeviceSnapshot::tempLevel
    std::optional<int64_t> margin;  // thermalMargin
    std::optional<int64_t> trend;   // thermalTrend
};

// No clock, no thread, no allocation. One thread at a time. Never throws.
class VELTRA_EXPORT QualityGovernor {
public:
    // Bounds in the wrong order are exchanged.
    explicit QualityGovernor(const GovernorOptions& options = {}) noexcept;

    // The step for `heat` at the time `now`, which counts from any moment and must not go back. Down as far as
    // necessary in one go, up by one step at a time. Without a level the step stays.
    int32_t Update(const Heat& heat, std::chrono::nanoseconds now) noexcept;
    int32_t Step() const noexcept { return step_; }

private:
    VELTRA_HIDDEN int32_t Affordable(const Heat& heat) noexcept;

    GovernorOptions options_;
    int32_t step_;
    bool isNearing_ = false;
    std::optional<std::chrono::nanoseconds> lowerSince_;  // since when a lower step has been needed
    std::optional<std::chrono::nanoseconds> raiseSince_;  // since when a higher one has been affordable
};

}  // namespace TAVO::Veltra

#endif
