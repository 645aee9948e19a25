// SPDX-License-Identifier: Apache-2.0
// Hellos, records and frames of docs/wire.md, assembled by hand and as wrong as a test needs; no code is shared with
// the transport.
#ifndef VELTRA_TESTS_SUPPORT_RAW_MESSAGE_H
#define VELTRA_TESTS_SUPPORT_RAW_MESSAGE_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

using Bytes = std::vector<uint8_t>;
using RawInstance = std::array<uint8_t, 16>;

std::string ToHex(const RawInstance& instance);
// Appends integers and plain arrays as they lie in memory (this machine is little endian).
template <typename... T>
void Append(Bytes& bytes, const T&... values)
{
    const auto append = [&bytes](const void* value, size_t size) {
        const auto* from = static_cast<const uint8_t*>(value);
        bytes.insert(bytes.end(), from, from + size);
    };
    (append(&values, sizeof(values)), ...);
}
template <typename T>
T ReadAt(const Bytes& bytes, size_t at)
{
    T value{};
    std::copy_n(bytes.begin() + static_cast<ptrdiff_t>(at), sizeof(T), reinterpret_cast<uint8_t*>(&value));
    return value;
}

// The bytes of a record, which has no padding.
template <typename T>
Bytes InMemory(const T& record)
{
    const auto* begin = reinterpret_cast<const uint8_t*>(&record);
    return Bytes(begin, begin + sizeof(record));
}

struct RawHello {
    enum Kind : uint16_t { CONTROL = 1, CALL = 2, ONE_WAY = 3, NOTICE = 4 };
    static constexpr size_t SIZE = 32;

    uint32_t magic = 0x4f564154;
    uint16_t version = 1;
    uint16_t kind = CONTROL;
    RawInstance instance{};
    uint64_t lane = 0;  // an answer: 0 accepted, 1 use the other one

    Bytes Encode() const { return InMemory(*this); }
    static RawHello Decode(const Bytes& bytes) { return ReadAt<RawHello>(bytes, 0); }
};
static_assert(sizeof(RawHello) == RawHello::SIZE);

struct RawRecord {
    enum Type : uint32_t { RELEASE = 1, ACQUIRE, ACQUIRED, TAKEN, LANE_CLOSED, PING, PONG, AFTER, RING };
    static constexpr size_t SIZE = 24;
    static constexpr uint32_t OWN_LANE = 1;

    uint32_t type = PING;
    uint32_t flags = 0;
    uint64_t a = 0;
    uint64_t b = 0;

    Bytes Encode() const { return InMemory(*this); }
    static RawRecord Decode(const Bytes& bytes) { return ReadAt<RawRecord>(bytes, 0); }
};
static_assert(sizeof(RawRecord) == RawRecord::SIZE);

// One entry of a reference table. The size of the descriptor may be a lie.
struct RawReference {
    uint32_t offset = 0;
    RawInstance instance{};
    uint64_t serial = 0;
    std::u16string descriptor;
    std::optional<uint32_t> announcedUnits;
};

// The entries of a table that was received, as far as it holds together.
std::vector<RawReference> DecodeTable(const Bytes& table, size_t count);

// A frame under construction, or one that was received. What is announced follows from the content unless it is set.
struct RawFrame {
    static constexpr size_t HEADER_SIZE = 32;
    enum Kind : uint16_t { REQUEST = 1, REPLY = 2 };

    uint32_t codeOrStatus = 0;
    uint16_t kind = REQUEST;
    uint64_t number = 1;
    uint64_t serial = 0;
    Bytes data;
    std::vector<RawReference> references;
    std::optional<uint32_t> dataBytes;
    std::optional<uint32_t> tableBytes;
    std::optional<uint16_t> referenceCount;

    int32_t Status() const { return static_cast<int32_t>(codeOrStatus); }
    RawFrame& Int32(int32_t value);
    RawFrame& String(std::string_view text);
    // Two slots in the data and an entry in the table.
    RawFrame& Reference(const RawInstance& owner, uint64_t objectSerial, std::u16string_view descriptor = {});
    Bytes Encode() const;
};

}  // namespace TestSupport

#endif
