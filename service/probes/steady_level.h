// SPDX-License-Identifier: Apache-2.0
// A level that does not flap: it follows what is measured only after that has lasted for a while.
#ifndef VELTRA_SERVICE_STEADY_LEVEL_H
#define VELTRA_SERVICE_STEADY_LEVEL_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace TAVO::Veltra {

// One thread at a time.
class SteadyLevel {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr int32_t MOST = 5;
    static constexpr std::chrono::seconds UP_DWELL{2};
    static constexpr std::chrono::seconds DOWN_DWELL{5};
    // Readings further apart say nothing about the time between them: the later one is taken at once.
    static constexpr std::chrono::seconds LONGEST_GAP{5};

    // `level` is what the thresholds give, `levelBeforeFall` (at least `level`) what they give with the hysteresis
    // added: the level falls only below that one. The first level is taken as it is.
    int32_t Update(int32_t level, int32_t levelBeforeFall, TimePoint now);
    // There is no reading now. The level holds for DOWN_DWELL after the last one. Then it is unknown, and all is
    // forgotten.
    std::optional<int32_t> Miss(TimePoint now);

private:
    std::optional<int32_t> level_;
    TimePoint updatedAt_;
    // By level, since when it has been reached, and since when the reading has been below it. Index 0 is not used.
    std::array<std::optional<TimePoint>, MOST + 1> reachedAt_;
    std::array<std::optional<TimePoint>, MOST + 1> leftAt_;
};

}  // namespace TAVO::Veltra

#endif
