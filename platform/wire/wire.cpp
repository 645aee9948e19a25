// SPDX-License-Identifier: Apache-2.0
// What makes a header or a name on the wire acceptable.
#include "wire/wire.h"

namespace TAVO::Transport {

std::string Instance::ToHex() const
{
    static constexpr char DIGITS[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (uint8_t byte : bytes) {
        text.push_back(DIGITS[byte >> 4]);
        text.push_back(DIGITS[byte & 15]);
    }
    return text;
}

bool FrameHeader::IsPossible(bool oneWay) const
{
    const size_t limit = oneWay ? MAX_ONE_WAY_BYTES : MAX_FRAME_BYTES;
    // In 64 bits: two lengths of 32 bits cannot wrap around.
    const uint64_t total = sizeof(FrameHeader) + uint64_t{dataBytes} + tableBytes;
    if (total > limit || dataBytes % Parcel::SLOT != 0 || references > MessageParcel::MAX_OBJECTS) {
        return false;
    }
    const size_t longestEntry = sizeof(TableEntry) + TableEntry::PaddedDescriptorBytes(MAX_DESCRIPTOR_UNITS);
    // Also: no references, no table.
    if (tableBytes < references * sizeof(TableEntry) || tableBytes > references * longestEntry) {
        return false;
    }
    switch (kind) {
        case FrameKind::REQUEST:
            return true;
        case FrameKind::REPLY:
        case FrameKind::FIRST_REQUEST:
            return !oneWay;
        case FrameKind::INTO_RING:
            return oneWay && BodyBytes() == 0;
    }
    return false;
}

}  // namespace TAVO::Transport
