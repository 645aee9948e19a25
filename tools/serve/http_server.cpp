// SPDX-License-Identifier: Apache-2.0
// The thread that accepts connections gives each to a thread of its own, up to a limit. At the limit, the connection
// whose request has been incomplete for longest is closed to make room: of a thousand peers that send nothing each
// closes another one, and a peer that sends its request at once is served. If no connection can be closed, the new one
// is refused with status 503 without a thread and without waiting. Each connection carries one request, so bytes that a
// peer sends after a refused request are never read as another request.
#include "http_server.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
#include <system_error>
#include <thread>

#include "exit_code.h"

namespace VeltraServe {

namespace {

constexpr int BACKLOG = 128;
constexpr std::chrono::seconds ROOM_TIME{1};
constexpr char BUSY[] =
    "HTTP/1.1 503 Service Unavailable\r\nContent-Length: 0\r\nRetry-After: 1\r\nConnection: close\r\n\r\n";

// Set while the accepting thread disposes of a connection for which there is no room.
thread_local bool isRefusing = false;

class ConnectionThreads final : public httplib::TaskQueue {
public:
    explicit ConnectionThreads(ConnectionTable& connections) : connections_(connections) {}

    // Of the accepting thread.
    void enqueue(std::function<void()> serve) override
    {
        if (!TryEnqueue(serve)) {
            isRefusing = true;
            serve();
            isRefusing = false;
        }
    }

    // Deliberate: the threads end with the process, which does not wait for peers.
    void shutdown() override {}

private:
    bool TryEnqueue(const std::function<void()>& serve)
    {
        std::unique_lock lock(mutex_);
        // An idle thread has the connection at once; waiting connections are counted against idle threads, since a
        // thread that was notified has not run yet.
        if (waiting_.size() >= idle_ && !StartThread() && !MakeRoom(lock)) {
            return false;
        }
        waiting_.push_back(serve);
        changed_.notify_one();
        return true;
    }

    // Under mutex_. As many connections wait at most as were interrupted, which end at once.
    bool MakeRoom(std::unique_lock<std::mutex>& lock)
    {
        const auto deadline = std::chrono::steady_clock::now() + ROOM_TIME;
        while (!connections_.InterruptSlowest()) {
            if (waiting_.empty() || taken_.wait_until(lock, deadline) == std::cv_status::timeout) {
                return false;
            }
        }
        return true;
    }

    // Under mutex_.
    bool StartThread()
    {
        // Threads are never ended: at the limit their stacks are reserved, and hardly any of that memory is in use.
        if (threads_ >= HttpServer::MAX_CONNECTIONS) {
            return false;
        }
        try {
            std::thread([this] { Run(); }).detach();
        } catch (const std::system_error&) {
            return false;
        }
        ++threads_;
        return true;
    }

    void Run()
    {
        pthread_setname_np(pthread_self(), "serve-http");
        for (;;) {
            std::function<void()> serve;
            {
                std::unique_lock lock(mutex_);
                ++idle_;
                changed_.wait(lock, [this] { return !waiting_.empty(); });
                --idle_;
                serve = std::move(waiting_.front());
                waiting_.pop_front();
            }
            taken_.notify_one();
            serve();
        }
    }

    ConnectionTable& connections_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::condition_variable taken_;              // a waiting connection has a thread now
    std::deque<std::function<void()>> waiting_;  // under mutex_, as is all that follows
    size_t threads_ = 0;
    size_t idle_ = 0;
};

}  // namespace

void ConnectionTable::Enter(const Connection& connection)
{
    const std::lock_guard lock(mutex_);
    entries_.push_back({&connection, false});
}

void ConnectionTable::Leave(const Connection& connection)
{
    const std::lock_guard lock(mutex_);
    std::erase_if(entries_, [&connection](const Entry& entry) { return entry.connection == &connection; });
}

bool ConnectionTable::InterruptSlowest()
{
    const std::lock_guard lock(mutex_);
    const auto found = std::find_if(entries_.begin(), entries_.end(), [](const Entry& entry) {
        return !entry.isInterrupted && entry.connection->IsReading();
    });
    if (found == entries_.end()) {
        return false;
    }
    found->isInterrupted = true;
    found->connection->Interrupt();
    return true;
}

HttpServer::HttpServer()
{
    // The library deletes it at the end of its loop, which is the end of the process.
    new_task_queue = [this] { return new ConnectionThreads(connections_); };
    set_payload_max_length(Connection::MAX_REQUEST_BYTES);
    set_tcp_nodelay(true);
    // Deliberate: the library's own options let two servers share a port, and each gets some of the requests.
    set_socket_options([](int fd) {
        const int yes = 1;
        ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    });
}

void HttpServer::Bind(const std::string& host, int port)
{
    errno = 0;
    if (!bind_to_port(host, port)) {
        throw VeltraTool::ToolError(VeltraTool::EXIT_NO,
                                    "cannot listen on " + host + " port " + std::to_string(port) +
                                        (errno != 0 ? std::string(": ") + std::strerror(errno) : ""),
                                    "name another address with --listen HOST:PORT, or end the process that has it");
    }
    ::listen(svr_sock_, BACKLOG);  // the library's own backlog of 5 delays peers that come together
    ::fcntl(svr_sock_, F_SETFD, FD_CLOEXEC);
}

bool HttpServer::process_and_close_socket(int fd)
{
    Connection connection(fd);
    if (isRefusing) {
        return ::send(fd, BUSY, sizeof(BUSY) - 1, MSG_DONTWAIT | MSG_NOSIGNAL) > 0;
    }
    connections_.Enter(connection);
    bool isClosed = false;
    bool isDone = false;
    try {
        isDone = process_request(connection, true, isClosed, nullptr);
        connection.Finish();
    } catch (const std::exception&) {  // memory, or a request that the library cannot take: it ends here
    }
    connections_.Leave(connection);
    return isDone;
}

}  // namespace VeltraServe
