// SPDX-License-Identifier: Apache-2.0
// Which client processes have received which services, so that they are notified of changes.
#ifndef TAVO_MANAGER_OBSERVER_TABLE_H
#define TAVO_MANAGER_OBSERVER_TABLE_H

#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "tavo/iremote_object.h"

namespace TAVO::Manager {

// One observer object per session with a client, the first that it sent. Its user locks.
class ObserverTable {
public:
    // Client `session` received an answer about the id. True if the session is new here: its end has to be watched.
    bool Remember(uint64_t session, const sptr<IRemoteObject>& observer, int32_t systemAbilityId);
    // Removes and returns the observers to be notified of a change of the id. A client is notified again only after it
    // has asked again.
    std::vector<sptr<IRemoteObject>> TakeObserversOf(int32_t systemAbilityId);
    // The client has ended. Returns its observer for the caller to release, null if there was none.
    sptr<IRemoteObject> Forget(uint64_t session);

private:
    struct Client {
        sptr<IRemoteObject> observer;
        std::set<int32_t> ids;
    };

    std::map<uint64_t, Client> clients_;
};

}  // namespace TAVO::Manager

#endif
