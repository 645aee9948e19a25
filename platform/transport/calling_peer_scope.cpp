// SPDX-License-Identifier: Apache-2.0
#include "transport/calling_peer_scope.h"

namespace TAVO::Transport {
namespace {

thread_local const CallingPeerScope* t_callingPeer = nullptr;  // the innermost one of the thread

}  // namespace

CallingPeerScope::CallingPeerScope(const CallingPeer& peer) noexcept : peer_(peer), outer_(t_callingPeer)
{
    t_callingPeer = this;
}

CallingPeerScope::~CallingPeerScope()
{
    t_callingPeer = outer_;
}

const CallingPeer* CallingPeerScope::Current() noexcept
{
    return t_callingPeer != nullptr ? &t_callingPeer->peer_ : nullptr;
}

}  // namespace TAVO::Transport
