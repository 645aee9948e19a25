// SPDX-License-Identifier: Apache-2.0
// Operations on a parcel for the transport only: receive into it, put a header in front, move it.
#ifndef TAVO_BASE_PARCEL_ACCESS_H
#define TAVO_BASE_PARCEL_ACCESS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/parcel_buffer.h"
#include "tavo/message_parcel.h"

namespace TAVO {

class ParcelAccess {
public:
    static constexpr size_t HEADROOM = ParcelBuffer::HEADROOM;

    // `bytes` (at most HEADROOM) writable bytes that end where the data begins, valid until the next write; makes a
    // buffer if there is none. Null if out of memory.
    static uint8_t* Headroom(Parcel& parcel, size_t bytes) noexcept;
    // Adds `bytes` to the data, even beyond the capacity limit, and returns where they begin; their content is
    // undefined. The buffer at most doubles, or grows to what is needed. Null, and no change, if out of memory.
    static uint8_t* Append(Parcel& parcel, size_t bytes) noexcept;
    // Cuts the data at `size`, if it is longer. References stay, also those that are cut off.
    static void Truncate(Parcel& parcel, size_t size) noexcept;
    static void ResetRead(Parcel& parcel) noexcept { parcel.cursor_ = 0; }

    // Exchanges data, cursor, limit and references.
    static void Swap(MessageParcel& left, MessageParcel& right) noexcept;
    static std::vector<MessageParcel::Reference>& References(MessageParcel& parcel) noexcept
    {
        return parcel.references_;
    }
    // Back to an empty parcel, limit unchanged; the buffer goes back to the thread's cache.
    static void Clear(MessageParcel& parcel) noexcept;

private:
    friend class Parcel;

    // Makes the buffer hold at least `size` bytes of data; false if out of memory.
    static bool Provide(Parcel& parcel, size_t size) noexcept;
    // capacity_ from the buffer's real size and the limit. Data beyond the limit leaves no room at all.
    static void FitCapacity(Parcel& parcel) noexcept;
};

}  // namespace TAVO

#endif
