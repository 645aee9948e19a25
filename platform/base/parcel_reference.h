// SPDX-License-Identifier: Apache-2.0
// The encoding of a reference in a parcel's data: two slots, a marker and an index.
#ifndef TAVO_BASE_PARCEL_REFERENCE_H
#define TAVO_BASE_PARCEL_REFERENCE_H

#include <cstdint>

namespace TAVO {

struct ReferenceSlots {
    static constexpr uint32_t MAGIC = 0x4a424f2a;

    uint32_t magic = MAGIC;
    uint32_t index = 0;  // in the parcel's list of references
};
static_assert(sizeof(ReferenceSlots) == 8);

}  // namespace TAVO

#endif
