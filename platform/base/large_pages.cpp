// SPDX-License-Identifier: Apache-2.0
#include "tavo/large_pages.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstdint>

namespace TAVO {
namespace {

constexpr uintptr_t PAGE_BYTES = 4096;

}  // namespace

void UseLargePages(void* start, size_t sizeBytes) noexcept
{
    if (sizeBytes < LARGE_BLOCK_BYTES) {
        return;
    }
    const auto address = reinterpret_cast<uintptr_t>(start);
    const uintptr_t first = (address + PAGE_BYTES - 1) / PAGE_BYTES * PAGE_BYTES;
    const uintptr_t end = (address + sizeBytes) / PAGE_BYTES * PAGE_BYTES;
    const int savedErrno = errno;
    ::madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
    errno = savedErrno;
}

}  // namespace TAVO
