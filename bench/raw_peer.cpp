// SPDX-License-Identifier: Apache-2.0
// Both ends of the raw traffic.
#include "raw_peer.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <thread>
#include <utility>

#include "platform.h"
#include "row.h"

namespace Bench {
namespace {

bool SendAll(int socket, const std::vector<uint8_t>& bytes)
{
    return ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

bool ReceiveAll(int socket, std::vector<uint8_t>& bytes)
{
    return ::recv(socket, bytes.data(), bytes.size(), MSG_WAITALL) == static_cast<ssize_t>(bytes.size());
}

void Answer(int socket, const RawTraffic& traffic)
{
    std::vector<uint8_t> request(traffic.requestBytes);
    for (int count = 1; ReceiveAll(socket, request); ++count) {
        if (count % traffic.requestsPerReply == 0 && !SendAll(socket, traffic.reply)) {
            return;
        }
    }
}

}  // namespace

RawPeer::RawPeer(int processor, RawTraffic traffic) : traffic_(std::move(traffic))
{
    std::vector<int> peers;
    for (int i = 0; i < traffic_.connections; ++i) {
        int pair[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
            GiveUp("cannot make a socket pair");
        }
        connections_.push_back(
            {pair[0], std::vector<uint8_t>(traffic_.requestBytes), std::vector<uint8_t>(traffic_.reply.size())});
        peers.push_back(pair[1]);
    }
    process_ = ::fork();
    if (process_ == 0) {
        Pin(processor);
        std::vector<std::thread> threads;
        for (size_t i = 0; i < peers.size(); ++i) {
            ::close(connections_[i].socket);
            threads.emplace_back(Answer, peers[i], std::cref(traffic_));
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        ::_exit(0);
    }
    for (const int peer : peers) {
        ::close(peer);
    }
}

RawPeer::~RawPeer()
{
    for (const Connection& connection : connections_) {
        ::close(connection.socket);
    }
    ::waitpid(process_, nullptr, 0);
}

void RawPeer::Send(int connection)
{
    const Connection& used = connections_[static_cast<size_t>(connection)];
    if (!SendAll(used.socket, used.request)) {
        GiveUp("the raw peer is gone");
    }
}

const uint8_t* RawPeer::Receive(int connection)
{
    Connection& used = connections_[static_cast<size_t>(connection)];
    if (!ReceiveAll(used.socket, used.reply)) {
        GiveUp("the raw peer is gone");
    }
    return used.reply.data();
}

}  // namespace Bench
