// SPDX-License-Identifier: Apache-2.0
// Lists of records in a parcel: presence flag, count, then per element a marker and the record's encoding.
//
// A list is read in two steps. Elements of a known size that lie whole in the parcel need one bounds check for all of
// them. The rest, and lists of other records, are read item by item. Both steps give the same result for any bytes.
#ifndef TAVO_READ_VECTOR_FROM_PARCEL_H
#define TAVO_READ_VECTOR_FROM_PARCEL_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include "tavo/large_pages.h"
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

// Reads scalars from bytes whose bounds the caller has checked. Same names as in Parcel, always true.
class CheckedItems {
public:
    explicit CheckedItems(const uint8_t* from) : from_(from) {}

    bool ReadInt32(int32_t& value) { return Read(value); }
    bool ReadUint32(uint32_t& value) { return Read(value); }
    bool ReadInt64(int64_t& value) { return Read(value); }
    bool ReadUint64(uint64_t& value) { return Read(value); }
    bool ReadFloat(float& value) { return Read(value); }
    bool ReadDouble(double& value) { return Read(value); }

private:
    template <typename V>
    bool Read(V& value)
    {
        std::memcpy(&value, from_, sizeof(V));
        from_ += sizeof(V);
        return true;
    }

    const uint8_t* from_;
};

// A record whose encoding always takes the same number of bytes may offer FIXED_PARCEL_BYTES and a
// `ReadFields(CheckedItems&)`. The vector then also gets its final capacity at once, as far as the bytes that are
// present fill it.
template <typename T, typename = void>
struct HasFixedSize : std::false_type {
};
template <typename T>
struct HasFixedSize<
    T, std::void_t<decltype(std::declval<T&>().ReadFields(std::declval<CheckedItems&>()), T::FIXED_PARCEL_BYTES)>>
    : std::true_type {
};

// Reads the leading elements that are present whole, up to `count`, into the empty `out`. Stops in front of a zero
// marker. Returns how many it has read.
template <typename T>
int32_t ReadWholeElements(Parcel& parcel, int32_t count, std::vector<T>& out)
{
    constexpr size_t ELEMENT_BYTES = Parcel::SLOT + T::FIXED_PARCEL_BYTES;
    const size_t present = std::min(parcel.GetReadableBytes() / ELEMENT_BYTES, static_cast<size_t>(std::max(count, 0)));
    if (present == 0) {
        return 0;
    }
    out.reserve(present);
    UseLargePages(out.data(), present * sizeof(T));
    const uint8_t* const start = parcel.GetData() + parcel.GetReadPosition();
    const uint8_t* const end = start + present * ELEMENT_BYTES;
    const uint8_t* from = start;
    for (; from != end; from += ELEMENT_BYTES) {
        int32_t marker = 0;
        std::memcpy(&marker, from, sizeof(marker));
        if (marker == 0) {
            break;
        }
        CheckedItems items(from + Parcel::SLOT);
        out.emplace_back().ReadFields(items);
    }
    parcel.SetReadPosition(parcel.GetReadPosition() + static_cast<size_t>(from - start));
    return static_cast<int32_t>(out.size());
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
    int32_t i = 0;
    if constexpr (HasFixedSize<T>::value) {
        i = ReadWholeElements(parcel, count, out);
    }
    for (; i < count; ++i) {
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
