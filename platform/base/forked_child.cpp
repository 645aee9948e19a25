// SPDX-License-Identifier: Apache-2.0
// One flag, set in the child by a handler that is registered at the platform's first use. In the child only the forking
// thread exists, while locks of other threads stay locked for ever and sockets are the parent's. So each operation
// checks the flag before it takes a lock or touches a descriptor.
#include "base/forked_child.h"

#include <pthread.h>

#include <atomic>

namespace TAVO {
namespace {

std::atomic<bool> g_isWatching{false};
std::atomic<bool> g_isForkedChild{false};

}  // namespace

void WatchForks() noexcept
{
    if (!g_isWatching.load(std::memory_order_relaxed) && !g_isWatching.exchange(true)) {
        // A failure (no memory) leaves a child with the parent's view, as without the platform.
        pthread_atfork(nullptr, nullptr, [] { g_isForkedChild.store(true, std::memory_order_relaxed); });
    }
}

bool InForkedChild() noexcept
{
    return g_isForkedChild.load(std::memory_order_relaxed);
}

}  // namespace TAVO
