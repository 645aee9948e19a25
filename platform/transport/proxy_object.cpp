// SPDX-License-Identifier: Apache-2.0
// Every request checks first whether it can be sent at all: not in a forked child, not to a dead object, not to a
// manager that let the last call time out. While a worker waits for a reply, the pool may start another in its place.
#include "transport/proxy_object.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <utility>

#include "base/forked_child.h"
#include "transport/outgoing_call.h"
#include "transport/session_host.h"

namespace TAVO::Transport {

ProxyObject::ProxyObject(std::shared_ptr<Session> session, uint64_t serial, std::u16string descriptor, Life life)
    : PeerObject(session->Peer(), serial, std::move(descriptor), life), session_(std::move(session))
{
}

ProxyObject::~ProxyObject() = default;

int ProxyObject::SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option)
try {
    // First of all: in a forked child any lock below may be held for ever by a thread that does not exist there.
    if (InForkedChild()) {
        return IPC_UNAVAILABLE;
    }
    const Life life = GetLife();
    // A one-way request that waits for nothing need not know the time.
    const bool waits = !option.IsOneWay() || life != Life::ALIVE || session_->GetState() != Session::State::ESTABLISHED;
    const Deadline deadline =
        waits ? Clock::now() + std::chrono::seconds(std::max(option.GetWaitTime(), 1)) : Deadline();
    if (!option.IsOneWay()) {
        return Call(life, code, data, reply, deadline);
    }
    // A one-way lane has no "first request": the receiver could not report that the object is unknown. So a pending
    // object is waited for.
    const int status = WaitReady(deadline);
    return status != IPC_OK
               ? status
               : session_->SendOneWay(ConnectionKind::ONE_WAY_LANE, Serial(), code, data, deadline, lastOneWay_);
} catch (const std::bad_alloc&) {
    return IPC_NO_RESOURCES;
}

int ProxyObject::Call(Life life, uint32_t code, MessageParcel& data, MessageParcel& reply, Deadline deadline)
{
    if (life == Life::DEAD) {
        return IPC_DEAD_OBJECT;
    }
    const OutgoingCall outgoing;
    if (!outgoing.IsAllowed()) {
        return IPC_NO_RESOURCES;
    }
    const bool isManager = Serial() == 0;
    // So a hung manager costs a game 2 s once, not 2 s for each call of each frame.
    if (isManager && session_->IsSuspect()) {
        return IPC_TIMED_OUT;
    }
    // The owner may read this request before the ACQUIRE, which travels on another connection.
    const FrameKind kind = life == Life::PENDING ? FrameKind::FIRST_REQUEST : FrameKind::REQUEST;
    const int status = session_->Call({kind, Serial(), code, data, reply, deadline});
    if (isManager && status == IPC_TIMED_OUT) {
        session_->Suspect();
    }
    return status;
}

int ProxyObject::SendNotice(uint32_t code, MessageParcel& data)
{
    if (InForkedChild()) {
        return IPC_UNAVAILABLE;
    }
    const Deadline now = Clock::now();  // Has passed: a notice never waits, its sender has others to notify.
    if (const int status = WaitReady(now); status != IPC_OK) {
        return status;
    }
    return session_->SendOneWay(ConnectionKind::NOTICE_LANE, Serial(), code, data, now, lastOneWay_);
}

int ProxyObject::WaitReady(Deadline deadline)
{
    if (GetLife() == Life::PENDING) {
        const OutgoingCall outgoing;
        if (!outgoing.IsAllowed()) {
            return IPC_NO_RESOURCES;
        }
        // Counted as an outgoing call: the pool may start another worker while this one waits.
        session_->Proxies().WaitSettled(*this, deadline);
    }
    switch (GetLife()) {
        case Life::ALIVE:
            return IPC_OK;
        case Life::PENDING:
            return IPC_TIMED_OUT;
        default:
            return IPC_DEAD_OBJECT;
    }
}

bool ProxyObject::IsAlive() const
{
    // The session is dead before its objects are: a caller that its end has woken up must not find them alive.
    return !InForkedChild() && GetLife() != Life::DEAD && session_->GetState() != Session::State::DEAD;
}

void ProxyObject::PostDeath() noexcept
{
    session_->Host().PostDeath(sptr<PeerObject>(this));
}

void ProxyObject::OnLastStrongRef() const noexcept
{
    if (InForkedChild()) {
        return;  // Deliberate: leaked. Any lock may be held for ever here, and the counts are the parent's.
    }
    session_->Proxies().Forget(const_cast<ProxyObject*>(this), lastOneWay_);
    IRemoteObject::OnLastStrongRef();
}

}  // namespace TAVO::Transport
