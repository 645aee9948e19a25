// SPDX-License-Identifier: Apache-2.0
#include "support/failing_memory.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace TestSupport {
namespace {

std::atomic<long> g_left{0};  // until one fails; 0: none does
std::atomic<bool> g_hasFailed{false};
std::atomic<bool (*)()> g_isThread{nullptr};

void* Allocate(size_t size) noexcept
{
    bool (*const isThread)() = g_isThread;
    if ((g_left > 0 && g_left.fetch_sub(1) == 1) || (isThread != nullptr && isThread())) {
        g_hasFailed = true;
        return nullptr;
    }
    return std::malloc(size != 0 ? size : 1);
}

}  // namespace

void FailAllocation(long nth)
{
    g_hasFailed = nth == 0 && g_hasFailed;
    g_left = nth;
}

void FailAllocationsOf(bool (*isThread)())
{
    g_isThread = isThread;
}

bool HasAllocationFailed()
{
    return g_hasFailed;
}

}  // namespace TestSupport

void* operator new(size_t size)
{
    if (void* const memory = TestSupport::Allocate(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    return TestSupport::Allocate(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    std::free(memory);
}
