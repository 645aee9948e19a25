// SPDX-License-Identifier: Apache-2.0
// The HTTP server: a limited number of connections, one request each.
#ifndef VELTRA_SERVE_HTTP_SERVER_H
#define VELTRA_SERVE_HTTP_SERVER_H

#include <httplib.h>

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include "connection.h"

namespace VeltraServe {

// The connections that are served now.
class ConnectionTable {
public:
    void Enter(const Connection& connection);
    void Leave(const Connection& connection);
    // Ends the connection that has kept its request incomplete for longest. False if there is none.
    bool InterruptSlowest();

private:
    struct Entry {
        const Connection* connection;
        bool isInterrupted;
    };
    std::mutex mutex_;
    std::vector<Entry> entries_;  // under mutex_; oldest first
};

// Serves until the process ends. Each connection has a thread of its own while it lasts.
class HttpServer final : public httplib::Server {
public:
    static constexpr size_t MAX_CONNECTIONS = 64;

    HttpServer();

    // ToolError when the address cannot be used.
    void Bind(const std::string& host, int port);

private:
    bool process_and_close_socket(int fd) override;

    ConnectionTable connections_;
};

}  // namespace VeltraServe

#endif
