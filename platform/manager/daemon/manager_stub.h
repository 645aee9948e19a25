// SPDX-License-Identifier: Apache-2.0
// The manager's root object: decodes and checks requests of clients and services.
#ifndef TAVO_MANAGER_MANAGER_STUB_H
#define TAVO_MANAGER_MANAGER_STUB_H

#include "manager/daemon/ability_registry.h"
#include "tavo/ipc_object_stub.h"

namespace TAVO::Manager {

// Requests of several clients run at once; none waits for another.
class ManagerStub : public IPCObjectStub {
public:
    explicit ManagerStub(AbilityRegistry& registry)
        : IPCObjectStub(ISystemAbilityManager::GetDescriptor()), registry_(registry)
    {
    }

    int OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;

private:
    int Check(int32_t systemAbilityId, MessageParcel& data, MessageParcel& reply);
    int32_t Load(int32_t systemAbilityId, MessageParcel& data);
    int32_t Add(int32_t systemAbilityId, MessageParcel& data);
    int Describe(MessageParcel& reply);

    AbilityRegistry& registry_;
};

}  // namespace TAVO::Manager

#endif
