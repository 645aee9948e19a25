// SPDX-License-Identifier: Apache-2.0
// What every part of a session knows of it.
#ifndef TAVO_TRANSPORT_SESSION_CONTEXT_H
#define TAVO_TRANSPORT_SESSION_CONTEXT_H

#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "wire/wire.h"

namespace TAVO::Transport {

class Session;
class SessionHost;

enum class SessionState { CONNECTING, ESTABLISHED, DEAD };

// Written by the session only. Its parts read it and live as long as it.
struct SessionContext {
    SessionContext(SessionHost& ofHost, std::string ofPath, const Instance& ofPeer)
        : host(ofHost), path(std::move(ofPath)), peer(ofPeer)
    {
    }

    SessionState State() const noexcept { return state.load(std::memory_order_acquire); }

    SessionHost& host;
    const std::string path;  // where the peer listens, below the runtime directory
    Instance peer;           // zeros for the manager until the session is ESTABLISHED
    std::atomic<SessionState> state{SessionState::CONNECTING};
    std::weak_ptr<Session> session;  // the session itself, for those that must keep it alive
};

}  // namespace TAVO::Transport

#endif
