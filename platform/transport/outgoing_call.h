// SPDX-License-Identifier: Apache-2.0
// A handler that waits for the answer to a call of its own holds up nobody: another thread and another request may go
// on.
#ifndef TAVO_TRANSPORT_OUTGOING_CALL_H
#define TAVO_TRANSPORT_OUTGOING_CALL_H

namespace TAVO::Transport {

class ObjectGate;

// Around a handler whose request has entered the gate. A worker counts as busy until its end.
class HandlerScope {
public:
    explicit HandlerScope(ObjectGate& gate) noexcept;
    ~HandlerScope();
    HandlerScope(const HandlerScope&) = delete;
    HandlerScope& operator=(const HandlerScope&) = delete;

private:
    const bool isWorker_;
};

// Around the wait for an answer; within another one it does nothing. On a worker it makes room: the pool may start another thread in its place, and the
// object whose request is in hand may be called again, or calls that cross would wait for each other.
class OutgoingCall {
public:
    OutgoingCall();
    ~OutgoingCall();
    OutgoingCall(const OutgoingCall&) = delete;
    OutgoingCall& operator=(const OutgoingCall&) = delete;

    // False when no thread can be had for that: the call must fail.
    bool IsAllowed() const noexcept { return isAllowed_; }

private:
    const bool isNested_;
    const bool isWorker_;
    const bool isAllowed_;
};

}  // namespace TAVO::Transport

#endif
