// SPDX-License-Identifier: Apache-2.0
// Descriptors that close themselves, and the few ways in which the transport touches a socket.
#ifndef TAVO_OS_FD_H
#define TAVO_OS_FD_H

#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace TAVO::Transport {

// Owns a descriptor.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) noexcept : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        Reset(std::exchange(other.fd_, -1));
        return *this;
    }
    ~UniqueFd() { Reset(); }

    int Get() const noexcept { return fd_; }
    bool IsOpen() const noexcept { return fd_ >= 0; }
    int Release() noexcept { return std::exchange(fd_, -1); }
    void Reset(int fd = -1) noexcept
    {
        if (fd_ >= 0) {
            ::close(fd_);
        }
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

// Owns one end of a connection. Closing shuts the connection down first: a forked child may hold the same socket for as
// long as it lives, and the peer would not see the end before that.
class ConnectionFd {
public:
    ConnectionFd() = default;
    explicit ConnectionFd(int fd) noexcept : fd_(fd) {}
    ConnectionFd(ConnectionFd&&) noexcept = default;
    ConnectionFd& operator=(ConnectionFd&& other) noexcept
    {
        Close();
        fd_ = std::move(other.fd_);
        return *this;
    }
    ~ConnectionFd() { Close(); }

    int Get() const noexcept { return fd_.Get(); }
    bool IsOpen() const noexcept { return fd_.IsOpen(); }
    // Ends the connection for both ends and all processes. Any thread, while the owner keeps it open.
    void ShutDown() const noexcept;
    void Close() noexcept
    {
        if (IsOpen()) {
            ShutDown();
            fd_.Reset();
        }
    }

private:
    UniqueFd fd_;
};

// Returns `fd`, or a copy of it above the three standard descriptors and closes the original. A host may have closed
// those, and what it then writes to its standard output must not end up in a socket. -1 stays -1, errno included.
// Close-on-exec.
int AboveStandardFds(int fd) noexcept;

using Deadline = std::chrono::steady_clock::time_point;

enum class IoStatus {
    OK,
    WOULD_BLOCK,  // nothing now (non-blocking), or the deadline passed
    CLOSED,       // end of file, reset, or any other error of the connection
};

// The outcome of an operation.
struct IoResult {
    IoStatus status = IoStatus::OK;
    size_t bytes = 0;  // moved, with any status
};

// Receives at least one byte. No room for control data is offered, so a descriptor that is sent is discarded.
IoResult ReceiveNow(int fd, void* buffer, size_t size) noexcept;
// Waits on a blocking socket at most as long as its receive time-out, once; WOULD_BLOCK afterwards.
IoResult ReceiveOnce(int fd, void* buffer, size_t size) noexcept;
// Waits until `deadline`. With `isFirst` it first waits in recv, by the socket's receive timeout, which was set for
// that deadline: this saves a poll on the usual path.
IoResult ReceiveUntil(int fd, void* buffer, size_t size, Deadline deadline, bool isFirst) noexcept;

// Copies the next `size` bytes, which stay there; false when fewer have come.
bool PeekNow(int fd, void* buffer, size_t size) noexcept;

// Sends all or as much as fits now.
IoResult SendNow(int fd, const void* buffer, size_t size) noexcept;
// Sends all, waiting until `deadline`.
IoResult SendUntil(int fd, const void* buffer, size_t size, Deadline deadline) noexcept;

// Waits for poll events until the deadline; false when it passed.
bool PollUntil(int fd, short events, Deadline deadline) noexcept;

// Whether the kernel says that the other end is closed or has stopped sending.
bool HasHungUp(int fd) noexcept;

// A stream socket connected to `path` (close-on-exec, blocking, with the given time-outs). On failure not open, errno
// set; EACCES when the socket belongs to another user. `path` must fit into an address.
ConnectionFd ConnectStream(const std::string& path, std::chrono::milliseconds timeout);
// The same without ever waiting: errno EAGAIN when the listener's queue is full.
ConnectionFd ConnectStreamNow(const std::string& path);
void SetTimeouts(int fd, std::chrono::milliseconds receive, std::chrono::milliseconds send) noexcept;

struct PeerIdentity {
    bool known = false;
    int pid = 0;
    unsigned uid = 0;
};
PeerIdentity ReadPeerIdentity(int fd) noexcept;
// A descriptor of a process, readable once it has ended; not open, with errno set, when there is no such process.
// Close-on-exec.
UniqueFd OpenPidFd(int pid) noexcept;
// A descriptor of the peer's process, readable once that has ended; not open where the kernel has none to give.
// `hasEnded` becomes whether the process is known to have ended already.
UniqueFd OpenPeerPidFd(int fd, int pid, bool& hasEnded) noexcept;

}  // namespace TAVO::Transport

#endif
