// SPDX-License-Identifier: Apache-2.0
// A reference is 8 bytes in the data (marker and index) and an entry with the object in references_, in the order of
// the offsets. Reading returns an object only where both agree, so a peer cannot make one out of plain data.
#include "tavo/message_parcel.h"

#include <algorithm>
#include <new>

#include "base/parcel_reference.h"

namespace TAVO {

namespace {

uint64_t SlotsOf(size_t index)
{
    return static_cast<uint64_t>(index) << 32 | ReferenceSlots::MAGIC;
}

}  // namespace

MessageParcel::~MessageParcel() = default;

bool MessageParcel::WriteRemoteObject(const sptr<IRemoteObject>& object)
{
    const size_t index = references_.size();
    if (object == nullptr || index >= MAX_OBJECTS) {
        return false;
    }
    try {
        // First the entry, then the data: each may fail, and then neither is left.
        references_.push_back({static_cast<uint32_t>(GetDataSize()), object});
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (!WriteUint64(SlotsOf(index))) {
        references_.pop_back();
        return false;
    }
    return true;
}

sptr<IRemoteObject> MessageParcel::ReadRemoteObject()
{
    const size_t position = GetReadPosition();
    const auto found =
        std::lower_bound(references_.begin(), references_.end(), position,
                         [](const Reference& reference, size_t offset) { return reference.offset < offset; });
    if (found == references_.end() || found->offset != position) {
        return nullptr;
    }
    uint64_t slots = 0;
    if (!ReadUint64(slots)) {
        return nullptr;
    }
    if (slots != SlotsOf(static_cast<size_t>(found - references_.begin()))) {
        // The cursor stays at what could not be read, as with every read that fails.
        SetReadPosition(position);
        return nullptr;
    }
    return found->object;
}

}  // namespace TAVO
