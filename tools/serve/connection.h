// SPDX-License-Identifier: Apache-2.0
// One connection of a peer that is not trusted: one request, with a limit for its time and its size.
#ifndef VELTRA_SERVE_CONNECTION_H
#define VELTRA_SERVE_CONNECTION_H

#include <httplib.h>

#include <array>
#include <atomic>
#include <chrono>
#include <string>

namespace VeltraServe {

// Used by the thread that serves the connection; IsReading by any.
class Connection final : public httplib::Stream {
public:
    static constexpr size_t MAX_REQUEST_BYTES = size_t{64} << 10;  // head and body
    static constexpr std::chrono::seconds REQUEST_TIME{10};        // until all of it has arrived
    static constexpr std::chrono::seconds WRITE_TIME{5};           // until the peer has taken one piece of the response

    // Owns the socket.
    explicit Connection(int fd);
    ~Connection() override;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Of a handler: the request that this thread serves has been read to its end. Writing implies it.
    static void EndReading();
    // The request has not been read to its end, and nothing of a response was sent.
    bool IsReading() const { return isReading_.load(std::memory_order_relaxed); }
    // Ends what the thread of the connection waits for. Any thread, while the connection lives.
    void Interrupt() const;
    // Lets the peer read the response although not all of its request was read.
    void Finish();

    bool is_readable() const override;
    bool is_writable() const override;
    ssize_t read(char* data, size_t sizeBytes) override;
    ssize_t write(const char* data, size_t sizeBytes) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    int socket() const override { return fd_; }

private:
    using Clock = std::chrono::steady_clock;

    bool WaitFor(short events, Clock::time_point deadline) const;

    const int fd_;
    const Clock::time_point requestDeadline_ = Clock::now() + REQUEST_TIME;
    std::atomic<bool> isReading_{true};
    size_t receivedBytes_ = 0;
    std::array<char, 4096> buffer_;
    size_t begin_ = 0;  // of what is left in the buffer
    size_t end_ = 0;
};

}  // namespace VeltraServe

#endif
