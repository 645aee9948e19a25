// SPDX-License-Identifier: Apache-2.0
// Which process's request a thread handles.
#ifndef TAVO_TRANSPORT_CALLING_PEER_SCOPE_H
#define TAVO_TRANSPORT_CALLING_PEER_SCOPE_H

#include "tavo/calling_peer.h"

namespace TAVO::Transport {

// Makes `peer` the calling peer of this thread for one request.
class CallingPeerScope {
public:
    explicit CallingPeerScope(const CallingPeer& peer) noexcept;
    ~CallingPeerScope();
    CallingPeerScope(const CallingPeerScope&) = delete;
    CallingPeerScope& operator=(const CallingPeerScope&) = delete;

    static const CallingPeer* Current() noexcept;

private:
    const CallingPeer peer_;
    const CallingPeerScope* const outer_;
};

}  // namespace TAVO::Transport

#endif
