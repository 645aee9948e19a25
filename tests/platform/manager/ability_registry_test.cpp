// SPDX-License-Identifier: Apache-2.0
// What the registry keeps of services, and what it lets go of.
#include "manager/daemon/ability_registry.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "manager/client/process_lock.h"
#include "support/fake_remote_object.h"
#include "support/process.h"

namespace {

using namespace TAVO;
using namespace TAVO::Manager;
using TAVO::Veltra::FakeRemoteObject;
using TestSupport::Child;

constexpr int32_t ID = 7;

class AbilityRegistryTest : public ::testing::Test {
protected:
    // A process that holds the place of the ability.
    Child StartOwner()
    {
        Child owner = Child::Fork([this](TestSupport::LinePipe& parent) {
            ProcessLock lock;
            parent.Hear();
            parent.Say(lock.Take(dir.Fd(), AbilityLockName(ID)) ? "taken" : "failed");
            parent.Hear();
            return 0;
        });
        EXPECT_EQ(owner.Ask("take"), "taken");
        return owner;
    }

    static AbilityFiles Files()
    {
        AbilityFiles files;
        files[ID].id = ID;
        files[ID].external = true;
        return files;
    }

    TestSupport::PrivateRuntimeDir folder;
    std::string error;
    Transport::RuntimeDir dir = Transport::RuntimeDir::Open(folder.Path(), false, error);
    AbilityRegistry registry{dir, Files()};
};

TEST_F(AbilityRegistryTest, OneRegistrationLeavesOneDeathRecipientHoweverOftenItIsRepeated)
{
    Child owner = StartOwner();
    const CallingPeer peer{owner.Pid(), ::geteuid(), 1};
    const sptr<FakeRemoteObject> first = MakeRef<FakeRemoteObject>();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(registry.Add(ID, first, peer), ABILITY_OK);
        EXPECT_EQ(first->DeathRecipients(), 1u);
    }
    const sptr<FakeRemoteObject> second = MakeRef<FakeRemoteObject>();
    EXPECT_EQ(registry.Add(ID, second, peer), ABILITY_OK);
    EXPECT_EQ(first->DeathRecipients(), 0u);
    EXPECT_EQ(registry.Remove(ID, peer.session), ABILITY_OK);
    EXPECT_EQ(second->DeathRecipients(), 0u);
}

TEST_F(AbilityRegistryTest, ADeadObjectIsNotRegisteredAndADyingOneIsTakenOut)
{
    Child owner = StartOwner();
    const CallingPeer peer{owner.Pid(), ::geteuid(), 1};
    const sptr<FakeRemoteObject> object = MakeRef<FakeRemoteObject>();
    const sptr<FakeRemoteObject> observer = MakeRef<FakeRemoteObject>();
    EXPECT_EQ(registry.Add(ID, object, peer), ABILITY_OK);
    EXPECT_EQ(registry.Check(ID, observer, 2).object, object);
    object->Die();
    EXPECT_EQ(registry.Check(ID, observer, 2).object, nullptr);
    EXPECT_EQ(registry.Add(ID, object, peer), ABILITY_BAD_REQUEST);
    EXPECT_EQ(registry.Check(ID, observer, 2).object, nullptr);
}

}  // namespace
