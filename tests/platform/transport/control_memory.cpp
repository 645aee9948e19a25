// SPDX-License-Identifier: Apache-2.0
// A file of its own: the compiler would otherwise see that memory of `new` goes to `free`.
#include "platform/transport/control_memory.h"

#include <cstdlib>
#include <new>

#include "os/threads.h"

namespace TransportTest {

std::atomic<bool> g_noMemoryForControl{false};

}  // namespace TransportTest

void* operator new(size_t size)
{
    using TAVO::Transport::ThreadRole;
    const bool fails = TransportTest::g_noMemoryForControl && TAVO::Transport::CurrentRole() == ThreadRole::CONTROL;
    void* const memory = fails ? nullptr : std::malloc(size != 0 ? size : 1);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    std::free(memory);
}
