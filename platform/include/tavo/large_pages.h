// SPDX-License-Identifier: Apache-2.0
// A hint to the kernel for large blocks of memory.
#ifndef TAVO_LARGE_PAGES_H
#define TAVO_LARGE_PAGES_H

#include <cstddef>

#include "tavo/export.h"

namespace TAVO {

constexpr size_t LARGE_PAGE_BYTES = size_t{2} << 20;
// Smaller blocks come from the C library's heap, whose other blocks the hint would affect as well.
constexpr size_t LARGE_BLOCK_BYTES = size_t{4} << 20;

// Asks the kernel to back these bytes with huge pages. Call it before the first write: one page fault then serves 2 MiB
// instead of 4 KiB, which is most of the time that filling a new block takes. Only an optimization: nothing happens for
// a block below LARGE_BLOCK_BYTES, and a kernel without huge pages ignores it. Keeps errno.
TAVO_EXPORT void UseLargePages(void* start, size_t sizeBytes) noexcept;

}  // namespace TAVO

#endif
