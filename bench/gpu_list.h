// SPDX-License-Identifier: Apache-2.0
// The longest list of GPU samples, and a reader for it written by hand.
#ifndef VELTRA_BENCH_GPU_LIST_H
#define VELTRA_BENCH_GPU_LIST_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tavo/parcel.h"
#include "veltra_records.h"

namespace Bench {

// Writes TAVO::MAX_LIST_ELEMENTS samples as the wire has them; false if out of memory.
bool WriteFullList(TAVO::Parcel& parcel);

// Flag, count, then a marker and sixteen fields per element, into a new vector with room for all of them. Checks the
// count and the size once, as one can by hand for a list of this record alone. Empty for a malformed list.
std::vector<TAVO::Veltra::GpuPerfInfo> ReadListByHand(const uint8_t* from, size_t sizeBytes);

}  // namespace Bench

#endif
