// SPDX-License-Identifier: Apache-2.0
#include "tavo/iremote_broker.h"

#include <new>

#include "base/forked_child.h"

namespace TAVO {

IRemoteBroker::~IRemoteBroker() = default;

// Made by the first static initialiser that needs it, of whichever library, and never destroyed: static destructors
// of libraries that are closed or end later still take their entries back.
BrokerRegistration& BrokerRegistration::Get()
{
    static auto* const registry = new BrokerRegistration();
    return *registry;
}

bool BrokerRegistration::Register(const std::u16string& descriptor, Creator creator, const void* owner)
{
    if (creator == nullptr || InForkedChild()) {
        return false;
    }
    MutexLock lock(mutex_);
    return entries_.try_emplace(descriptor, Entry{creator, owner}).second;
}

void BrokerRegistration::Unregister(const std::u16string& descriptor, const void* owner)
{
    if (InForkedChild()) {  // its exit runs this too
        return;
    }
    MutexLock lock(mutex_);
    const auto found = entries_.find(descriptor);
    if (found != entries_.end() && found->second.owner == owner) {
        entries_.erase(found);
    }
}

sptr<IRemoteBroker> BrokerRegistration::NewInstance(const std::u16string& descriptor, const sptr<IRemoteObject>& object)
{
    if (InForkedChild()) {
        return nullptr;
    }
    Creator creator = nullptr;
    {
        MutexLock lock(mutex_);
        const auto found = entries_.find(descriptor);
        if (found == entries_.end()) {
            return nullptr;
        }
        creator = found->second.creator;
    }
    try {
        return creator(object);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace TAVO
