// SPDX-License-Identifier: Apache-2.0
// While a handler waits for the answer to a call of its own, another worker and another request may run.
#ifndef TAVO_TRANSPORT_OUTGOING_CALL_H
#define TAVO_TRANSPORT_OUTGOING_CALL_H

namespace TAVO::Transport {

class ObjectGate;
class WorkerPool;

// Around a handler whose request has entered the gate. A worker counts as busy until its end.
class HandlerScope {
public:
    HandlerScope(ObjectGate& gate, WorkerPool& workers) noexcept;
    ~HandlerScope();
    HandlerScope(const HandlerScope&) = delete;
    HandlerScope& operator=(const HandlerScope&) = delete;

private:
    WorkerPool* const pool_;  // of this thread; null outside a worker
};

// Around the wait for an answer; within another one it does nothing. On a worker it makes room: the pool may start
// another thread in its place, and the object whose request is being handled may be called again. Otherwise calls that
// cross would wait for each other.
class OutgoingCall {
public:
    OutgoingCall();
    ~OutgoingCall();
    OutgoingCall(const OutgoingCall&) = delete;
    OutgoingCall& operator=(const OutgoingCall&) = delete;

    // False if the pool allows no other thread: the call must fail.
    bool IsAllowed() const noexcept { return isAllowed_; }

private:
    const bool isNested_;
    WorkerPool* const pool_;  // of this thread; null outside a worker, or nested
    const bool isAllowed_;
};

}  // namespace TAVO::Transport

#endif
