// SPDX-License-Identifier: Apache-2.0
// Which client processes have been given which services, so that they hear when that is no longer true.
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
    // Client `session` was told about the id. True when the session is new here: its end has to be watched.
    bool Remember(uint64_t session, const sptr<IRemoteObject>& observer, int32_t systemAbilityId);
    // The observers to tell about a change of the id. They have to ask again before they are notified again.
    std::vector<sptr<IRemoteObject>> TakeObserversOf(int32_t systemAbilityId);
    // The client is gone. Returns its observer for the caller to release, null when there was none.
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
