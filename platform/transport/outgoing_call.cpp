// SPDX-License-Identifier: Apache-2.0
#include "transport/outgoing_call.h"

#include <functional>
#include <utility>

#include "transport/core.h"
#include "transport/object_gate.h"
#include "transport/threads.h"

namespace TAVO::Transport {
namespace {

thread_local ObjectGate* t_gate = nullptr;  // that the request in hand has entered

}  // namespace

HandlerScope::HandlerScope(ObjectGate& gate) noexcept
{
    t_gate = &gate;
}

HandlerScope::~HandlerScope()
{
    t_gate = nullptr;
}

OutgoingCall::OutgoingCall()
    : isWorker_(CurrentRole() == ThreadRole::WORKER), isAllowed_(!isWorker_ || Core::Get().Workers().BeginOutgoing())
{
    if (isAllowed_ && t_gate != nullptr) {
        if (std::function<void()> next = t_gate->StepOut(); next != nullptr) {
            Core::Get().Workers().Post(std::move(next));
        }
    }
}

OutgoingCall::~OutgoingCall()
{
    if (isAllowed_ && t_gate != nullptr) {
        t_gate->StepBack();
    }
    if (isAllowed_ && isWorker_) {
        Core::Get().Workers().EndOutgoing();
    }
}

}  // namespace TAVO::Transport
