// SPDX-License-Identifier: Apache-2.0
// The bytes that travel between two processes; docs/wire.md is their description.
#ifndef TAVO_WIRE_WIRE_H
#define TAVO_WIRE_WIRE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "tavo/message_parcel.h"

namespace TAVO::Transport {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the wire is little endian and is copied as it lies");

// Names a process; drawn at random once.
struct Instance {
    std::array<uint8_t, 16> bytes{};

    bool operator==(const Instance& other) const = default;
    auto operator<=>(const Instance& other) const = default;
    std::string ToHex() const;
};

enum class ConnectionKind : uint16_t { CONTROL = 1, CALL_LANE = 2, ONE_WAY_LANE = 3, NOTICE_LANE = 4 };

struct Hello {
    static constexpr uint32_t MAGIC = 0x4f564154;
    static constexpr uint16_t VERSION = 1;
    static constexpr uint64_t ACCEPTED = 0;  // answers of a control hello, in place of the lane
    static constexpr uint64_t USE_OTHER = 1;

    uint32_t magic = MAGIC;
    uint16_t version = VERSION;
    ConnectionKind kind = ConnectionKind::CONTROL;
    Instance instance;
    uint64_t lane = 0;

    bool IsValid() const
    {
        return magic == MAGIC && version == VERSION && kind >= ConnectionKind::CONTROL &&
               kind <= ConnectionKind::NOTICE_LANE;
    }
    // Of an answer.
    bool IsAcceptance() const { return IsValid() && kind == ConnectionKind::CONTROL && lane == ACCEPTED; }
};
static_assert(sizeof(Hello) == 32);

enum class RecordType : uint32_t {
    RELEASE = 1,
    ACQUIRE = 2,
    ACQUIRED = 3,
    TAKEN = 4,
    LANE_CLOSED = 5,
    PING = 6,
    PONG = 7,
    AFTER = 8,
    RING = 9,
};

// One record on a control connection.
struct ControlRecord {
    static constexpr uint32_t OWN_LANE = 1;  // the lane was opened by the sender of the record

    RecordType type = RecordType::PING;
    uint32_t flags = 0;
    uint64_t a = 0;
    uint64_t b = 0;
};
static_assert(sizeof(ControlRecord) == 24);

// FIRST_REQUEST: its sender has asked for a count of the object (ACQUIRE) and does not wait for the answer.
// INTO_RING: the last frame on a one-way lane's socket; the next ones come through its ring.
enum class FrameKind : uint16_t { REQUEST = 1, REPLY = 2, FIRST_REQUEST = 3, INTO_RING = 4 };

struct FrameHeader {
    uint32_t dataBytes = 0;
    uint32_t tableBytes = 0;
    uint32_t codeOrStatus = 0;
    FrameKind kind = FrameKind::REQUEST;
    uint16_t references = 0;
    uint64_t number = 0;
    uint64_t serial = 0;

    size_t BodyBytes() const { return size_t{dataBytes} + tableBytes; }
    // Whether a frame like this may exist on a lane of calls or, `oneWay`, of one-way requests.
    bool IsPossible(bool oneWay) const;
};
static_assert(sizeof(FrameHeader) == 32);

constexpr size_t MAX_FRAME_BYTES = size_t{64} << 20;
constexpr size_t MAX_ONE_WAY_BYTES = size_t{64} << 10;
constexpr uint32_t MAX_DESCRIPTOR_UNITS = 256;

// The fixed part of an entry of the reference table; the descriptor follows.
struct TableEntry {
    uint32_t offset = 0;
    uint32_t descriptorUnits = 0;
    Instance instance;
    uint64_t serial = 0;

    static constexpr size_t PaddedDescriptorBytes(size_t units) { return (units * sizeof(char16_t) + 3) & ~size_t{3}; }
};
static_assert(sizeof(TableEntry) == 32);

}  // namespace TAVO::Transport

#endif
