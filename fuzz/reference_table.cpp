// SPDX-License-Identifier: Apache-2.0
// Does a reference table that is accepted keep every rule, and is an honest one accepted?
#include <cstring>

#include "base/parcel_reference.h"
#include "input.h"
#include "wire/reference_table.h"

namespace {

using Fuzz::Require;
using namespace TAVO;
using namespace TAVO::Transport;

void RequireRules(const FrameHeader& header, const MessageParcel& body, const std::vector<ReferenceTableEntry>& entries)
{
    Require(entries.size() == header.references, "an entry for each reference");
    uint64_t free = 0;
    for (uint32_t i = 0; i < entries.size(); ++i) {
        const TableEntry& fixed = entries[i].fixed;
        Require(fixed.offset % Parcel::SLOT == 0, "references lie on slots");
        Require(fixed.offset >= free, "in order, and none over another");
        free = uint64_t{fixed.offset} + sizeof(ReferenceSlots);
        Require(free <= header.dataBytes, "within the data");
        ReferenceSlots slots;
        std::memcpy(&slots, body.GetData() + fixed.offset, sizeof(slots));
        Require(slots.magic == ReferenceSlots::MAGIC && slots.index == i, "where the data has a reference");
        Require(fixed.serial != 0 && fixed.instance != Instance{}, "of an object that can exist");
        Require(entries[i].descriptor.size() == fixed.descriptorUnits && fixed.descriptorUnits <= MAX_DESCRIPTOR_UNITS,
                "a descriptor of the length that was told");
    }
}

TableEntry TakeEntry(FuzzedDataProvider& input, size_t offset)
{
    TableEntry entry;
    entry.offset = static_cast<uint32_t>(offset);
    entry.instance.bytes[3] = input.ConsumeIntegralInRange<uint8_t>(1, 255);
    entry.serial = input.ConsumeIntegralInRange<uint64_t>(1, 9);
    return entry;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    FuzzedDataProvider input(bytes, size);
    MessageParcel body;
    ReferenceTableWriter writer(body);
    const int count = input.ConsumeIntegralInRange(0, 4);
    for (int i = 0; i < count; ++i) {
        while (input.ConsumeBool()) {
            body.WriteInt32(input.ConsumeIntegral<int32_t>());
        }
        Require(writer.Add(TakeEntry(input, body.GetDataSize()), Fuzz::TakeText16(input)), "a short descriptor fits");
        Require(body.WriteRemoteObject(MakeRef<IPCObjectStub>()), "a reference fits");
    }
    FrameHeader header;
    header.dataBytes = static_cast<uint32_t>(body.GetDataSize());
    Require(writer.Finish(header) && header.IsPossible(false), "an honest message is possible");
    bool isHonest = !Fuzz::Damage(input, body);
    if (input.ConsumeBool()) {
        isHonest = false;
        header.references = input.ConsumeIntegralInRange<uint16_t>(0, 5);
        header.dataBytes = input.ConsumeIntegralInRange<uint32_t>(0, static_cast<uint32_t>(body.GetDataSize()));
        header.tableBytes = static_cast<uint32_t>(body.GetDataSize()) - header.dataBytes;
    }
    std::vector<ReferenceTableEntry> entries;
    const bool isRead = ReadReferenceTable(header, body, entries);
    Require(isRead || !isHonest, "an honest table is read");
    if (isRead) {
        RequireRules(header, body, entries);
    }
    return 0;
}
