// SPDX-License-Identifier: Apache-2.0
// The least that two processes can do: blocking send and receive on a stream pair.
#ifndef VELTRA_BENCH_RAW_PEER_H
#define VELTRA_BENCH_RAW_PEER_H

#include <sys/types.h>

#include <cstddef>

namespace Bench {

// A process of its own that answers `replyBytes` to each `requestBytes`. Made before the platform is first used.
class RawPeer {
public:
    RawPeer(int processor, size_t requestBytes, size_t replyBytes);
    ~RawPeer();
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    // One round trip.
    void Call();

private:
    const size_t requestBytes_;
    const size_t replyBytes_;
    int socket_ = -1;
    pid_t process_ = 0;
};

}  // namespace Bench

#endif
