// SPDX-License-Identifier: Apache-2.0
// Socket helpers: interruptions, short transfers and deadlines are handled here and nowhere else. Two facts shape them.
// A blocking send or recv that a signal interrupts starts with its full timeout (SO_RCVTIMEO, SO_SNDTIMEO) when it is
// called again; a game with a timer signal would never reach a deadline, so after an interruption poll waits for the
// rest. And an AF_UNIX stream socket takes a large message in pieces, each with a timeout of its own, so large messages
// are sent without waiting and poll keeps the one deadline.
#include "os/fd.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#ifndef SO_PEERPIDFD
#define SO_PEERPIDFD 77
#endif

namespace TAVO::Transport {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// Messages up to this size fit into the socket's buffer in one piece.
constexpr size_t SMALL_BYTES = 32 * 1024;

// recv offers no room for control data: descriptors that a peer sends are closed by the kernel and never appear here.
// Plain system calls: the C library's are points of cancellation, which would end a thread in the middle of a call, and
// pay for that with two atomic operations each time. The sanitizers know only the library's.
#ifdef TAVO_SANITIZED
ssize_t Receive(int fd, void* buffer, size_t size, int flags) noexcept
{
    return ::recv(fd, buffer, size, flags);
}

ssize_t Send(int fd, const void* buffer, size_t size, int flags) noexcept
{
    return ::send(fd, buffer, size, flags);
}
#else
ssize_t Receive(int fd, void* buffer, size_t size, int flags) noexcept
{
    return ::syscall(SYS_recvfrom, fd, buffer, size, flags, nullptr, nullptr);
}

ssize_t Send(int fd, const void* buffer, size_t size, int flags) noexcept
{
    return ::syscall(SYS_sendto, fd, buffer, size, flags, nullptr, 0);
}
#endif

IoResult ReceiveWith(int fd, void* buffer, size_t size, int flags) noexcept
{
    for (;;) {
        const ssize_t got = Receive(fd, buffer, size, flags);
        if (got > 0) {
            return {IoStatus::OK, static_cast<size_t>(got)};
        }
        if (got == 0) {
            return {IoStatus::CLOSED, 0};
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return {IoStatus::WOULD_BLOCK, 0};
        }
        if (errno == EINTR) {
            if ((flags & MSG_DONTWAIT) == 0) {
                return {IoStatus::WOULD_BLOCK,
                        0};  // The socket's time-out would start anew: the caller looks at the clock.
            }
            continue;
        }
        return {IoStatus::CLOSED, 0};
    }
}

// Sends what fits in one go: with MSG_DONTWAIT all that fits now, else what fits within the socket's send time-out.
IoResult SendWith(int fd, const void* buffer, size_t size, int flags) noexcept
{
    const char* bytes = static_cast<const char*>(buffer);
    size_t sent = 0;
    while (sent < size) {
        // MSG_NOSIGNAL: the peer may be dead, and SIGPIPE would end a game that has not changed its disposition.
        const ssize_t put = Send(fd, bytes + sent, size - sent, flags | MSG_NOSIGNAL);
        if (put >= 0) {
            sent += static_cast<size_t>(put);
        } else if (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK) {
            return {IoStatus::CLOSED, sent};
        } else if (errno != EINTR || (flags & MSG_DONTWAIT) == 0) {
            return {IoStatus::WOULD_BLOCK, sent};
        }
        if (put >= 0 && sent < size && (flags & MSG_DONTWAIT) == 0) {
            return {IoStatus::WOULD_BLOCK, sent};  // The time-out passed; another blocking send would begin it anew.
        }
    }
    return {IoStatus::OK, sent};
}

// Connects; after a signal again, with the time that is left, which the send time-out of the socket bounds.
bool ConnectUninterrupted(int fd, const sockaddr_un& address, milliseconds timeout)
{
    const bool waits = timeout.count() > 0;
    const Clock::time_point end = Clock::now() + timeout;
    for (bool isInterrupted = false;; isInterrupted = true) {
        // EISCONN: the connection was made although a signal interrupted the first call.
        if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 || errno == EISCONN) {
            if (isInterrupted && waits) {
                SetTimeouts(fd, timeout, timeout);
            }
            return true;
        }
        if (errno != EINTR) {
            return false;
        }
        const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
        if (waits && left.count() <= 0) {
            errno = EAGAIN;
            return false;
        }
        if (waits) {  // Otherwise it would begin anew with each signal.
            SetTimeouts(fd, left, left);
        }
    }
}

ConnectionFd ConnectWith(const std::string& path, int socketFlags, milliseconds timeout)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return ConnectionFd();
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    ConnectionFd fd(AboveStandardFds(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | socketFlags, 0)));
    if (!fd.IsOpen()) {
        return fd;
    }
    if (timeout.count() > 0) {
        SetTimeouts(fd.Get(), timeout, timeout);
    }
    if (!ConnectUninterrupted(fd.Get(), address, timeout)) {
        const int error = errno;
        fd.Close();
        errno = error;
        return fd;
    }
    // Both ends check each other: a socket in a directory that another user has taken over must not get requests.
    const PeerIdentity peer = ReadPeerIdentity(fd.Get());
    if (!peer.known || peer.uid != ::geteuid()) {
        fd.Close();
        errno = EACCES;
    }
    return fd;
}

}  // namespace

