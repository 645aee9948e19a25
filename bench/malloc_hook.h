// SPDX-License-Identifier: Apache-2.0
// What the benchmark and the preloaded library share.
#ifndef VELTRA_BENCH_MALLOC_HOOK_H
#define VELTRA_BENCH_MALLOC_HOOK_H

#include <atomic>
#include <cstdint>

namespace Bench {

// Names the file with the counter of the started processes.
constexpr char ALLOCATION_COUNTER_VARIABLE[] = "BENCH_ALLOCATION_COUNTER";

extern std::atomic<int64_t> g_ownAllocations;

// The counter in the file; null when it cannot be mapped.
std::atomic<int64_t>* MapCounter(int fd);

}  // namespace Bench

#endif
