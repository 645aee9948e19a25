// SPDX-License-Identifier: Apache-2.0
// The raw round trip.
#include "raw_peer.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "platform.h"

namespace Bench {
namespace {

constexpr size_t BUFFER_BYTES = 4096;

// Messages are far below what a socket takes at once, so each arrives whole.
void Echo(int socket, size_t replyBytes)
{
    char buffer[BUFFER_BYTES] = {};
    while (::recv(socket, buffer, sizeof(buffer), 0) > 0 && ::send(socket, buffer, replyBytes, MSG_NOSIGNAL) > 0) {}
}

}  // namespace

RawPeer::RawPeer(int processor, size_t requestBytes, size_t replyBytes)
    : requestBytes_(requestBytes), replyBytes_(replyBytes)
{
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
        std::perror("bench: socketpair");
        std::exit(1);
    }
    process_ = ::fork();
    if (process_ == 0) {
        ::close(pair[0]);
        Pin(processor);
        Echo(pair[1], replyBytes_);
        ::_exit(0);
    }
    ::close(pair[1]);
    socket_ = pair[0];
}

RawPeer::~RawPeer()
{
    ::close(socket_);
    ::waitpid(process_, nullptr, 0);
}

void RawPeer::Call()
{
    char buffer[BUFFER_BYTES] = {};
    if (::send(socket_, buffer, requestBytes_, MSG_NOSIGNAL) != static_cast<ssize_t>(requestBytes_) ||
        ::recv(socket_, buffer, sizeof(buffer), 0) != static_cast<ssize_t>(replyBytes_)) {
        std::fprintf(stderr, "bench: the raw peer is gone\n");
        std::exit(1);
    }
}

}  // namespace Bench
