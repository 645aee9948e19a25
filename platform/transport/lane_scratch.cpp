// SPDX-License-Identifier: Apache-2.0
#include "transport/lane_scratch.h"

#include <utility>

namespace TAVO::Transport {
namespace {

// Deliberate: no object with a destructor. The C library would have to keep it in a list, and would end the process if
// it had no memory for that.
thread_local uint8_t* t_scratch = nullptr;

}  // namespace

uint8_t* LaneScratch()
{
    if (t_scratch == nullptr) {
        t_scratch = new uint8_t[LANE_SCRATCH_BYTES];
    }
    return t_scratch;
}

void FreeLaneScratch() noexcept
{
    delete[] std::exchange(t_scratch, nullptr);
}

}  // namespace TAVO::Transport
