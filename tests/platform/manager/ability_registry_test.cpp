// SPDX-License-Identifier: Apache-2.0
// The place of an ability is taken exactly as long as the process lives that took it, and so long the registry keeps
// it.
#include "manager/daemon/ability_registry.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <future>
#include <new>

#include "manager/client/ability_lock.h"
#include "manager/daemon/admission.h"
#include "manager/daemon/pidfd.h"
#include "manager/daemon/process_watch.h"
#include "manager/daemon/start_record.h"
#include "os/process_lock.h"
#include "support/fake_remote_object.h"
#include "support/process.h"

namespace {

using namespace TAVO;
using namespace TAVO::Manager;
using TAVO::Transport::ProcessLock;
using TAVO::Veltra::FakeRemoteObject;

class PlaceFixture : public ::testing::Test {
protected:
    static constexpr int32_t ID = 7;

    // Holds the place until its pipe ends, as a child does that it may have.
    TestSupport::Child StartHolder(bool hasChild = false)
    {
        auto holder = TestSupport::Child::Fork([this, hasChild](TestSupport::LinePipe& parent) {
            ProcessLock lock;
            ::close(STDIN_FILENO);  // a program started without it, which opens and closes it later
            const bool isTaken = lock.Take(dir.Fd(), name);
            ::close(STDIN_FILENO);
            parent.Send(isTaken && (!hasChild || ::fork() >= 0) ? "taken" : "failed");
            parent.Receive();
            return 0;
        });
        EXPECT_EQ(holder.Pipe().Receive(), "taken");
        return holder;
    }
    pid_t Holder() const { return ProcessLock::Holder(dir.Fd(), name); }
    static void Kill(TestSupport::Child& holder)
    {
        holder.Kill();
        EXPECT_EQ(holder.WaitForExit(), "signal 9");
    }

