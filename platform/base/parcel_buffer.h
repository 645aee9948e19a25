// SPDX-License-Identifier: Apache-2.0
// The memory behind parcels: blocks with headroom in front, small ones kept by the thread that freed them.
#ifndef TAVO_BASE_PARCEL_BUFFER_H
#define TAVO_BASE_PARCEL_BUFFER_H

#include <cstddef>
#include <cstdint>

namespace TAVO::ParcelBuffer {

// Writable bytes in front of the data: a frame header fits there, so that header and data leave in one piece.
constexpr size_t HEADROOM = 64;
// What a new parcel gets; with its overhead a block of 1 KiB, which all but lists and texts fit into.
constexpr size_t FIRST_CAPACITY = 936;
// Blocks up to this size are kept, at most so many and so much of them per thread.
constexpr size_t MAX_KEPT_CAPACITY = 4096;
constexpr size_t MAX_KEPT_BLOCKS = 8;
constexpr size_t MAX_KEPT_BYTES = 32768;

// All three work with the address of the data, which is aligned for any type. Usable at any time, static destruction
// and the end of a thread included.

// A block for at least `capacity` bytes; null if out of memory.
uint8_t* Allocate(size_t capacity) noexcept;
// Moves the data, headroom included, to a larger block; null if out of memory, and `data` stays valid.
uint8_t* Enlarge(uint8_t* data, size_t capacity) noexcept;
void Free(uint8_t* data) noexcept;
// The bytes that the block has room for.
size_t Capacity(const uint8_t* data) noexcept;

}  // namespace TAVO::ParcelBuffer

#endif
