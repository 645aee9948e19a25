// SPDX-License-Identifier: Apache-2.0
// Encodes and sends the manager's notices, after the lock of the registry. Sending never waits: a client that is
// stopped has a full socket at some time. A change is then kept for another attempt, because the client would use an
// outdated answer for ever. A load callback is lost with a warning: its client gives up after 10 s anyway.
#include "manager/daemon/outbox.h"

#include "manager/client/ability_cache.h"
#include "manager/client/manager_log.h"
#include "tavo/isystem_ability_load_callback.h"
#include "tavo/message_parcel.h"
#include "transport/transport.h"

namespace TAVO::Manager {

void Outbox::NotifyLoaded(const sptr<IRemoteObject>& callback, int32_t systemAbilityId,
                          const sptr<IRemoteObject>& service)
{
    notices_.push_back({Kind::LOADED, callback, systemAbilityId, 0, service});
}

void Outbox::NotifyFailed(const sptr<IRemoteObject>& callback, int32_t systemAbilityId)
{
    notices_.push_back({Kind::FAILED, callback, systemAbilityId, 0, nullptr});
}

void Outbox::NotifyChanged(const sptr<IRemoteObject>& observer, int32_t systemAbilityId, int64_t number)
{
    notices_.push_back({Kind::CHANGED, observer, systemAbilityId, number, nullptr});
}

void Outbox::Drop(const sptr<IRemoteObject>& object)
{
    dropped_.push_back(object);
}

std::vector<Outbox::Change> Outbox::Send()
{
    std::vector<Change> unsent;
    for (const Notice& notice : notices_) {
        // A dead receiver needs no notice.
        if (SendOne(notice) || !notice.receiver->IsAlive()) {
            continue;
        }
        if (notice.kind == Kind::CHANGED) {
            unsent.push_back({notice.receiver, notice.id, notice.number});
            continue;
        }
        Log(SCRIVO_WARN,
            "a notice about ability %{public}d was lost: its receiver does not read its notices, or no descriptor is "
            "left for the connection (ulimit -n)",
            notice.id);
    }
    notices_.clear();
    return unsent;
}

bool Outbox::SendOne(const Notice& notice)
{
    MessageParcel data;
    switch (notice.kind) {
        case Kind::LOADED:
            return data.WriteInterfaceToken(ISystemAbilityLoadCallback::GetDescriptor()) &&
                   data.WriteInt32(notice.id) && data.WriteRemoteObject(notice.service) &&
                   Transport::SendNotice(notice.receiver, ISystemAbilityLoadCallback::ON_LOAD_SUCCESS, data) == IPC_OK;
        case Kind::FAILED:
            return data.WriteInterfaceToken(ISystemAbilityLoadCallback::GetDescriptor()) &&
                   data.WriteInt32(notice.id) &&
                   Transport::SendNotice(notice.receiver, ISystemAbilityLoadCallback::ON_LOAD_FAIL, data) == IPC_OK;
        case Kind::CHANGED:
            return data.WriteInterfaceToken(AbilityObserver::Token()) && data.WriteInt32(notice.id) &&
                   data.WriteInt64(notice.number) &&
                   Transport::SendNotice(notice.receiver, AbilityObserver::ABILITY_CHANGED, data) == IPC_OK;
    }
    return false;
}

}  // namespace TAVO::Manager
