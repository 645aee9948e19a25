// SPDX-License-Identifier: Apache-2.0
// Reads and writes reference tables. A table from a peer is checked completely before one object is created: each entry
// must be inside the body, each offset must be aligned, behind the previous one, and show the marker and the index in
// the data, and the last entry must end where the body ends. So no reference overlaps another, and a text in the data
// cannot pass for one.
#include "wire/reference_table.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/parcel_access.h"
#include "base/parcel_reference.h"

namespace TAVO::Transport {
namespace {

bool IsReferenceAt(const uint8_t* data, uint32_t offset, uint32_t index)
{
    ReferenceSlots slots;
    std::memcpy(&slots, data + offset, sizeof(slots));
    return slots.magic == ReferenceSlots::MAGIC && slots.index == index;
}

}  // namespace

bool ReadReferenceTable(const FrameHeader& header, const MessageParcel& body, std::vector<ReferenceTableEntry>& entries)
{
    if (body.GetDataSize() != header.BodyBytes()) {
        return false;
    }
    const uint8_t* data = body.GetData();
    size_t position = header.dataBytes;
    uint64_t firstFree = 0;  // where the next reference may begin
    for (uint32_t i = 0; i < header.references; ++i) {
        ReferenceTableEntry entry;
        if (body.GetDataSize() - position < sizeof(TableEntry)) {
            return false;
        }
        std::memcpy(&entry.fixed, data + position, sizeof(TableEntry));
        position += sizeof(TableEntry);
        const uint64_t offset = entry.fixed.offset;
        // In 64 bits: with the 32 bits of the wire the sum could wrap around.
        if (offset % Parcel::SLOT != 0 || offset < firstFree || offset + sizeof(ReferenceSlots) > header.dataBytes ||
            !IsReferenceAt(data, entry.fixed.offset, i)) {
            return false;
        }
        firstFree = offset + sizeof(ReferenceSlots);
        const uint32_t units = entry.fixed.descriptorUnits;
        if (entry.fixed.serial == 0 || entry.fixed.instance == Instance{} || units > MAX_DESCRIPTOR_UNITS ||
            body.GetDataSize() - position < TableEntry::PaddedDescriptorBytes(units)) {
            return false;
        }
        entry.descriptor.resize(units);
        if (units != 0) {
            std::memcpy(entry.descriptor.data(), data + position, units * sizeof(char16_t));
        }
        position += TableEntry::PaddedDescriptorBytes(units);
        entries.push_back(std::move(entry));
    }
    return position == body.GetDataSize();
}

bool ReferenceTableWriter::Add(TableEntry entry, const std::u16string& descriptor)
{
    if (descriptor.size() > MAX_DESCRIPTOR_UNITS) {
        return false;
    }
    entry.descriptorUnits = static_cast<uint32_t>(descriptor.size());
    const size_t start = bytes_.size();
    // resize fills with zeros, which is the padding.
    bytes_.resize(start + sizeof(entry) + TableEntry::PaddedDescriptorBytes(descriptor.size()));
    std::memcpy(bytes_.data() + start, &entry, sizeof(entry));
    if (!descriptor.empty()) {
        std::memcpy(bytes_.data() + start + sizeof(entry), descriptor.data(), descriptor.size() * sizeof(char16_t));
    }
    ++count_;
    return true;
}

bool ReferenceTableWriter::Finish(FrameHeader& header)
{
    header.references = count_;
    header.tableBytes = static_cast<uint32_t>(bytes_.size());
    uint8_t* place = ParcelAccess::Append(data_, bytes_.size());
    if (place == nullptr) {
        return false;
    }
    std::copy(bytes_.begin(), bytes_.end(), place);
    return true;
}

}  // namespace TAVO::Transport
