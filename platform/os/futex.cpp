// SPDX-License-Identifier: Apache-2.0
#include "os/futex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <ctime>

namespace TAVO::Transport {
namespace {

// The kernel takes the address of the word itself.
static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t) && std::atomic<uint32_t>::is_always_lock_free);

}  // namespace

bool SleepWhile(const std::atomic<uint32_t>& word, uint32_t value,
                std::chrono::steady_clock::time_point deadline) noexcept
{
    const std::chrono::nanoseconds time = deadline.time_since_epoch();
    constexpr int64_t PER_SECOND = 1000000000;
    const timespec end{static_cast<time_t>(time.count() / PER_SECOND), static_cast<long>(time.count() % PER_SECOND)};
    // FUTEX_WAIT_BITSET takes a point in time on the steady clock; FUTEX_WAIT only a duration. All threads match.
    return ::syscall(SYS_futex, &word, FUTEX_WAIT_BITSET, value, &end, nullptr, FUTEX_BITSET_MATCH_ANY) == 0 ||
           errno != ETIMEDOUT;
}

void WakeUp(const std::atomic<uint32_t>& word) noexcept
{
    ::syscall(SYS_futex, &word, FUTEX_WAKE, INT_MAX);
}

}  // namespace TAVO::Transport
