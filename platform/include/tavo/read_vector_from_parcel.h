// SPDX-License-Identifier: Apache-2.0
// Lists of records in a parcel: presence flag, count, then per element a marker and the record's encoding.
#ifndef TAVO_READ_VECTOR_FROM_PARCEL_H
#define TAVO_READ_VECTOR_FROM_PARCEL_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include "tavo/parcel.h"

namespace TAVO {

// Most elements that a list may announce; checked before the vector is touched.
constexpr int32_t MAX_LIST_ELEMENTS = 524288;

// A record may offer `bool ReadFields(Parcel&)`, which reads its encoding into the object itself; the list reader then
// builds each element in its place, without an allocation per element. `T::Unmarshalling` is used otherwise.
template <typename T, typename = void>
struct ReadsInPlace : std::false_type {
};
template <typename T>
struct ReadsInPlace<T, std::void_t<decltype(std::declval<T&>().ReadFields(std::declval<Parcel&>()))>> : std::true_type {
};

// A record may also name the fewest bytes that its encoding takes, as MIN_PARCEL_BYTES: the vector is then made as
// large at once as the bytes that are there allow, instead of being copied while it grows.
template <typename T, typename = void>
struct FewestBytes : std::integral_constant<size_t, 0> {
};
template <typename T>
struct FewestBytes<T, std::void_t<decltype(T::MIN_PARCEL_BYTES)>>
    : std::integral_constant<size_t, T::MIN_PARCEL_BYTES> {
};

template <typename T>
void MakeRoom(const Parcel& parcel, int32_t count, std::vector<T>& out)
{
    if constexpr (FewestBytes<T>::value > 0) {
        const size_t fitting = parcel.GetReadableBytes() / (Parcel::SLOT + FewestBytes<T>::value);
        out.reserve(std::min(fitting, static_cast<size_t>(std::max(count, 0))));
    }
}

// Out of memory is a failure here, as it is for Unmarshalling.
template <typename T>
bool ReadFieldsOrFail(Parcel& parcel, T& element)
try {
    return element.ReadFields(parcel);
} catch (const std::bad_alloc&) {
    return false;
}

template <typename T>
bool ReadElement(Parcel& parcel, std::vector<T>& out)
{
    if constexpr (ReadsInPlace<T>::value) {
        out.emplace_back();
        if (!ReadFieldsOrFail(parcel, out.back())) {
            out.pop_back();
            return false;
        }
    } else {
        std::unique_ptr<T> element(T::Unmarshalling(parcel));
        if (element == nullptr) {
            return false;
        }
        out.push_back(*element);
    }
    return true;
}

// Reads a list into `out`. True and `out` untouched when no list was sent (flag other than 1); true and `out` empty for
// a count of 0 or below; false for a count above MAX_LIST_ELEMENTS (`out` untouched), for a zero marker, for an element
// that does not decode and when memory runs out (`out` then holds the elements before it). The vector grows with the
// bytes that are there, never by the announced count. Does not throw.
template <typename T>
bool ReadVectorFromParcel(Parcel& parcel, std::vector<T>& out)
try {
    int32_t flag = -1;
    if (!parcel.ReadInt32(flag)) {
        return false;
    }
    if (flag != 1) {
        return true;
    }
    int32_t count = 0;
    if (!parcel.ReadInt32(count) || count > MAX_LIST_ELEMENTS) {
        return false;
    }
    out.clear();
    MakeRoom(parcel, count, out);
    for (int32_t i = 0; i < count; ++i) {
        if (parcel.ReadInt32() == 0 || !ReadElement(parcel, out)) {
            return false;
        }
    }
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

// Writes what ReadVectorFromParcel reads; false at the first write that fails or for a list that is too long.
template <typename T>
bool WriteVectorToParcel(Parcel& parcel, const std::vector<T>& list)
{
    if (list.size() > static_cast<size_t>(MAX_LIST_ELEMENTS) || !parcel.WriteInt32(1) ||
        !parcel.WriteInt32(static_cast<int32_t>(list.size()))) {
        return false;
    }
    return std::all_of(list.begin(), list.end(),
                       [&parcel](const T& element) { return parcel.WriteInt32(1) && element.Marshalling(parcel); });
}

}  // namespace TAVO

#endif
