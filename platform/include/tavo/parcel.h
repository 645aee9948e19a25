// SPDX-License-Identifier: Apache-2.0
// A typed byte container: what one process writes item by item, another reads in the same order.
#ifndef TAVO_PARCEL_H
#define TAVO_PARCEL_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tavo/export.h"
#include "tavo/ref_base.h"

namespace TAVO {

class Parcel;

// A record that writes itself into a parcel. To be read back it also offers `static T* Unmarshalling(Parcel&)`, which
// returns a new object for the caller to own, or null.
class TAVO_EXPORT Parcelable : public virtual RefBase {
public:
    ~Parcelable() override;
    // Writes the record; false at the first write that fails. What was written before stays in the parcel.
    virtual bool Marshalling(Parcel& parcel) const = 0;
};

// Items follow each other in 4-byte slots, little endian, no tags and no padding between items: Bool, Int32, Uint32 and
// Float take one slot, Int64, Uint64 and Double two; String is an int32 length in bytes, the bytes, a NUL and zero fill
// to the slot; String16 the same with a length in code units; Buffer is an int32 length in bytes, the bytes and zero
// fill to the slot. Not copyable; one thread at a time.
//
// A write returns false, and adds nothing, beyond the capacity limit or if out of memory. A read returns false (the
// value forms 0, false or empty) when the item is not there whole, and leaves the cursor where it was. Nothing here
// throws but the allocation of a string or buffer that is returned.
class TAVO_EXPORT Parcel {
public:
    static constexpr size_t SLOT = 4;
    // Largest amount of data that a parcel takes and a message carries.
    static constexpr size_t MAX_DATA_BYTES = (size_t{64} << 20) - 4096;

    Parcel() noexcept : limit_(DefaultCapacityLimit()) {}
    virtual ~Parcel();
    Parcel(const Parcel&) = delete;
    Parcel& operator=(const Parcel&) = delete;

    bool WriteBool(bool value) { return WriteScalar<int32_t>(value ? 1 : 0); }
    bool WriteInt32(int32_t value) { return WriteScalar(value); }
    bool WriteUint32(uint32_t value) { return WriteScalar(value); }
    bool WriteInt64(int64_t value) { return WriteScalar(value); }
    bool WriteUint64(uint64_t value) { return WriteScalar(value); }
    // May hold any bytes, NUL too; fails beyond INT32_MAX bytes.
    bool WriteString(std::string_view value);
    bool WriteString16(std::u16string_view value);
    // A presence marker (Int32 1, or 0 for null), then the record's own encoding.
    bool WriteParcelable(const Parcelable* record);

    // Any non-zero slot is true.
    bool ReadBool(bool& value)
    {
        int32_t slot = 0;
        if (!ReadScalar(slot)) {
            return false;
        }
        value = slot != 0;
        return true;
    }
    bool ReadInt32(int32_t& value) { return ReadScalar(value); }
    bool ReadUint32(uint32_t& value) { return ReadScalar(value); }
    bool ReadInt64(int64_t& value) { return ReadScalar(value); }
    bool ReadUint64(uint64_t& value) { return ReadScalar(value); }
    bool ReadString(std::string& value);
    bool ReadString16(std::u16string& value);
    // Whether the next item is this text, compared in place. Moves behind any text.
    bool MatchString16(std::u16string_view expected);

    bool ReadBool() { return ReadOr<int32_t>() != 0; }
    int32_t ReadInt32() { return ReadOr<int32_t>(); }
    uint32_t ReadUint32() { return ReadOr<uint32_t>(); }
    int64_t ReadInt64() { return ReadOr<int64_t>(); }
    uint64_t ReadUint64() { return ReadOr<uint64_t>(); }
    std::string ReadString();
    std::u16string ReadString16();
    // The counterpart of WriteParcelable: null for an absent record and for one that does not decode.
    template <typename T>
    std::unique_ptr<T> ReadParcelable()
    {
        return ReadInt32() == 0 ? nullptr : std::unique_ptr<T>(T::Unmarshalling(*this));
    }

    // The bytes written or received so far; valid until the next write.
    const uint8_t* GetData() const noexcept { return data_; }
    size_t GetDataSize() const noexcept { return size_; }
    size_t GetReadableBytes() const noexcept { return size_ - cursor_; }
    size_t GetReadPosition() const noexcept { return cursor_; }
    // Moves the read cursor; false, and no move, beyond the data or off a slot.
    bool SetReadPosition(size_t position) noexcept;
    // Replaces the content by a copy of foreign bytes, cursor at the start. For tests and fuzzers.
    bool SetData(const void* bytes, size_t sizeBytes);

    // Writes that would take the data beyond `limitBytes` (or MAX_DATA_BYTES) fail. Every new parcel starts with the
    // default limit of the process, which a test may lower.
    void SetCapacityLimit(size_t limitBytes) noexcept;
    size_t GetCapacityLimit() const noexcept { return limit_; }
    static void SetDefaultCapacityLimit(size_t limitBytes) noexcept;
    static size_t DefaultCapacityLimit() noexcept;

    // IEEE 754; every bit pattern travels unchanged, also that of a NaN.
    bool WriteFloat(float value) { return WriteScalar(value); }
    bool WriteDouble(double value) { return WriteScalar(value); }
    bool ReadFloat(float& value) { return ReadScalar(value); }
    bool ReadDouble(double& value) { return ReadScalar(value); }
    float ReadFloat() { return ReadOr<float>(); }
    double ReadDouble() { return ReadOr<double>(); }

    // Copies the bytes, which may be null if there are none; fails beyond INT32_MAX bytes.
    bool WriteBuffer(const void* bytes, size_t sizeBytes);
    // Replaces the content of `value`. The length was checked against the data, so at most that much is allocated.
    bool ReadBuffer(std::vector<uint8_t>& value);
    std::vector<uint8_t> ReadBuffer();

private:
    friend class ParcelAccess;

    template <typename V>
    bool WriteScalar(V value)
    {
        static_assert(sizeof(V) % SLOT == 0, "items are whole slots");
        uint8_t* place = Reserve(sizeof(V));
        if (place == nullptr) {
            return false;
        }
        std::memcpy(place, &value, sizeof(V));
        return true;
    }
    template <typename V>
    bool ReadScalar(V& value) noexcept
    {
        if (size_ - cursor_ < sizeof(V)) {
            return false;
        }
        std::memcpy(&value, data_ + cursor_, sizeof(V));
        cursor_ += sizeof(V);
        return true;
    }
    template <typename V>
    V ReadOr() noexcept
    {
        V value = 0;
        ReadScalar(value);
        return value;
    }

    // Room for `bytes` (whole slots) behind the data, counted as written; null when it may not or cannot be had.
    uint8_t* Reserve(size_t bytes)
    {
        if (bytes > capacity_ - size_ && !Grow(bytes)) {
            return nullptr;
        }
        uint8_t* place = data_ + size_;
        size_ += bytes;
        return place;
    }
    bool Grow(size_t bytes);
    template <typename Unit>
    bool WriteText(const Unit* text, size_t units);
    // Where the units of the next text are; null, and no move of the cursor, if there is none.
    template <typename Unit>
    const Unit* TakeText(size_t& units);
    void Free() noexcept;

    uint8_t* data_ = nullptr;  // behind a little headroom that the transport uses; null while empty
    size_t size_ = 0;          // bytes of data
    size_t capacity_ = 0;      // bytes that fit without growing, never above limit_
    size_t cursor_ = 0;        // next byte to read
    size_t limit_;             // capacity limit in bytes
};

}  // namespace TAVO

#endif
