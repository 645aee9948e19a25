// SPDX-License-Identifier: Apache-2.0
// What the manager sends after its lock is released: one-way notices, and references to release.
#ifndef TAVO_MANAGER_OUTBOX_H
#define TAVO_MANAGER_OUTBOX_H

#include <cstdint>
#include <vector>

#include "tavo/iremote_object.h"

namespace TAVO::Manager {

// Filled under the lock, sent without it. One thread.
class Outbox {
public:
    void NotifyLoaded(const sptr<IRemoteObject>& callback, int32_t systemAbilityId, const sptr<IRemoteObject>& service);
    void NotifyFailed(const sptr<IRemoteObject>& callback, int32_t systemAbilityId);
    void NotifyChanged(const sptr<IRemoteObject>& observer, int32_t systemAbilityId, int64_t number);
    // Keeps the reference until the outbox is destroyed.
    void Drop(const sptr<IRemoteObject>& object);

    struct Change {
        sptr<IRemoteObject> observer;
        int32_t id;
        int64_t number;
    };

    // Never waits: a receiver that does not read its notices loses them, with a line in the log. Returns the changes
    // that a living observer could not be notified of: without them its cached answers stay wrong.
    [[nodiscard]] std::vector<Change> Send();

private:
    enum class Kind { LOADED, FAILED, CHANGED };
    struct Notice {
        Kind kind;
        sptr<IRemoteObject> receiver;
        int32_t id;
        int64_t number;
        sptr<IRemoteObject> service;
    };

    static bool SendOne(const Notice& notice);

    std::vector<Notice> notices_;
    std::vector<sptr<IRemoteObject>> dropped_;
};

}  // namespace TAVO::Manager

#endif
