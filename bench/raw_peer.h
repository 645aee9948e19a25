// SPDX-License-Identifier: Apache-2.0
// The least that two processes can do: blocking send and receive on stream pairs.
#ifndef VELTRA_BENCH_RAW_PEER_H
#define VELTRA_BENCH_RAW_PEER_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Bench {

struct RawTraffic {
    size_t requestBytes;
    std::vector<uint8_t> reply;
    int requestsPerReply = 1;
    int connections = 1;
};

// A process of its own with a thread for each connection, which reads request by request and replies. Made before the
// platform is first used. One thread at a time for each connection; ends the program if the process has ended.
class RawPeer {
public:
    RawPeer(int processor, RawTraffic traffic);
    ~RawPeer();
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    // One request.
    void Send(int connection = 0);
    // One whole reply, valid until the next.
    const uint8_t* Receive(int connection = 0);
    // One round trip; a request a reply.
    void Call(int connection = 0)
    {
        Send(connection);
        Receive(connection);
    }

private:
    struct Connection {
        int socket = -1;
        std::vector<uint8_t> request;
        std::vector<uint8_t> reply;
    };

    const RawTraffic traffic_;
    std::vector<Connection> connections_;
    pid_t process_ = 0;
};

}  // namespace Bench

#endif
