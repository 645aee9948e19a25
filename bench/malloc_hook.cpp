// SPDX-License-Identifier: Apache-2.0
// Takes the place of malloc, calloc and realloc and counts their calls. Linked into the benchmark, and as a library of
// its own preloaded into the processes that it starts; those find the shared counter by the environment.
#include "malloc_hook.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>

// The C library's own entry points, which stay reachable when the usual names are replaced.
extern "C" void* __libc_malloc(size_t);          // NOLINT(bugprone-reserved-identifier)
extern "C" void* __libc_calloc(size_t, size_t);  // NOLINT(bugprone-reserved-identifier)
extern "C" void* __libc_realloc(void*, size_t);  // NOLINT(bugprone-reserved-identifier)

namespace Bench {

constinit std::atomic<int64_t> g_ownAllocations{0};

namespace {

constinit std::atomic<std::atomic<int64_t>*> g_counter{&g_ownAllocations};

void Count()
{
    g_counter.load(std::memory_order_relaxed)->fetch_add(1, std::memory_order_relaxed);
}

// Runs when the library has been loaded into a started process.
__attribute__((constructor)) void FindCounter()
{
    const char* const path = std::getenv(ALLOCATION_COUNTER_VARIABLE);
    if (path != nullptr) {
        const int fd = ::open(path, O_RDWR | O_CLOEXEC);
        if (std::atomic<int64_t>* const counter = MapCounter(fd)) {
            g_counter = counter;
        }
        ::close(fd);
    }
}

}  // namespace

std::atomic<int64_t>* MapCounter(int fd)
{
    void* const memory = ::mmap(nullptr, sizeof(int64_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return memory == MAP_FAILED ? nullptr : static_cast<std::atomic<int64_t>*>(memory);
}

}  // namespace Bench

#define COUNTED extern "C" __attribute__((visibility("default")))

COUNTED void* malloc(size_t size)
{
    Bench::Count();
    return __libc_malloc(size);
}

COUNTED void* calloc(size_t count, size_t size)
{
    Bench::Count();
    return __libc_calloc(count, size);
}

COUNTED void* realloc(void* memory, size_t size)
{
    Bench::Count();
    return __libc_realloc(memory, size);
}
