// SPDX-License-Identifier: Apache-2.0
// Decodes requests and encodes answers; the registry does the work. Everything is read before the registry is called,
// so a request that does not decode changes nothing. Runs on workers, several at a time.
#include "manager/daemon/manager_stub.h"

#include <string>

#include "tavo/calling_peer.h"
#include "tavo/message_parcel.h"

namespace TAVO::Manager {
namespace {

// An object of the caller, null when there is none. One of a third process would outlive the caller, and has perhaps
// not been acquired yet; one that comes home is the manager's own.
sptr<IRemoteObject> ReadCallersObject(MessageParcel& data)
{
    sptr<IRemoteObject> object = data.ReadRemoteObject();
    return IsOfCaller(object) ? object : nullptr;
}

int Answer(MessageParcel& reply, int32_t status)
{
    return reply.WriteInt32(status) ? IPC_OK : IPC_NO_RESOURCES;
}

bool WriteDescription(MessageParcel& reply, const AbilityDescription& ability)
{
    return reply.WriteInt32(ability.id) && reply.WriteBool(ability.running) && reply.WriteBool(ability.startable) &&
           reply.WriteInt32(ability.pid) && reply.WriteInt32(ability.starts) && reply.WriteInt64(ability.startedAt) &&
           reply.WriteString(ability.program) && reply.WriteString(ability.fault);
}

}  // namespace

int ManagerStub::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option)
{
    if (code < ISystemAbilityManager::CHECK_ABILITY || code > ISystemAbilityManager::DESCRIBE_ABILITIES) {
        return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
    }
    int32_t systemAbilityId = 0;
    // The token guards against a client that mistakes the object for one of another interface.
    if (!data.MatchInterfaceToken(ISystemAbilityManager::GetDescriptor()) ||
        (code != ISystemAbilityManager::DESCRIBE_ABILITIES && !data.ReadInt32(systemAbilityId))) {
        return IPC_BAD_MESSAGE;
    }
    switch (code) {
        case ISystemAbilityManager::CHECK_ABILITY:
            return Check(systemAbilityId, data, reply);
        case ISystemAbilityManager::LOAD_ABILITY:
            return Answer(reply, Load(systemAbilityId, data));
        case ISystemAbilityManager::ADD_ABILITY:
            return Answer(reply, Add(systemAbilityId, data));
        case ISystemAbilityManager::REMOVE_ABILITY:
            return Answer(reply, registry_.Remove(systemAbilityId, GetCallingPeer().session));
        default:
            return Describe(reply);
    }
}

int ManagerStub::Check(int32_t systemAbilityId, MessageParcel& data, MessageParcel& reply)
{
    const sptr<IRemoteObject> observer = ReadCallersObject(data);
    if (observer == nullptr) {
        return IPC_BAD_MESSAGE;
    }
    // The session identifies the client: the transport sets it, the client cannot choose it.
    const AbilityRegistry::Found found = registry_.Check(systemAbilityId, observer, GetCallingPeer().session);
    const bool isWritten =
        reply.WriteInt64(found.number) && (found.object == nullptr || reply.WriteRemoteObject(found.object));
    return isWritten ? IPC_OK : IPC_NO_RESOURCES;
}

int32_t ManagerStub::Load(int32_t systemAbilityId, MessageParcel& data)
{
    const sptr<IRemoteObject> callback = ReadCallersObject(data);
    return callback == nullptr ? ABILITY_BAD_REQUEST
                               : registry_.Load(systemAbilityId, callback, GetCallingPeer().session);
}

int32_t ManagerStub::Add(int32_t systemAbilityId, MessageParcel& data)
{
    const sptr<IRemoteObject> object = ReadCallersObject(data);
    return object == nullptr ? ABILITY_BAD_REQUEST : registry_.Add(systemAbilityId, object, GetCallingPeer());
}

int ManagerStub::Describe(MessageParcel& reply)
{
    const std::vector<AbilityDescription> abilities = registry_.Describe();
    bool isWritten = reply.WriteInt32(static_cast<int32_t>(abilities.size()));
    for (const AbilityDescription& ability : abilities) {
        isWritten = isWritten && WriteDescription(reply, ability);
    }
    return isWritten ? IPC_OK : IPC_NO_RESOURCES;
}

}  // namespace TAVO::Manager
