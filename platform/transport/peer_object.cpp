// SPDX-License-Identifier: Apache-2.0
// An object becomes dead once, under the lock that guards its recipients. So a recipient is either registered before
// the death, and notified, or refused. The notice itself runs later, on the delivery thread, without any lock.
#include "transport/peer_object.h"

#include <algorithm>
#include <utility>

#include "base/forked_child.h"
#include "base/warn_limited.h"

namespace TAVO::Transport {

PeerObject::PeerObject(const Instance& owner, uint64_t serial, std::u16string descriptor, Life life)
    : owner_(owner), serial_(serial), descriptor_(std::move(descriptor)), life_(life)
{
}

PeerObject::~PeerObject() = default;

bool PeerObject::AddDeathRecipient(const sptr<DeathRecipient>& recipient)
{
    if (recipient == nullptr || InForkedChild()) {
        return false;
    }
    // The object keeps the anchor, so that NotifyRecipients allocates nothing.
    const wptr<IRemoteObject> anchor(this);
    MutexLock lock(mutex_);
    // Under the lock that MarkDead takes: a recipient that is added before it is notified, one after it is refused.
    if (!IsAlive()) {
        return false;
    }
    recipients_.push_back(recipient);
    return true;
}

bool PeerObject::RemoveDeathRecipient(const sptr<DeathRecipient>& recipient)
{
    if (InForkedChild()) {
        return false;
    }
    sptr<DeathRecipient> removed;  // possibly its last reference: released after the lock
    MutexLock lock(mutex_);
    // One registration, also if the same recipient is registered twice. Deliberate: a notice that has already begun is
    // not awaited. The caller may hold a lock that the recipient needs.
    const auto found = std::find(recipients_.begin(), recipients_.end(), recipient);
    if (found == recipients_.end()) {
        return false;
    }
    removed = std::move(*found);
    recipients_.erase(found);
    lock.Unlock();
    return true;
}

void PeerObject::MarkAlive() noexcept
{
    Life expected = Life::PENDING;
    life_.compare_exchange_strong(expected, Life::ALIVE);
}

void PeerObject::MarkDead() noexcept
{
    {
        MutexLock lock(mutex_);
        // An object without recipients needs no notice. None can be added any more, as the lock is held here.
        if (life_.exchange(Life::DEAD) == Life::DEAD || recipients_.empty()) {
            return;
        }
    }
    PostDeath();
}

void PeerObject::NotifyRecipients() noexcept
{
    // The delivery thread holds a strong reference to the object for the duration of this function.
    const wptr<IRemoteObject> weak(this);
    for (;;) {
        sptr<DeathRecipient> recipient;  // one at a time: a recipient may be removed before its turn
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

}  // namespace TAVO::Transport
