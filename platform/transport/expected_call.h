// SPDX-License-Identifier: Apache-2.0
// A thread that is about to make a call has the worker woken up that will serve it, while it makes the request.
#ifndef TAVO_TRANSPORT_EXPECTED_CALL_H
#define TAVO_TRANSPORT_EXPECTED_CALL_H

#include <memory>

#include "transport/call_lane.h"

namespace TAVO::Transport {

// The calling thread has made a call through `lane`, which has a page.
void RememberCall(const std::shared_ptr<CallLane>& lane) noexcept;

// It is about to make another one, mostly by the same lane: wakes up the worker that waits at the page, if the last call
// was some time ago. Not in a forked child.
void AlertLastLane() noexcept;

}  // namespace TAVO::Transport

#endif
