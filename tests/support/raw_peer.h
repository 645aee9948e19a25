// SPDX-License-Identifier: Apache-2.0
// A peer that speaks docs/wire.md by hand and as badly as a test wants; it shares no code with the transport.
#ifndef VELTRA_TESTS_SUPPORT_RAW_PEER_H
#define VELTRA_TESTS_SUPPORT_RAW_PEER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/process.h"

namespace TestSupport {

using Bytes = std::vector<uint8_t>;
using RawInstance = std::array<uint8_t, 16>;

std::string ToHex(const RawInstance& instance);
// Appends an integer or a plain array as it lies in memory (this machine is little endian).
template <typename T>
void Append(Bytes& bytes, const T& value)
{
    const auto* from = reinterpret_cast<const uint8_t*>(&value);
    bytes.insert(bytes.end(), from, from + sizeof(value));
}
template <typename T>
T ReadAt(const Bytes& bytes, size_t at)
{
    T value{};
    std::copy_n(bytes.begin() + static_cast<ptrdiff_t>(at), sizeof(T), reinterpret_cast<uint8_t*>(&value));
    return value;
}

struct RawHello {
    enum Kind : uint16_t { CONTROL = 1, CALL = 2, ONE_WAY = 3, NOTICE = 4 };
    static constexpr size_t SIZE = 32;

    uint32_t magic = 0x4f564154;
    uint16_t version = 1;
    uint16_t kind = CONTROL;
    RawInstance instance{};
    uint64_t lane = 0;  // an answer: 0 accepted, 1 use the other one

    Bytes Encode() const;
    static RawHello Decode(const Bytes& bytes);
};

struct RawRecord {
    enum Type : uint32_t {
        RELEASE = 1,
        ACQUIRE = 2,
        ACQUIRED = 3,
        TAKEN = 4,
        LANE_CLOSED = 5,
        PING = 6,
        PONG = 7,
        AFTER = 8
    };
    static constexpr size_t SIZE = 24;
    static constexpr uint32_t OWN_LANE = 1;

    uint32_t type = PING;
    uint32_t flags = 0;
    uint64_t a = 0;
    uint64_t b = 0;

    Bytes Encode() const;
    static RawRecord Decode(const Bytes& bytes);
};

// One entry of a reference table. The size of the descriptor may be a lie.
struct RawReference {
    uint32_t offset = 0;
    RawInstance instance{};
    uint64_t serial = 0;
    std::u16string descriptor;
    std::optional<uint32_t> announcedUnits;
};

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
    RawFrame& Uint64(uint64_t value);
    RawFrame& String(std::string_view text);
    // Two slots in the data and an entry in the table.
    RawFrame& Reference(const RawInstance& owner, uint64_t objectSerial, std::u16string_view descriptor = {});
    Bytes Encode() const;
};

// A stream socket. Nothing here raises SIGPIPE; all waits end.
class RawSocket {
public:
    RawSocket() = default;
    explicit RawSocket(int fd) : fd_(fd) {}
    RawSocket(RawSocket&& other) noexcept;
    RawSocket& operator=(RawSocket&& other) noexcept;
    ~RawSocket() { Close(); }

    bool IsOpen() const { return fd_ >= 0; }
    int Fd() const { return fd_; }
    void Close();

    // False when not all could be sent: the other end is gone, or does not read.
    bool Send(const Bytes& bytes, Clock::duration patience = PATIENCE);
    // One send for each byte.
    bool SendByteByByte(const Bytes& bytes);
    // Sends with `count` descriptors attached; they stay open here.
    bool SendWithDescriptors(const Bytes& bytes, size_t count);
    // Exactly so many bytes; nothing when the connection ended or the time was up before.
    std::optional<Bytes> Receive(size_t size, Clock::duration patience = PATIENCE);
    std::optional<RawHello> ReceiveHello();
    std::optional<RawRecord> ReceiveRecord(Clock::duration patience = PATIENCE);
    std::optional<RawFrame> ReceiveFrame(Clock::duration patience = PATIENCE);
    // Reads and forgets until the other end closes; false when it did not in time.
    bool WaitForEnd(Clock::duration patience = PATIENCE);
    // True while the connection is up and nothing lies unread.
    bool IsQuiet() const;

private:
    int fd_ = -1;
};

// One process's worth of identity: an instance, what it listens on, and its session with one target.
class RawPeer {
public:
    explicit RawPeer(const std::string& runtimeDir);
    ~RawPeer();
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    const RawInstance& Instance() const { return instance_; }
    void SetInstance(const RawInstance& instance) { instance_ = instance; }
    const RawInstance& Target() const { return target_; }
    RawSocket& Control() { return control_; }

    // Listens as p/<instance>, or as "manager".
    void Listen(bool asManager = false);
    // The next connection, its hello read into `hello`; not open when none came in time.
    RawSocket Accept(RawHello& hello, Clock::duration patience = PATIENCE);

    // A bare connection to "manager" or "p/<instance>".
    RawSocket Connect(const std::string& name) const;
    // Connects and exchanges hellos; from then on lanes go to the same name. False when it is refused.
    bool OpenSession(const std::string& name = "manager");
    RawSocket OpenLane(uint16_t kind = RawHello::CALL);
    // The number that the last opened lane was given.
    uint64_t LastLane() const { return lastLane_; }
    // Sends a request on a lane of its own and takes its answer.
    std::optional<RawFrame> CallOnce(const RawFrame& request);
    // Whether the session still stands: its control thread answers.
    bool Ping();
    // Skips other records until one of that type comes.
    std::optional<RawRecord> AwaitRecord(uint32_t type, Clock::duration patience = PATIENCE);

private:
    std::string Address(const std::string& name) const;

    RawInstance instance_;
    RawInstance target_{};
    std::string targetName_;
    std::string listenName_;  // empty: does not listen
    int dirFd_ = -1;
    RawSocket listener_;
    RawSocket control_;
    uint64_t lastLane_ = 0;
    uint64_t lastPing_ = 0;
};

}  // namespace TestSupport

#endif