    TestSupport::PrivateRuntimeDir folder;
    std::string error;
    Transport::RuntimeDir dir = Transport::RuntimeDir::Open(folder.Path(), false, error);
    const std::string name = AbilityLockName(ID);
};

using ProcessLockTest = PlaceFixture;

TEST_F(ProcessLockTest, OneProcessHoldsItUntilItEndsAndQueriesDoNotAcquireIt)
{
    EXPECT_EQ(Holder(), ProcessLock::NOBODY);
    EXPECT_FALSE(ProcessLock::IsFree(dir.Fd(), name)) << "what cannot be looked at is not known to be free";
    for (const bool hasChild : {false, true}) {  // which does not keep the lock of its dead parent
        SCOPED_TRACE(hasChild);
        TestSupport::Child holder = StartHolder(hasChild);
        EXPECT_EQ(Holder(), holder.Pid());
        EXPECT_FALSE(ProcessLock::IsFree(dir.Fd(), name));
        ProcessLock lock;
        EXPECT_FALSE(lock.Take(dir.Fd(), name));
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_FALSE(lock.IsHeld());
        Kill(holder);
        EXPECT_EQ(Holder(), ProcessLock::NOBODY);
        EXPECT_TRUE(ProcessLock::IsFree(dir.Fd(), name));
        EXPECT_TRUE(lock.Take(dir.Fd(), name));
    }
}

TEST_F(ProcessLockTest, ALinkInItsPlaceIsNotFollowed)
{
    ASSERT_EQ(::symlinkat("elsewhere", dir.Fd(), name.c_str()), 0);
    ProcessLock lock;
    EXPECT_FALSE(lock.Take(dir.Fd(), name));
    EXPECT_EQ(Holder(), ProcessLock::CANNOT_TELL);
    EXPECT_NE(::faccessat(dir.Fd(), "elsewhere", F_OK, 0), 0);
}

TEST_F(ProcessLockTest, ARecordedStartIsKnownWhileThatVeryProcessLives)
{
    EXPECT_EQ(RecordedProcess(dir, ID), 0);
    TestSupport::Child child = StartHolder();
    const std::string pid = std::to_string(child.Pid());
    // The same pid with another start is another process.
    for (const std::string& text :
         {pid + " 1 and longer than the record that replaces it\n", std::string(), std::string("x"), pid,
          std::string("-1 5"), std::string("0 0"), std::string("99999999999999999999 1")}) {
        SCOPED_TRACE(text);
        std::ofstream(folder.Path() + "/7.started") << text;
        EXPECT_EQ(RecordedProcess(dir, ID), 0);
        ASSERT_TRUE(WriteStartRecord(dir, ID, child.Pid()));
        EXPECT_EQ(RecordedProcess(dir, ID), child.Pid());
        EXPECT_EQ(RecordedProcess(dir, ID + 1), 0);
    }
    Kill(child);
    EXPECT_EQ(RecordedProcess(dir, ID), 0);
}

using ProcessWatchTest = PlaceFixture;

TEST_F(ProcessWatchTest, AnEndIsReportedAgainAfterMemoryRanOut)
{
    auto& watch = *new ProcessWatch;  // Lives as long as the process, like its thread.
    std::promise<void> second;
    const auto ended = [&second, count = 0](uint64_t, const std::string&) mutable {
        if (++count == 1) {
            throw std::bad_alloc();
        }
        second.set_value();
    };
    ASSERT_TRUE(watch.Begin(ended, [] { return ProcessWatch::Clock::time_point::max(); }));
    TestSupport::Child process = StartHolder();
    watch.Add(1, process.Pid(), Transport::OpenPidFd(process.Pid()), false);
    watch.Wake();
    Kill(process);
    EXPECT_EQ(second.get_future().wait_for(TestSupport::TIMEOUT), std::future_status::ready);
}

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
    registry.ServiceGone(ID, 1);  // the notice of the first registration is late
    EXPECT_EQ(registry.Check(ID, MakeRef<FakeRemoteObject>(), 2).object, second);
    EXPECT_EQ(registry.Remove(ID, peer.session), ABILITY_OK);
    EXPECT_EQ(second->DeathRecipients(), 0u);
}

TEST_F(AbilityRegistryTest, DeadObjectIsNotRegisteredAndDeathEndsARegistration)
{
    const sptr<FakeRemoteObject> object = MakeRef<FakeRemoteObject>();
    const sptr<FakeRemoteObject> observer = MakeRef<FakeRemoteObject>();
    EXPECT_EQ(registry.Add(ID, object, peer), ABILITY_OK);
    EXPECT_EQ(registry.Check(ID, observer, 2).object, object);
    const sptr<FakeRemoteObject> ofTheDead = MakeRef<FakeRemoteObject>();
    registry.Check(ID, ofTheDead, 3);
    ofTheDead->Die();
    EXPECT_EQ(ofTheDead->GetStrongCount(), 1) << "the observer of a dead client is kept";
    object->Die();
    EXPECT_EQ(registry.Check(ID, observer, 2).object, nullptr);
    EXPECT_EQ(registry.Add(ID, object, peer), ABILITY_BAD_REQUEST);
    EXPECT_EQ(registry.Check(ID, observer, 2).object, nullptr);
}

// A process of another pid namespace has the number 0.
TEST_F(AbilityRegistryTest, AProcessWithoutANumberIsNotTakenForTheOwner)
{
    const Admission admission(dir, Files());
    constexpr size_t TOO_MANY = 1 << 30;
    EXPECT_TRUE(admission.Admits(owner.Pid(), 3, TOO_MANY));
    EXPECT_FALSE(admission.Admits(0, 3, TOO_MANY));
    Kill(owner);
    EXPECT_FALSE(admission.Admits(0, 3, TOO_MANY));
    EXPECT_EQ(registry.Add(ID, MakeRef<FakeRemoteObject>(), {0, ::geteuid(), 1}), ABILITY_REFUSED);
}

}  // namespace
