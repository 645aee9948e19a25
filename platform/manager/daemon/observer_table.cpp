// SPDX-License-Identifier: Apache-2.0
// For each session, the ids of which the client remembers an answer. An entry is removed when the change is sent: the
// client forgets its answer then, and asks again before it remembers another. Under the lock of the registry.
#include "manager/daemon/observer_table.h"

namespace TAVO::Manager {

bool ObserverTable::Remember(uint64_t session, const sptr<IRemoteObject>& observer, int32_t systemAbilityId)
{
    const auto [client, isNew] = clients_.try_emplace(session);
    if (isNew) {
        client->second.observer = observer;
    }
    client->second.ids.insert(systemAbilityId);
    return isNew;
}

std::vector<sptr<IRemoteObject>> ObserverTable::TakeObserversOf(int32_t systemAbilityId)
{
    std::vector<sptr<IRemoteObject>> observers;
    for (auto& [session, client] : clients_) {
        if (client.ids.erase(systemAbilityId) != 0) {
            observers.push_back(client.observer);
        }
    }
    return observers;
}

sptr<IRemoteObject> ObserverTable::Forget(uint64_t session)
{
    const auto client = clients_.extract(session);
    return client.empty() ? nullptr : client.mapped().observer;
}

}  // namespace TAVO::Manager
