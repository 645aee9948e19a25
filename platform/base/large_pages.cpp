// SPDX-License-Identifier: Apache-2.0
// For blocks of several MiB: without huge pages each 4 KiB are a page fault of their own, which for the longest list
// takes more time than decoding it.
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
    // madvise wants whole pages; the kernel picks the huge pages inside the range by itself.
    const uintptr_t first = (address + PAGE_BYTES - 1) / PAGE_BYTES * PAGE_BYTES;
    const uintptr_t end = (address + sizeBytes) / PAGE_BYTES * PAGE_BYTES;
    const int savedErrno = errno;
    // A kernel without huge pages refuses, which changes the speed only.
    ::madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
    errno = savedErrno;
}

}  // namespace TAVO
