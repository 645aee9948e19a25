// SPDX-License-Identifier: Apache-2.0
// An entry is stored before its death recipient is added, because the process may end in between and the notice must
// find the entry. The notice carries its recipient, and only the entry with the same recipient is removed: a late
// notice of a replaced subscription leaves the new one alone. Death recipients are added and removed without the mutex,
// since the platform may call back from there. Recipients hold a weak reference, so notices that are pending keep
// nothing alive.
#include "push/subscriptions.h"

#include <utility>

namespace TAVO::Veltra {

class Subscriptions::Recipient final : public IRemoteObject::DeathRecipient {
public:
    Recipient(const sptr<Subscriptions>& owner, Subject subject, uint64_t client)
        : owner_(owner), subject_(subject), client_(client)
    {
    }

    void OnRemoteDied(const wptr<IRemoteObject>&) override
    {
        if (const sptr<Subscriptions> owner = owner_.promote()) {
            owner->ForgetDead(subject_, client_, *this);
        }
    }

private:
    const wptr<Subscriptions> owner_;
    const Subject subject_;
    const uint64_t client_;
};

bool Subscriptions::Add(Subject subject, const Subscription& subscription, sptr<IRemoteObject>& replaced)
{
    const sptr<IRemoteObject::DeathRecipient> recipient(
        new Recipient(sptr<Subscriptions>(this), subject, subscription.client));
    Entry entry{subscription, recipient};
    {
        MutexLock lock(mutex_);
        std::swap(Of(subject)[subscription.client], entry);  // before the notice that it may cause
    }
    const bool isAlive = subscription.object->AddDeathRecipient(recipient);
    if (!isAlive) {
        ForgetDead(subject, subscription.client, static_cast<const Recipient&>(*recipient));
    }
    if (entry.recipient != nullptr) {
        // The replaced subscription's. Its notice may be running already and then finds another recipient in the entry.
        entry.subscription.object->RemoveDeathRecipient(entry.recipient);
    }
    replaced = entry.subscription.object;
    return isAlive;
}

sptr<IRemoteObject> Subscriptions::Remove(Subject subject, uint64_t client)
{
    Entry entry;
    {
        MutexLock lock(mutex_);
        const auto known = Of(subject).find(client);
        if (known == Of(subject).end()) {
            return nullptr;
        }
        entry = std::move(known->second);
        Of(subject).erase(known);
    }
    entry.subscription.object->RemoveDeathRecipient(entry.recipient);
    return entry.subscription.object;
}

std::vector<Subscription> Subscriptions::All(Subject subject) const
{
    MutexLock lock(mutex_);
    std::vector<Subscription> all;
    for (const auto& [client, entry] : entries_[static_cast<size_t>(subject)]) {
        all.push_back(entry.subscription);
    }
    return all;
}

void Subscriptions::Advance(Subject subject, const Subscription& subscription)
{
    MutexLock lock(mutex_);
    const auto known = Of(subject).find(subscription.client);
    // The object identifies the subscription: a new one has another.
    if (known != Of(subject).end() && known->second.subscription.object == subscription.object) {
        known->second.subscription = subscription;
    }
}

void Subscriptions::ForgetDead(Subject subject, uint64_t client, const Recipient& told)
{
    Entry entry;  // its references go without the mutex
    MutexLock lock(mutex_);
    const auto known = Of(subject).find(client);
    if (known != Of(subject).end() && known->second.recipient.Get() == &told) {
        entry = std::move(known->second);
        Of(subject).erase(known);
    }
}

}  // namespace TAVO::Veltra
