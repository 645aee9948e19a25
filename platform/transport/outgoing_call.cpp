// SPDX-License-Identifier: Apache-2.0
#include "transport/outgoing_call.h"

#include <functional>
#include <utility>

#include "os/threads.h"
#include "transport/core.h"
#include "transport/object_gate.h"

namespace TAVO::Transport {
namespace {

thread_local ObjectGate* t_gate = nullptr;  // that the request in hand has entered
thread_local bool t_isOutgoing = false;     // inside an OutgoingCall

}  // namespace

HandlerScope::HandlerScope(ObjectGate& gate) noexcept : isWorker_(CurrentRole() == ThreadRole::WORKER)
{
    t_gate = &gate;
    if (isWorker_) {
        Core::Get().Workers().BeginHandler();
    }
}

HandlerScope::~HandlerScope()
{
    t_gate = nullptr;
    if (isWorker_) {
        Core::Get().Workers().EndHandler();
    }
}

OutgoingCall::OutgoingCall()
    : isNested_(std::exchange(t_isOutgoing, true)),
      isWorker_(!isNested_ && CurrentRole() == ThreadRole::WORKER),
      isAllowed_(!isWorker_ || Core::Get().Workers().BeginOutgoing())
{
    if (!isNested_ && isAllowed_ && t_gate != nullptr) {
        if (std::function<void()> next = t_gate->StepOut(); next != nullptr) {
            Core::Get().Workers().Post(std::move(next));
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
    if (isAllowed_ && isWorker_) {
        Core::Get().Workers().EndOutgoing();
    }
}

}  // namespace TAVO::Transport
