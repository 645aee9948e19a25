// SPDX-License-Identifier: Apache-2.0
// What the registry keeps of services, and what it lets go of.
#include "manager/daemon/ability_registry.h"

#include "platform/manager/place_fixture.h"
#include "support/fake_remote_object.h"

namespace {

using namespace TAVO;
using namespace TAVO::Manager;
using TAVO::Veltra::FakeRemoteObject;

class AbilityRegistryTest : public PlaceFixture {
protected:
    static AbilityFiles Files()
    {
        AbilityFiles files;
        files[ID].id = ID;
        files[ID].external = true;
        return files;
    }

    TestSupport::Child owner = StartHolder();
    const CallingPeer peer{owner.Pid(), ::geteuid(), 1};
    AbilityRegistry registry{dir, Files()};
};

TEST_F(AbilityRegistryTest, OneRegistrationLeavesOneDeathRecipientHoweverOftenItIsRepeated)
{
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
