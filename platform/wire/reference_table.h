// SPDX-License-Identifier: Apache-2.0
// The table behind a message's data: which objects its references name.
#ifndef TAVO_WIRE_REFERENCE_TABLE_H
#define TAVO_WIRE_REFERENCE_TABLE_H

#include <string>
#include <vector>

#include "wire/wire.h"

namespace TAVO::Transport {

struct ReferenceTableEntry {
    TableEntry fixed;
    std::u16string descriptor;
};

// Takes a table apart. False, for the whole message, if anything in it does not hold together; makes no object.
bool ReadReferenceTable(const FrameHeader& header, const MessageParcel& body,
                        std::vector<ReferenceTableEntry>& entries);

// Collects entries and appends them to a parcel's data as one table.
class ReferenceTableWriter {
public:
    explicit ReferenceTableWriter(MessageParcel& data) : data_(data) {}

    // False when the descriptor is too long.
    bool Add(TableEntry entry, const std::u16string& descriptor);
    // Appends the table and completes the header; false if out of memory. The caller cuts it off after sending.
    bool Finish(FrameHeader& header);

private:
    MessageParcel& data_;
    std::vector<uint8_t> bytes_;
    uint16_t count_ = 0;
};

}  // namespace TAVO::Transport

#endif
