// SPDX-License-Identifier: Apache-2.0
// A connection that sends and receives messages whole, in pieces, or with uninvited bytes.
#ifndef VELTRA_TESTS_SUPPORT_RAW_SOCKET_H
#define VELTRA_TESTS_SUPPORT_RAW_SOCKET_H

#include <optional>

#include "support/process.h"
#include "support/raw_message.h"

namespace TestSupport {

// A stream socket. Nothing here raises SIGPIPE; all waits end.
class RawSocket {
public:
    RawSocket() = default;
    explicit RawSocket(int fd) : fd_(fd) {}

    bool IsOpen() const { return Fd() >= 0; }
    int Fd() const { return fd_.Get(); }
    void Close() { fd_.Close(); }

    // False if not all could be sent: the other end is closed, or does not read.
    bool Send(const Bytes& bytes, Clock::duration timeout = TIMEOUT);
    // One send for each byte.
    bool SendByteByByte(const Bytes& bytes);
    // Sends with `count` descriptors attached; they stay open here.
    bool SendWithDescriptors(const Bytes& bytes, size_t count);
    // Exactly so many bytes; nothing when the connection ended or the time was up before.
    std::optional<Bytes> Receive(size_t size, Clock::duration timeout = TIMEOUT);
    std::optional<RawHello> ReceiveHello();
    std::optional<RawRecord> ReceiveRecord(Clock::duration timeout = TIMEOUT);
    std::optional<RawFrame> ReceiveFrame(Clock::duration timeout = TIMEOUT);
    // Reads and forgets until the other end closes; false when it did not in time.
    bool WaitForEnd(Clock::duration timeout = TIMEOUT);
    // Whether something arrives to read, or a connection to take.
    bool AwaitReadable(Clock::duration timeout) const;

private:
    OwnedFd fd_;
};

}  // namespace TestSupport

#endif
