// SPDX-License-Identifier: Apache-2.0
// Byte by byte, valid unless a test says otherwise.
#include "support/raw_message.h"

namespace TestSupport {
namespace {

constexpr uint32_t REFERENCE_MAGIC = 0x4a424f2a;
constexpr size_t SLOT = 4;
constexpr size_t TABLE_ENTRY_SIZE = 32;

void FillSlot(Bytes& bytes)
{
    bytes.resize((bytes.size() + SLOT - 1) / SLOT * SLOT);
}

}  // namespace

std::vector<RawReference> DecodeTable(const Bytes& table, size_t count)
{
    std::vector<RawReference> references;
    size_t at = 0;
    while (references.size() < count && at + TABLE_ENTRY_SIZE <= table.size()) {
        RawReference reference;
        reference.offset = ReadAt<uint32_t>(table, at);
        const size_t units = ReadAt<uint32_t>(table, at + 4);
        reference.instance = ReadAt<RawInstance>(table, at + 8);
        reference.serial = ReadAt<uint64_t>(table, at + 24);
        at += TABLE_ENTRY_SIZE;
        for (size_t unit = 0; unit < units && at + 2 * unit + 2 <= table.size(); ++unit) {
            reference.descriptor.push_back(ReadAt<char16_t>(table, at + 2 * unit));
        }
        at += (units * 2 + SLOT - 1) / SLOT * SLOT;
        references.push_back(reference);
    }
    return references;
}

std::string ToHex(const RawInstance& instance)
{
    std::string text;
    for (const uint8_t byte : instance) {
        text.push_back("0123456789abcdef"[byte >> 4]);
        text.push_back("0123456789abcdef"[byte & 15]);
    }
    return text;
}

RawFrame& RawFrame::Int32(int32_t value)
{
    Append(data, value);
    return *this;
}

RawFrame& RawFrame::String(std::string_view text)
{
    Append(data, static_cast<int32_t>(text.size()));
    data.insert(data.end(), text.begin(), text.end());
    data.push_back(0);
    FillSlot(data);
    return *this;
}

RawFrame& RawFrame::Reference(const RawInstance& owner, uint64_t objectSerial, std::u16string_view descriptor)
{
    RawReference reference;
    reference.offset = static_cast<uint32_t>(data.size());
    reference.instance = owner;
    reference.serial = objectSerial;
    reference.descriptor = descriptor;
    Append(data, REFERENCE_MAGIC, static_cast<uint32_t>(references.size()));
    references.push_back(reference);
    return *this;
}

Bytes RawFrame::Encode() const
{
    Bytes table;
    for (const RawReference& reference : references) {
        Append(table, reference.offset,
               reference.announcedUnits.value_or(static_cast<uint32_t>(reference.descriptor.size())),
               reference.instance, reference.serial);
        for (const char16_t unit : reference.descriptor) {
            Append(table, unit);
        }
        FillSlot(table);
    }
    Bytes bytes;
    Append(bytes, dataBytes.value_or(static_cast<uint32_t>(data.size())),
           tableBytes.value_or(static_cast<uint32_t>(table.size())), codeOrStatus, kind,
           referenceCount.value_or(static_cast<uint16_t>(references.size())), number, serial);
    bytes.insert(bytes.end(), data.begin(), data.end());
    bytes.insert(bytes.end(), table.begin(), table.end());
    return bytes;
}

}  // namespace TestSupport
