// SPDX-License-Identifier: Apache-2.0
// Each round of the loop looks at the number of sessions. The heap is trimmed when at least LEAST sessions, and half of
// the most that there were, have ended, and no other one has ended for QUIET_TIME. Trimming holds the lock of the heap
// for up to a few milliseconds, so it is done once for all of them. A game has too few sessions for that.
#include "transport/heap_trim.h"

#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace TAVO::Transport {
namespace {

constexpr size_t LEAST = 64;
constexpr std::chrono::milliseconds QUIET_TIME{1000};

}  // namespace

int HeapTrim::TickMilliseconds() const
{
    return due_ == Clock::time_point() ? -1 : static_cast<int>(QUIET_TIME.count());
}

void HeapTrim::OnTick(Clock::time_point now)
{
    const size_t count = sessions_.Count();
    most_ = std::max(most_, count);
    const bool hasFallen = count < std::exchange(latest_, count);
    if (most_ - count < std::max(LEAST, most_ / 2)) {
        due_ = Clock::time_point();
    } else if (hasFallen || due_ == Clock::time_point()) {
        due_ = now + QUIET_TIME;
    } else if (due_ <= now) {
        ::malloc_trim(0);
        most_ = count;
        due_ = Clock::time_point();
    }
}

}  // namespace TAVO::Transport
