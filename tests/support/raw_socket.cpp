// SPDX-License-Identifier: Apache-2.0
#include "support/raw_socket.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace TestSupport {

bool RawSocket::Send(const Bytes& bytes, Clock::duration timeout)
{
    const Clock::time_point deadline = Clock::now() + timeout;
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t put = ::send(Fd(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (put >= 0) {
            sent += static_cast<size_t>(put);
        } else if (errno == EAGAIN) {
            if (!PollUntil(Fd(), POLLOUT, deadline)) {
                return false;
            }
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool RawSocket::SendByteByByte(const Bytes& bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [this](uint8_t byte) { return Send(Bytes{byte}); });
}

bool RawSocket::SendWithDescriptors(const Bytes& bytes, size_t count)
{
    const std::vector<int> descriptors(count, STDERR_FILENO);
    std::vector<uint8_t> control(CMSG_SPACE(count * sizeof(int)));
    iovec part{const_cast<uint8_t*>(bytes.data()), bytes.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(count * sizeof(int));
    std::memcpy(CMSG_DATA(header), descriptors.data(), count * sizeof(int));
    return ::sendmsg(Fd(), &message, MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

std::optional<Bytes> RawSocket::Receive(size_t size, Clock::duration timeout)
{
    const Clock::time_point deadline = Clock::now() + timeout;
    Bytes bytes;
    while (bytes.size() < size) {
        uint8_t buffer[65536];
        if (!PollUntil(Fd(), POLLIN, deadline)) {
            return std::nullopt;
        }
        const ssize_t got = ::recv(Fd(), buffer, std::min(sizeof(buffer), size - bytes.size()), MSG_DONTWAIT);
        if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) {
            return std::nullopt;
        }
        bytes.insert(bytes.end(), buffer, buffer + std::max<ssize_t>(got, 0));
    }
    return bytes;
}

std::optional<RawHello> RawSocket::ReceiveHello()
{
    const std::optional<Bytes> bytes = Receive(RawHello::SIZE);
    return bytes ? std::optional(RawHello::Decode(*bytes)) : std::nullopt;
}

std::optional<RawRecord> RawSocket::ReceiveRecord(Clock::duration timeout)
{
    const std::optional<Bytes> bytes = Receive(RawRecord::SIZE, timeout);
    return bytes ? std::optional(RawRecord::Decode(*bytes)) : std::nullopt;
}

std::optional<RawFrame> RawSocket::ReceiveFrame(Clock::duration timeout)
{
    const std::optional<Bytes> header = Receive(RawFrame::HEADER_SIZE, timeout);
    if (!header) {
        return std::nullopt;
    }
    RawFrame frame;
    frame.codeOrStatus = ReadAt<uint32_t>(*header, 8);
    frame.kind = ReadAt<uint16_t>(*header, 12);
    frame.number = ReadAt<uint64_t>(*header, 16);
    frame.serial = ReadAt<uint64_t>(*header, 24);
    const std::optional<Bytes> data = Receive(ReadAt<uint32_t>(*header, 0), timeout);
    const std::optional<Bytes> table = Receive(ReadAt<uint32_t>(*header, 4), timeout);
    if (!data || !table) {
        return std::nullopt;
    }
    frame.data = *data;
    frame.references = DecodeTable(*table, ReadAt<uint16_t>(*header, 14));
    return frame;
}

bool RawSocket::WaitForEnd(Clock::duration timeout)
{
    const Clock::time_point deadline = Clock::now() + timeout;
    uint8_t buffer[65536];
    while (PollUntil(Fd(), POLLIN, deadline)) {
        const ssize_t got = ::recv(Fd(), buffer, sizeof(buffer), MSG_DONTWAIT);
        if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) {
            return true;
        }
    }
    return false;
}

bool RawSocket::AwaitReadable(Clock::duration timeout) const
{
    return PollUntil(Fd(), POLLIN, Clock::now() + timeout);
}

}  // namespace TestSupport
