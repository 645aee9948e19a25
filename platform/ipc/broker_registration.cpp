// SPDX-License-Identifier: Apache-2.0
#include "tavo/iremote_broker.h"

#include <algorithm>
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

std::vector<BrokerRegistration::Entry>::iterator BrokerRegistration::Find(const std::u16string& descriptor)
{
    return std::find_if(entries_.begin(), entries_.end(),
                        [&descriptor](const Entry& entry) { return IsSameDescriptor(entry.descriptor, descriptor); });
}

bool BrokerRegistration::Register(const std::u16string& descriptor, Creator creator, const void* owner)
{
    if (creator == nullptr || InForkedChild()) {
        return false;
    }
    MutexLock lock(mutex_);
    if (Find(descriptor) != entries_.end()) {
        return false;
    }
    entries_.push_back({descriptor, creator, owner});
    return true;
}

void BrokerRegistration::Unregister(const std::u16string& descriptor, const void* owner)
{
    if (InForkedChild()) {  // its exit runs this too
        return;
    }
    MutexLock lock(mutex_);
    const auto found = Find(descriptor);
    if (found != entries_.end() && found->owner == owner) {
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
        const auto found = Find(descriptor);
        if (found == entries_.end()) {
            return nullptr;
        }
        creator = found->creator;
    }
    try {
        return creator(object);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace TAVO
