// SPDX-License-Identifier: Apache-2.0
// Libraries register their proxy classes from static initialisers and remove them in static destructors, so the
// registry must exist before and after both. A cast looks up the creator under the lock and calls it without: it is
// code of another library and may come back here. A process has few interfaces, so a search through a vector is faster
// than a map. A cast that finds no creator is mostly a library that was not linked: it is logged once for each
// interface.
#include "tavo/iremote_broker.h"

#include <algorithm>
#include <new>
#include <string>

#include "base/forked_child.h"
#include "tavo/scrivo_print.h"

namespace TAVO {
namespace {

constexpr int LOG_TYPE = 3;
constexpr uint32_t LOG_DOMAIN = 0xD00470C;

}  // namespace

IRemoteBroker::~IRemoteBroker() = default;

// Made by the first static initialiser that needs it, of whichever library, and never destroyed: static destructors
// of libraries that are closed or end later still remove their entries.
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
    // The first registration stays: two libraries may contain the same proxy class.
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
    // Only its own entry: the one of another library with the same descriptor stays.
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
        creator = found != entries_.end() ? found->creator : nullptr;
    }
    try {
        if (creator != nullptr) {
            return creator(object);
        }
        // A dead object is the more likely reason for null, and is reported elsewhere.
        if (object != nullptr && object->IsAlive()) {
            ReportMissing(descriptor);
        }
    } catch (const std::bad_alloc&) {
    }
    return nullptr;
}

void BrokerRegistration::ReportMissing(const std::u16string& descriptor)
{
    {
        MutexLock lock(mutex_);
        if (std::find(reported_.begin(), reported_.end(), descriptor) != reported_.end()) {
            return;
        }
        reported_.push_back(descriptor);
    }
    std::string name;
    for (const char16_t unit : descriptor) {
        name += unit < 0x80 ? static_cast<char>(unit) : '?';
    }
    ScrivoPrint(LOG_TYPE, SCRIVO_WARN, LOG_DOMAIN, "Tavo",
                "iface_cast returned null: no proxy class is registered for %{public}s. Give the proxy class a static "
                "BrokerDelegator member, and link its library",
                name.c_str());
}

}  // namespace TAVO
