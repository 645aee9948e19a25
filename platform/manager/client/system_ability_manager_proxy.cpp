// SPDX-License-Identifier: Apache-2.0
// The manager's operations as requests; what the manager answers is checked before it is believed.
#include "manager/client/system_ability_manager_proxy.h"

#include <chrono>
#include <exception>

#include "base/forked_child.h"
#include "tavo/message_parcel.h"
#include "transport/transport.h"

namespace TAVO::Manager {
namespace {

bool ReadDescription(MessageParcel& reply, AbilityDescription& ability)
{
    return reply.ReadInt32(ability.id) && reply.ReadBool(ability.running) && reply.ReadBool(ability.startable) &&
           reply.ReadInt32(ability.pid) && reply.ReadInt32(ability.starts) && reply.ReadInt64(ability.startedAt) &&
           reply.ReadString(ability.program) && reply.ReadString(ability.fault);
}

}  // namespace

SystemAbilityManagerProxy::SystemAbilityManagerProxy(const sptr<IRemoteObject>& root)
    : IRemoteProxy<ISystemAbilityManager>(root),
      root_(root),
      cache_(new AbilityCache),
      observer_(new AbilityObserver(cache_))
{
}

sptr<IRemoteObject> SystemAbilityManagerProxy::CheckAbility(int32_t systemAbilityId)
try {
    if (InForkedChild() || !IsConnected()) {
        return nullptr;
    }
    if (sptr<IRemoteObject> living = cache_->FindLiving(systemAbilityId); living != nullptr) {
        return living;
    }
    // One deadline for the question and for acquiring the service's object from its process.
    const auto deadline = Transport::Clock::now() + std::chrono::seconds(WAIT_TIME_SECONDS);
    // Before the request is sent, see AbilityCache.
    cache_->BeginQuestion(systemAbilityId);
    MessageParcel reply;
    int64_t number = 0;
    if (!Ask(CHECK_ABILITY, systemAbilityId, observer_, reply) || !reply.ReadInt64(number)) {
        return nullptr;
    }
    sptr<IRemoteObject> object = reply.ReadRemoteObject();
    // The manager may not have noticed yet that the service died.
    if (!Transport::IsStillThere(object, deadline)) {
        return nullptr;
    }
    cache_->KeepAnswer(systemAbilityId, number, object);
    return object;
} catch (const std::exception&) {
    return nullptr;
}

int32_t SystemAbilityManagerProxy::LoadAbility(int32_t systemAbilityId,
                                               const sptr<ISystemAbilityLoadCallback>& callback)
try {
    const sptr<IRemoteObject> object = callback == nullptr ? nullptr : callback->AsObject();
    return object == nullptr ? ABILITY_BAD_REQUEST : AskForStatus(LOAD_ABILITY, systemAbilityId, object);
} catch (const std::exception&) {
    return ABILITY_UNREACHABLE;
}

std::vector<AbilityDescription> SystemAbilityManagerProxy::DescribeAbilities()
try {
    MessageParcel data;
    MessageParcel reply;
    int32_t count = 0;
    if (!data.WriteInterfaceToken(GetDescriptor()) || !Send(DESCRIBE_ABILITIES, data, reply) ||
        // A negative count is an empty list; nothing is allocated from the count.
        !reply.ReadInt32(count) || count > MAX_DESCRIPTIONS) {
        return {};
    }
    std::vector<AbilityDescription> abilities;
    for (int32_t i = 0; i < count; ++i) {
        AbilityDescription& ability = abilities.emplace_back();
        if (!ReadDescription(reply, ability)) {
            return {};
        }
    }
    return abilities;
} catch (const std::exception&) {
    return {};
}

int32_t SystemAbilityManagerProxy::SendAdd(int32_t systemAbilityId, const sptr<IRemoteObject>& object)
{
    return AskForStatus(ADD_ABILITY, systemAbilityId, object);
}

int32_t SystemAbilityManagerProxy::SendRemove(int32_t systemAbilityId)
{
    return AskForStatus(REMOVE_ABILITY, systemAbilityId, nullptr);
}

int32_t SystemAbilityManagerProxy::AskForStatus(Code code, int32_t systemAbilityId, const sptr<IRemoteObject>& object)
{
    MessageParcel reply;
    int32_t status = ABILITY_UNREACHABLE;
    if (!Ask(code, systemAbilityId, object, reply) || !reply.ReadInt32(status)) {
        return ABILITY_UNREACHABLE;
    }
    // An unknown status may be of a later manager; callers switch over the known ones.
    return status >= ABILITY_OK && status <= ABILITY_CANNOT_START ? status : ABILITY_UNREACHABLE;
}

bool SystemAbilityManagerProxy::Ask(Code code, int32_t systemAbilityId, const sptr<IRemoteObject>& object,
                                    MessageParcel& reply)
{
    MessageParcel data;
    return data.WriteInterfaceToken(GetDescriptor()) && data.WriteInt32(systemAbilityId) &&
           (object == nullptr || data.WriteRemoteObject(object)) && Send(code, data, reply);
}

bool SystemAbilityManagerProxy::Send(Code code, MessageParcel& data, MessageParcel& reply)
{
    MessageOption option(MessageOption::FLAG_SYNC, WAIT_TIME_SECONDS);
    return root_->SendRequest(code, data, reply, option) == IPC_OK;
}

}  // namespace TAVO::Manager