void ConnectionFd::ShutDown() const noexcept
{
    ::shutdown(Get(), SHUT_RDWR);
}

int AboveStandardFds(int fd) noexcept
{
    if (fd < 0 || fd > STDERR_FILENO) {
        return fd;
    }
    // The copy refers to the same socket; on failure (no descriptor left) the result is -1, and nothing stays open.
    const int above = ::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int reason = errno;
    ::close(fd);
    errno = reason;
    return above;
}

IoResult ReceiveNow(int fd, void* buffer, size_t size) noexcept
{
    return ReceiveWith(fd, buffer, size, MSG_DONTWAIT);
}

IoResult ReceiveOnce(int fd, void* buffer, size_t size) noexcept
{
    return ReceiveWith(fd, buffer, size, 0);
}

IoResult ReceiveUntil(int fd, void* buffer, size_t size, Deadline deadline, bool isFirst) noexcept
{
    IoResult result = ReceiveWith(fd, buffer, size, isFirst ? 0 : MSG_DONTWAIT);
    while (result.status == IoStatus::WOULD_BLOCK && PollUntil(fd, POLLIN, deadline)) {
        result = ReceiveWith(fd, buffer, size, MSG_DONTWAIT);
    }
    return result;
}

bool PeekNow(int fd, void* buffer, size_t size) noexcept
{
    return ::recv(fd, buffer, size, MSG_PEEK | MSG_DONTWAIT) == static_cast<ssize_t>(size);
}

IoResult SendNow(int fd, const void* buffer, size_t size) noexcept
{
    return SendWith(fd, buffer, size, MSG_DONTWAIT);
}

IoResult SendUntil(int fd, const void* buffer, size_t size, Deadline deadline) noexcept
{
    // A large message is made of many pieces, each with the socket's time-out: poll keeps to the one deadline.
    IoResult result = SendWith(fd, buffer, size, size > SMALL_BYTES ? MSG_DONTWAIT : 0);
    while (result.status == IoStatus::WOULD_BLOCK && PollUntil(fd, POLLOUT, deadline)) {
        const size_t before = result.bytes;
        result = SendWith(fd, static_cast<const char*>(buffer) + before, size - before, MSG_DONTWAIT);
        result.bytes += before;
    }
    return result;
}

bool PollUntil(int fd, short events, Deadline deadline) noexcept
{
    for (;;) {
        // Rounded up: rounded down, the last fraction of a millisecond would be a busy loop with a timeout of 0.
        const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            return false;
        }
        pollfd entry{fd, events, 0};
        const int ready = ::poll(&entry, 1, static_cast<int>(std::min<int64_t>(left, 1 << 30)));
        if (ready > 0) {
            return true;
        }
        if (ready < 0 && errno != EINTR) {
            return false;
        }
    }
}

bool HasHungUp(int fd) noexcept
{
    // POLLHUP and POLLERR are always reported. Unread data does not hide the end from this call, unlike from recv.
    pollfd entry{fd, POLLRDHUP, 0};
    return ::poll(&entry, 1, 0) > 0;
}

ConnectionFd ConnectStream(const std::string& path, milliseconds timeout)
{
    // 0 would mean no timeout at all (SO_SNDTIMEO), and a full backlog would block for ever.
    return ConnectWith(path, 0, std::max(timeout, milliseconds(1)));
}

ConnectionFd ConnectStreamNow(const std::string& path)
{
    return ConnectWith(path, SOCK_NONBLOCK, milliseconds(0));
}

void SetTimeouts(int fd, milliseconds receive, milliseconds send) noexcept
{
    const auto set = [fd](int option, milliseconds value) {
        timeval time{};
        time.tv_sec = value.count() / 1000;
        time.tv_usec = (value.count() % 1000) * 1000;
        ::setsockopt(fd, SOL_SOCKET, option, &time, sizeof(time));
    };
    set(SO_RCVTIMEO, receive);
    set(SO_SNDTIMEO, send);
}

PeerIdentity ReadPeerIdentity(int fd) noexcept
{
    ucred credentials{};
    socklen_t size = sizeof(credentials);
    // The kernel notes pid and uid at connect() and listen(): they stay those of that moment, also when the process has
    // died or changed its user.
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
        return {};
    }
    return {true, credentials.pid, credentials.uid};
}

UniqueFd OpenPidFd(int pid) noexcept
{
    // A system call of our own: the C library's header cannot be linked from C++ in Debian 12.
    return UniqueFd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
}

UniqueFd OpenPeerPidFd(int fd, int pid, bool& hasEnded) noexcept
{
    hasEnded = false;
    int pidFd = -1;
    socklen_t size = sizeof(pidFd);
    // Since Linux 6.5. Unlike pidfd_open it cannot get a later process with the same pid.
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERPIDFD, &pidFd, &size) == 0) {
        ::fcntl(pidFd, F_SETFD, FD_CLOEXEC);
    } else if (pid > 0) {  // An older kernel, or a process that was reaped.
        pidFd = OpenPidFd(pid).Release();
        hasEnded = pidFd < 0 && errno == ESRCH;
    }
    return UniqueFd(AboveStandardFds(pidFd));
}

}  // namespace TAVO::Transport
