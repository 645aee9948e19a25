// SPDX-License-Identifier: Apache-2.0
// The HTTP library reads requests through this class, which limits the time and the memory that a peer can use. The
// whole request has one deadline, however slowly its bytes arrive, and one limit of size, for head and body together. A
// response has a deadline for each piece that is written.
#include "connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace VeltraServe {

namespace {

constexpr std::chrono::seconds LINGER_TIME{1};
constexpr size_t LINGER_BYTES = size_t{16} << 20;

thread_local Connection* served = nullptr;  // handlers get a request of the library, which does not lead to it

}  // namespace

Connection::Connection(int fd) : fd_(fd)
{
    served = this;
}

Connection::~Connection()
{
    served = nullptr;
    ::close(fd_);
}

void Connection::EndReading()
{
    // From here on the connection is not closed to make room for others: its request is being answered.
    served->isReading_.store(false, std::memory_order_relaxed);
}

void Connection::Interrupt() const
{
    // Wakes up a poll or recv of the connection's own thread, which then closes the socket; closing it here could hit a
    // new descriptor with the same number.
    ::shutdown(fd_, SHUT_RDWR);
}

// A socket that is closed while data of the peer is unread resets the connection, and the peer loses the response.
void Connection::Finish()
{
    ::shutdown(fd_, SHUT_WR);
    const Clock::time_point deadline = Clock::now() + LINGER_TIME;
    for (size_t drained = 0; drained < LINGER_BYTES && WaitFor(POLLIN, deadline);) {
        const ssize_t count = ::recv(fd_, buffer_.data(), buffer_.size(), MSG_DONTWAIT);
        if (count <= 0) {
            return;
        }
        drained += static_cast<size_t>(count);
    }
}

bool Connection::is_readable() const
{
    return begin_ < end_ || WaitFor(POLLIN, requestDeadline_);
}

bool Connection::is_writable() const
{
    return WaitFor(POLLOUT, Clock::now());
}

ssize_t Connection::read(char* data, size_t sizeBytes)
{
    if (begin_ == end_) {
        if (receivedBytes_ >= MAX_REQUEST_BYTES || !WaitFor(POLLIN, requestDeadline_)) {
            return -1;
        }
        // At the limit the next read fails, and the library answers or closes: a larger buffer is never allocated for a
        // peer.
        const size_t allowed = std::min(buffer_.size(), MAX_REQUEST_BYTES - receivedBytes_);
        const ssize_t count = ::recv(fd_, buffer_.data(), allowed, MSG_DONTWAIT);
        if (count <= 0) {
            return count;
        }
        begin_ = 0;
        end_ = static_cast<size_t>(count);
        receivedBytes_ += end_;
    }
    const size_t count = std::min(sizeBytes, end_ - begin_);
    std::memcpy(data, buffer_.data() + begin_, count);
    begin_ += count;
    return static_cast<ssize_t>(count);
}

ssize_t Connection::write(const char* data, size_t sizeBytes)
{
    EndReading();
    const Clock::time_point deadline = Clock::now() + WRITE_TIME;
    for (size_t sent = 0; sent < sizeBytes;) {
        const ssize_t count = ::send(fd_, data + sent, sizeBytes - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count > 0) {
            sent += static_cast<size_t>(count);
        } else if (count == 0 || (errno != EAGAIN && errno != EINTR) || !WaitFor(POLLOUT, deadline)) {
            return -1;
        }
    }
    return static_cast<ssize_t>(sizeBytes);
}

// Deliberate: no handler here decides by addresses, so none are looked up.
void Connection::get_remote_ip_and_port(std::string&, int&) const {}

void Connection::get_local_ip_and_port(std::string&, int&) const {}

bool Connection::WaitFor(short events, Clock::time_point deadline) const
{
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd entry{fd_, events, 0};
        const int ready = ::poll(&entry, 1, static_cast<int>(std::max<int64_t>(left.count(), 0)));
        if (ready > 0) {
            return (entry.revents & (events | POLLHUP | POLLERR)) != 0;
        }
        if (ready == 0 || errno != EINTR) {
            return false;
        }
    }
}

}  // namespace VeltraServe
