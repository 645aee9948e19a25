// SPDX-License-Identifier: Apache-2.0
// The platform's own threads: what they are for, and how they are started.
#ifndef TAVO_TRANSPORT_THREADS_H
#define TAVO_TRANSPORT_THREADS_H

#include <functional>

#include "tavo/calling_peer.h"

namespace TAVO::Transport {

enum class ThreadRole { OTHER, WORKER, CONTROL, DELIVERY };

ThreadRole CurrentRole() noexcept;

// Starts a detached thread; false when the system has no thread left. It blocks all signals except those that a fault of
// its own raises (SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS), so that the host's crash handler runs for a crash in a
// callback. It has the scheduling policy, nice value and processors of the process, that is of its main thread, and not
// those of the calling thread, as far as the kernel permits the change.
bool StartThread(ThreadRole role, const char* name, std::function<void()> body) noexcept;

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

// A warning about what a peer or the system did, at most ten lines a second in the process.
void WarnLimited(const char* what, const char* detail) noexcept;

}  // namespace TAVO::Transport

#endif
