// SPDX-License-Identifier: Apache-2.0
// The client with a scripted manager in place of the real one.
#ifndef VELTRA_TESTS_CLIENT_CLIENT_TEST_H
#define VELTRA_TESTS_CLIENT_CLIENT_TEST_H

#include <gtest/gtest.h>

#include <utility>

#include "client/veltra_server_client_proxy.h"
#include "support/fake_ability_manager.h"
#include "support/fake_remote_object.h"
#include "tavo/delayed_ref_singleton.h"

namespace TAVO::Veltra {

class ClientTest : public testing::Test {
protected:
    // Load and death reports go to the process's one proxy, so the tests use that one too.
    ClientTest()
        : manager_(FakeAbilityManager::Install()), proxy_(DelayedRefSingleton<VeltraClientProxy>::GetInstance())
    {
    }
    ~ClientTest() override { FakeAbilityManager::Remove(); }

    sptr<FakeRemoteObject> RunService(FakeRemoteObject::Answer answer = nullptr)
    {
        sptr<FakeRemoteObject> service = MakeRef<FakeRemoteObject>(std::move(answer));
        manager_->SetRunning(service);
        return service;
    }

    // One that answers everything with this number.
    sptr<FakeRemoteObject> RunAnswering(int32_t result)
    {
        return RunService([result](uint32_t, MessageParcel&, MessageParcel& reply) {
            reply.WriteInt32(result);
            return 0;
        });
    }

    // As the manager does it: reported under this id once the load was accepted.
    void ReportSuccessOnLoad(int32_t systemAbilityId, const sptr<IRemoteObject>& object)
    {
        manager_->ScriptLoad(ABILITY_OK, [systemAbilityId, object](ISystemAbilityLoadCallback& callback) {
            callback.OnLoadSystemAbilitySuccess(systemAbilityId, object);
        });
    }

    const sptr<FakeAbilityManager> manager_;
    VeltraClientProxy& proxy_;
};

}  // namespace TAVO::Veltra

#endif
