// SPDX-License-Identifier: Apache-2.0
// The parts of a parcel that are not inlined: texts and buffers, growth, and ParcelAccess, the platform's own access to
// the memory. Writing reserves all slots of an item first, so that a write that fails leaves nothing behind. Reading
// takes a length from another process: it is compared with what is there before it is used, and the cursor moves last.
// Growth doubles, so that a list written item by item is copied few times. `capacity_` is what inlined writes compare
// with: the smaller of room and limit, never below the size; FitCapacity restores that wherever one of the three
// changes.
#include "tavo/parcel.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <utility>

#include "base/parcel_access.h"

namespace TAVO {

namespace {

std::atomic<size_t> g_defaultLimit{Parcel::MAX_DATA_BYTES};

constexpr size_t MAX_LENGTH = std::numeric_limits<int32_t>::max();

constexpr size_t WholeSlots(size_t bytes)
{
    return (bytes + Parcel::SLOT - 1) / Parcel::SLOT * Parcel::SLOT;
}

// Bytes of a text's slots behind its length: the units, a NUL, zero fill. No overflow for units up to INT32_MAX.
template <typename Unit>
constexpr size_t TextBytes(size_t units)
{
    return WholeSlots((units + 1) * sizeof(Unit));
}

// The length in front of a text or buffer: the first slot of the `readable` bytes at `place`. False if there is no whole
// slot, or if it has a negative number, which as a size_t would be a huge length.
bool ReadLength(const uint8_t* place, size_t readable, size_t& length)
{
    int32_t signedLength = 0;
    if (readable < Parcel::SLOT) {
        return false;
    }
    std::memcpy(&signedLength, place, Parcel::SLOT);
    length = static_cast<size_t>(signedLength);
    return signedLength >= 0;
}

}  // namespace

Parcelable::~Parcelable() = default;

Parcel::~Parcel()
{
    Free();
}

void Parcel::Free() noexcept
{
    if (data_ != nullptr) {
        ParcelBuffer::Free(data_);
    }
    data_ = nullptr;
    size_ = capacity_ = cursor_ = 0;
}

bool Parcel::Grow(size_t bytes)
{
    // The limit may have been lowered below the size. The subtraction cannot wrap around after the first comparison.
    if (size_ > limit_ || bytes > limit_ - size_) {
        return false;
    }
    return ParcelAccess::Provide(*this, size_ + bytes);
}

template <typename Unit>
bool Parcel::WriteText(const Unit* text, size_t units)
{
    if (units > MAX_LENGTH) {
        return false;
    }
    const size_t textBytes = TextBytes<Unit>(units);
    uint8_t* place = Reserve(SLOT + textBytes);
    if (place == nullptr) {
        return false;
    }
    const auto length = static_cast<int32_t>(units);
    std::memcpy(place, &length, SLOT);
    // Before the units are copied, which may end in the same slot. No byte of an earlier message leaves the process.
    std::memset(place + textBytes, 0, SLOT);  // the last slot: NUL and fill
    if (units > 0) {
        std::memcpy(place + SLOT, text, units * sizeof(Unit));
    }
    return true;
}

template <typename Unit>
const Unit* Parcel::TakeText(size_t& units)
{
    const size_t readable = GetReadableBytes();
    if (!ReadLength(data_ + cursor_, readable, units)) {
        return nullptr;
    }
    const size_t textBytes = TextBytes<Unit>(units);
    // TextBytes cannot overflow: `units` has at most 31 bits.
    if (textBytes > readable - SLOT) {
        return nullptr;
    }
    const uint8_t* place = data_ + cursor_ + SLOT;
    Unit terminator = 0;
    std::memcpy(&terminator, place + units * sizeof(Unit), sizeof(Unit));
    // A text without its NUL is malformed: a length that is off by one would shift everything behind it.
    if (terminator != 0) {
        return nullptr;
    }
    cursor_ += SLOT + textBytes;
    return reinterpret_cast<const Unit*>(place);
}

bool Parcel::WriteString(std::string_view value)
{
    return WriteText(value.data(), value.size());
}

bool Parcel::WriteString16(std::u16string_view value)
{
    return WriteText(value.data(), value.size());
}

bool Parcel::WriteParcelable(const Parcelable* record)
{
    if (record == nullptr) {
        return WriteInt32(0);
    }
    return WriteInt32(1) && record->Marshalling(*this);
}

bool Parcel::ReadString(std::string& value)
{
    size_t units = 0;
    const char* const text = TakeText<char>(units);
    if (text == nullptr) {
        return false;
    }
    value.assign(text, units);
    return true;
}

bool Parcel::ReadString16(std::u16string& value)
{
    size_t units = 0;
    const auto* const text = TakeText<char16_t>(units);
    if (text == nullptr) {
        return false;
    }
    value.assign(text, units);
    return true;
}

bool Parcel::MatchString16(std::u16string_view expected)
{
    size_t units = 0;
    const auto* const text = TakeText<char16_t>(units);
    // memcmp: the comparison of char16_t texts in the C++ library goes unit by unit.
    return text != nullptr && units == expected.size() &&
           std::memcmp(text, expected.data(), units * sizeof(char16_t)) == 0;
}

std::string Parcel::ReadString()
{
    std::string value;
    ReadString(value);
    return value;
}

std::u16string Parcel::ReadString16()
{
    std::u16string value;
    ReadString16(value);
    return value;
}

bool Parcel::WriteBuffer(const void* bytes, size_t sizeBytes)
{
    if (sizeBytes > MAX_LENGTH) {
        return false;
    }
    const size_t slotBytes = WholeSlots(sizeBytes);
    uint8_t* place = Reserve(SLOT + slotBytes);
    if (place == nullptr) {
        return false;
    }
    std::memset(place + slotBytes, 0, SLOT);  // the last slot: fill, or the length of an empty buffer
    const auto length = static_cast<int32_t>(sizeBytes);
    std::memcpy(place, &length, SLOT);
    if (sizeBytes > 0) {
        std::memcpy(place + SLOT, bytes, sizeBytes);
    }
    return true;
}

bool Parcel::ReadBuffer(std::vector<uint8_t>& value)
{
    const size_t readable = GetReadableBytes();
    size_t sizeBytes = 0;
    if (!ReadLength(data_ + cursor_, readable, sizeBytes)) {
        return false;
    }
    const size_t slotBytes = WholeSlots(sizeBytes);
    if (slotBytes > readable - SLOT) {
        return false;
    }
    const uint8_t* place = data_ + cursor_ + SLOT;
    value.assign(place, place + sizeBytes);
    cursor_ += SLOT + slotBytes;
    return true;
}

std::vector<uint8_t> Parcel::ReadBuffer()
{
    std::vector<uint8_t> value;
    ReadBuffer(value);
    return value;
}

bool Parcel::SetReadPosition(size_t position) noexcept
{
    // Every value begins at a slot.
    if (position > size_ || position % SLOT != 0) {
        return false;
    }
    cursor_ = position;
    return true;
}

bool Parcel::SetData(const void* bytes, size_t sizeBytes)
{
    // Not the parcel's own limit, which bounds writes: these bytes exist already.
    if (sizeBytes > MAX_DATA_BYTES || !ParcelAccess::Provide(*this, sizeBytes)) {
        return false;
    }
    if (sizeBytes > 0) {
        std::memcpy(data_, bytes, sizeBytes);
    }
    size_ = sizeBytes;
    cursor_ = 0;
    ParcelAccess::FitCapacity(*this);
    return true;
}

void Parcel::SetCapacityLimit(size_t limitBytes) noexcept
{
    limit_ = std::min(limitBytes, MAX_DATA_BYTES);
    ParcelAccess::FitCapacity(*this);
}

void Parcel::SetDefaultCapacityLimit(size_t limitBytes) noexcept
{
    g_defaultLimit.store(std::min(limitBytes, MAX_DATA_BYTES), std::memory_order_relaxed);
}

size_t Parcel::DefaultCapacityLimit() noexcept
{
    return g_defaultLimit.load(std::memory_order_relaxed);
}

bool ParcelAccess::Provide(Parcel& parcel, size_t size) noexcept
{
    if (parcel.data_ == nullptr) {
        parcel.data_ = ParcelBuffer::Allocate(size);
    } else if (const size_t capacity = ParcelBuffer::Capacity(parcel.data_); capacity < size) {
        uint8_t* moved = ParcelBuffer::Enlarge(parcel.data_, std::max(size, 2 * capacity));
        if (moved == nullptr) {
            return false;
        }
        parcel.data_ = moved;
    }
    FitCapacity(parcel);
    return parcel.data_ != nullptr;
}

void ParcelAccess::FitCapacity(Parcel& parcel) noexcept
{
    const size_t room = parcel.data_ == nullptr ? 0 : ParcelBuffer::Capacity(parcel.data_);
    parcel.capacity_ = std::max(parcel.size_, std::min(room, parcel.limit_));
}

uint8_t* ParcelAccess::Headroom(Parcel& parcel, size_t bytes) noexcept
{
    if (bytes > HEADROOM || (parcel.data_ == nullptr && !Provide(parcel, 0))) {
        return nullptr;
    }
    return parcel.data_ - bytes;
}

uint8_t* ParcelAccess::Append(Parcel& parcel, size_t bytes) noexcept
{
    const size_t size = parcel.size_;
    if (bytes > std::numeric_limits<size_t>::max() - size || !Provide(parcel, size + bytes)) {
        return nullptr;
    }
    parcel.size_ += bytes;
    FitCapacity(parcel);
    return parcel.data_ + size;
}

void ParcelAccess::Truncate(Parcel& parcel, size_t size) noexcept
{
    parcel.size_ = std::min(parcel.size_, size);
    parcel.cursor_ = std::min(parcel.cursor_, parcel.size_);
    FitCapacity(parcel);
}

void ParcelAccess::Swap(MessageParcel& left, MessageParcel& right) noexcept
{
    std::swap(left.data_, right.data_);
    std::swap(left.size_, right.size_);
    std::swap(left.capacity_, right.capacity_);
    std::swap(left.cursor_, right.cursor_);
    // The limit goes with its data.
    std::swap(left.limit_, right.limit_);
    left.references_.swap(right.references_);
}

void ParcelAccess::Clear(MessageParcel& parcel) noexcept
{
    parcel.references_.clear();
    parcel.Free();
}

}  // namespace TAVO
