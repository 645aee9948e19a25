// SPDX-License-Identifier: Apache-2.0
// Sends for the object it stands for, and tells recipients of its death.
#include "transport/proxy_object.h"

#include <algorithm>
#include <utility>

#include "base/forked_child.h"
#include "base/warn_limited.h"
#include "transport/core.h"
#include "transport/outgoing_call.h"

namespace TAVO::Transport {

ProxyObject::ProxyObject(std::shared_ptr<Session> session, uint64_t serial, std::u16string descriptor, Life life)
    : session_(std::move(session)), serial_(serial), descriptor_(std::move(descriptor)), life_(life)
{
}

ProxyObject::~ProxyObject() = default;

int ProxyObject::SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option)
{
    if (InForkedChild()) {
        return IPC_UNAVAILABLE;
    }
    const Life life = GetLife();
    // A one-way request that waits for nothing need not know the time.
    const bool waits = !option.IsOneWay() || life != Life::ALIVE || session_->GetState() != Session::State::UP;
    const Deadline deadline =
        waits ? Clock::now() + std::chrono::seconds(std::max(option.GetWaitTime(), 1)) : Deadline();
    if (option.IsOneWay()) {
        const int status = Ready(deadline);
        return status != IPC_OK
                   ? status
                   : session_->SendOneWay(ConnectionKind::ONE_WAY_LANE, serial_, code, data, deadline, lastOneWay);
    }
    if (life == Life::DEAD) {
        return IPC_DEAD_OBJECT;
    }
    const OutgoingCall outgoing;
    if (!outgoing.IsAllowed()) {
        return IPC_NO_RESOURCES;
    }
    const bool isManager = serial_ == 0;
    if (isManager && session_->IsSuspect()) {
        return IPC_TIMED_OUT;
    }
    const FrameKind kind = life == Life::PENDING ? FrameKind::FIRST_REQUEST : FrameKind::REQUEST;
    const int status = session_->Call(kind, serial_, code, data, reply, deadline);
    if (isManager && status == IPC_TIMED_OUT) {
        session_->SuspectPeer();
    }
    return status;
}

int ProxyObject::SendNotice(uint32_t code, MessageParcel& data)
{
    if (InForkedChild()) {
        return IPC_UNAVAILABLE;
    }
    const Deadline now = Clock::now();  // has passed: whoever sends notices has others to tell
    if (const int status = Ready(now); status != IPC_OK) {
        return status;
    }
    return session_->SendOneWay(ConnectionKind::NOTICE_LANE, serial_, code, data, now, lastOneWay);
}

int ProxyObject::Ready(Deadline deadline)
{
    if (GetLife() == Life::PENDING) {
        const OutgoingCall outgoing;
        if (!outgoing.IsAllowed()) {
            return IPC_NO_RESOURCES;
        }
        session_->WaitSettled(*this, deadline);
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
    // The session first knows: whoever was woken by its end must not be given its objects as living ones.
    return !InForkedChild() && GetLife() != Life::DEAD && session_->GetState() != Session::State::DEAD;
}

bool ProxyObject::AddDeathRecipient(const sptr<DeathRecipient>& recipient)
{
    if (recipient == nullptr || InForkedChild()) {
        return false;
    }
    MutexLock lock(mutex_);
    if (!IsAlive()) {
        return false;
    }
    recipients_.push_back(recipient);
    return true;
}

bool ProxyObject::RemoveDeathRecipient(const sptr<DeathRecipient>& recipient)
{
    if (InForkedChild()) {
        return false;
    }
    sptr<DeathRecipient> removed;  // its last reference may go: after the lock
    MutexLock lock(mutex_);
    const auto found = std::find(recipients_.begin(), recipients_.end(), recipient);
    if (found == recipients_.end()) {
        return false;
    }
    removed = std::move(*found);
    recipients_.erase(found);
    lock.Unlock();
    return true;
}

void ProxyObject::MarkAlive() noexcept
{
    Life expected = Life::PENDING;
    life_.compare_exchange_strong(expected, Life::ALIVE);
}

void ProxyObject::MarkDead() noexcept
{
    {
        MutexLock lock(mutex_);
        if (life_.exchange(Life::DEAD) == Life::DEAD || recipients_.empty()) {
            return;
        }
    }
    Core::Get().Delivery().PostDeath(sptr<ProxyObject>(this));
}

void ProxyObject::NotifyRecipients() noexcept
{
    const wptr<IRemoteObject> weak(this);
    for (;;) {
        sptr<DeathRecipient> recipient;  // taken one by one: a removal before its turn is honoured
        {
            MutexLock lock(mutex_);  // NOLINT(clang-analyzer-core.NonNullParamChecker): `this` is never null
            if (recipients_.empty()) {
                return;
            }
            recipient = std::move(recipients_.front());  // NOLINT(clang-analyzer-core.NonNullParamChecker): not empty
            recipients_.erase(recipients_.begin());
        }
        try {
            recipient->OnRemoteDied(weak);
        } catch (...) {
            WarnLimited("a death recipient ended in an exception", "the others are notified all the same");
        }
    }
}

void ProxyObject::OnLastStrongRef() const noexcept
{
    if (InForkedChild()) {
        return;  // Deliberate: leaked. Any lock may be held for ever here, and the counts are the parent's.
    }
    session_->Forget(const_cast<ProxyObject*>(this), serial_);
    IRemoteObject::OnLastStrongRef();
}

}  // namespace TAVO::Transport
