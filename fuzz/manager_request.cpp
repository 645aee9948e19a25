// SPDX-License-Identifier: Apache-2.0
// Does the manager answer each request as its contract says, and keep nothing of one that it refuses?
#include "input.h"
#include "manager/daemon/manager_stub.h"

namespace {

using Fuzz::Require;
using namespace TAVO;
using Manager::AbilityRegistry;
using Manager::ManagerStub;

// Without an ability file no id exists: nothing can be started, registered or waited for.
AbilityRegistry& EmptyRegistry()
{
    static const Transport::RuntimeDir& dir = *new Transport::RuntimeDir;
    static AbilityRegistry& registry = *new AbilityRegistry(dir, {});
    return registry;
}

struct Outcome {
    int status;
    std::vector<int32_t> reply;  // slots

    bool operator==(const Outcome& other) const = default;
};

Outcome Expected(uint32_t code, MessageParcel& data)
{
    int32_t id = 0;
    if (data.ReadInterfaceToken() != ISystemAbilityManager::GetDescriptor() ||
        (code != ISystemAbilityManager::DESCRIBE_ABILITIES && !data.ReadInt32(id))) {
        return {IPC_BAD_MESSAGE, {}};
    }
    const bool hasObject = data.ReadRemoteObject() != nullptr;
    switch (code) {
        case ISystemAbilityManager::CHECK_ABILITY:
            return hasObject ? Outcome{IPC_OK, {0, 0}} : Outcome{IPC_BAD_MESSAGE, {}};
        case ISystemAbilityManager::LOAD_ABILITY:
            return {IPC_OK, {hasObject ? ABILITY_UNKNOWN : ABILITY_BAD_REQUEST}};
        case ISystemAbilityManager::ADD_ABILITY:
            return {IPC_OK, {hasObject ? ABILITY_REFUSED : ABILITY_BAD_REQUEST}};
        case ISystemAbilityManager::REMOVE_ABILITY:
            return {IPC_OK, {ABILITY_NOT_RUNNING}};
        default:
            return {IPC_OK, {0}};
    }
}

void WriteRequest(FuzzedDataProvider& input, const sptr<IRemoteObject>& object, MessageParcel& data)
{
    data.WriteInterfaceToken(input.ConsumeBool() ? ISystemAbilityManager::GetDescriptor() : Fuzz::TakeText16(input));
    if (input.ConsumeBool()) {
        data.WriteInt32(input.ConsumeIntegral<int32_t>());
    }
    if (input.ConsumeBool()) {
        data.WriteRemoteObject(object);
    }
    Fuzz::WriteItems(input, data, 4);
    Fuzz::Damage(input, data);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    static const sptr<ManagerStub> manager = MakeRef<ManagerStub>(EmptyRegistry());
    FuzzedDataProvider input(bytes, size);
    const sptr<IRemoteObject> object = MakeRef<IPCObjectStub>();
    const uint32_t code =
        input.ConsumeBool() ? input.ConsumeIntegralInRange(0U, 7U) : input.ConsumeIntegral<uint32_t>();
    {
        MessageParcel data;
        WriteRequest(input, object, data);
        MessageParcel reply;
        MessageOption option;
        const int status = manager->OnRemoteRequest(code, data, reply, option);
        ParcelAccess::ResetRead(data);
        if (code >= ISystemAbilityManager::CHECK_ABILITY && code <= ISystemAbilityManager::DESCRIBE_ABILITIES) {
            Outcome outcome{status, {}};
            while (reply.GetReadableBytes() > 0) {
                outcome.reply.push_back(reply.ReadInt32());
            }
            Require(outcome == Expected(code, data), "the answer that the contract gives");
        } else {
            const bool isKnown = code == IPCObjectStub::CODE_PING || code == IPCObjectStub::CODE_DESCRIPTOR;
            Require(status == (isKnown ? IPC_OK : IPC_UNKNOWN_CODE), "a code of the platform or none");
        }
    }
    Require(object->GetStrongCount() == 1, "nothing is kept for an id that does not exist");
    return 0;
}
