// SPDX-License-Identifier: Apache-2.0
// How both ends name a lane, and a message on it.
#ifndef TAVO_TRANSPORT_LANE_KEY_H
#define TAVO_TRANSPORT_LANE_KEY_H

#include <chrono>
#include <compare>
#include <cstdint>

namespace TAVO::Transport {

using Clock = std::chrono::steady_clock;

// A lane: which process opened it, and the number that this process chose.
struct LaneKey {
    bool own = false;  // opened by this process
    uint64_t number = 0;

    auto operator<=>(const LaneKey& other) const = default;
};

// A message on a lane that this process opened.
struct MessagePlace {
    uint64_t lane = 0;  // 0: none
    uint64_t number = 0;
};

}  // namespace TAVO::Transport

#endif
