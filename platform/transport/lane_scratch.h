// SPDX-License-Identifier: Apache-2.0
// The buffer into which a thread receives requests.
#ifndef TAVO_TRANSPORT_LANE_SCRATCH_H
#define TAVO_TRANSPORT_LANE_SCRATCH_H

#include <cstddef>
#include <cstdint>

namespace TAVO::Transport {

constexpr size_t LANE_SCRATCH_BYTES = 32 * 1024;

// The calling thread's own, allocated at its first use.
uint8_t* LaneScratch();
// To be called when the calling thread ends.
void FreeLaneScratch() noexcept;

}  // namespace TAVO::Transport

#endif
