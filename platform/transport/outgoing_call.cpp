// SPDX-License-Identifier: Apache-2.0
// Both scopes work on thread-local state: a handler notes the gate that its request entered, and a call from inside
// that handler, on the same thread, finds it there. On the way out the call first takes itself off the pool's count,
// which may start another worker, and then leaves its place in the gate, whose next request is posted to the workers.
// On the way back it enters the gate again without waiting, even above the limit: waiting there could close a circle of
// calls. Where the pool allows no other thread, nothing was changed and the call must fail.
#include "transport/outgoing_call.h"

#include <functional>
#include <utility>

#include "transport/object_gate.h"
#include "transport/worker_pool.h"

namespace TAVO::Transport {
namespace {

thread_local ObjectGate* t_gate = nullptr;     // that the request in hand has entered
thread_local WorkerPool* t_workers = nullptr;  // that run the requests which wait in it
thread_local bool t_isOutgoing = false;        // inside an OutgoingCall

}  // namespace

HandlerScope::HandlerScope(ObjectGate& gate, WorkerPool& workers) noexcept : pool_(WorkerPool::OfThisThread())
{
    t_gate = &gate;
    t_workers = &workers;
    if (pool_ != nullptr) {
        pool_->BeginHandler();
    }
}

HandlerScope::~HandlerScope()
{
    t_gate = nullptr;
    if (pool_ != nullptr) {
        pool_->EndHandler();
    }
}

OutgoingCall::OutgoingCall()
    : isNested_(std::exchange(t_isOutgoing, true)),
      pool_(isNested_ ? nullptr : WorkerPool::OfThisThread()),
      // A thread of the game is not part of the pool and is always allowed.
      isAllowed_(pool_ == nullptr || pool_->BeginOutgoing())
{
    if (!isNested_ && isAllowed_ && t_gate != nullptr) {
        // Without this, 12 requests of one object that call back into it would fill its gate, and each would wait for a
        // request that cannot enter.
        if (std::function<void()> next = t_gate->StepOut(); next != nullptr) {
            t_workers->Post(std::move(next));
        }
    }
}

OutgoingCall::~OutgoingCall()
{
    if (isNested_) {
        return;
    }
    t_isOutgoing = false;
    if (isAllowed_ && t_gate != nullptr) {
        t_gate->StepBack();
    }
    if (isAllowed_ && pool_ != nullptr) {
        pool_->EndOutgoing();
    }
}

}  // namespace TAVO::Transport
