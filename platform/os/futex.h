// SPDX-License-Identifier: Apache-2.0
// Sleeping on a word of memory, also of memory that two processes share.
#ifndef TAVO_OS_FUTEX_H
#define TAVO_OS_FUTEX_H

#include <atomic>
#include <chrono>
#include <cstdint>

namespace TAVO::Transport {

// Sleeps while `word` is `value`, until WakeUp or `deadline`; may return early for no reason. False once the deadline
// has passed.
bool SleepWhile(const std::atomic<uint32_t>& word, uint32_t value,
                std::chrono::steady_clock::time_point deadline) noexcept;
// Wakes up all threads that sleep on `word`.
void WakeUp(const std::atomic<uint32_t>& word) noexcept;

}  // namespace TAVO::Transport

#endif
