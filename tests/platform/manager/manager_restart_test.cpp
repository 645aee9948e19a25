// SPDX-License-Identifier: Apache-2.0
// The manager may die, hang or receive SIGTERM: there is never a second service, and nothing waits for long.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "manager/client/ability_lock.h"
#include "os/process_lock.h"
#include "os/runtime_dir.h"
#include "platform/manager/ability_client.h"
#include "platform/manager/manager_fixture.h"

namespace ManagerTest {
namespace {

using TAVO::Manager::AbilityLockName;
using TAVO::Transport::ProcessLock;
using TAVO::Transport::RuntimeDir;
using TestSupport::Child;
using TestSupport::WaitFor;

using ManagerRestart = ManagerFixture;

TEST_F(ManagerRestart, AdoptedServiceIsStartedAgainAfterItsDeath)
{
    WriteAbility(ID, "serve");
    Child manager = StartManager();
    const int pid = PidIn(Load(ID));
    ASSERT_TRUE(StopAndWait(pid));  // It cannot register again, but it holds its place.
    Crash(manager);
    manager = StartManager();
    std::future<std::string> answer = std::async(std::launch::async, Load, ID);
    // The load must not start a second one: nothing shows that but the description after the load was taken in.
    EXPECT_TRUE(WaitFor([] { return Check(ID) == "null"; }));
    EXPECT_EQ(Manager()->DescribeAbilities().at(0).starts, 0);
    ::kill(pid, SIGKILL);
    const std::string second = answer.get();
    ASSERT_EQ(Started().size(), 2u) << second;
    EXPECT_EQ(second, "loaded " + std::to_string(Started()[1]));
}

TEST_F(ManagerRestart, PendingStartIsContinuedByTheNextManager)
{
    WriteAbility(ID, "when-told");
    Child manager = StartManager();
    std::thread asker([] { Load(ID); });  // Never answered: its manager dies.
    asker.detach();
    const std::string record = RuntimePath() + "/4711.started";  // written when the start has returned
    ASSERT_TRUE(WaitFor([this, &record] { return std::ifstream(record).peek() != EOF && Started().size() == 1; }));
    Crash(manager);
    manager = StartManager();
    std::future<std::string> answer = std::async(std::launch::async, Load, ID);
    NotifyServices();
    EXPECT_EQ(answer.get(), "loaded " + std::to_string(Started().at(0)));
    EXPECT_EQ(Started().size(), 1u);
    // This manager did not start it, but the service is the managers' all the same.
    ::kill(manager.Pid(), SIGTERM);
    EXPECT_EQ(manager.WaitForExit(), "exit 0");
    EXPECT_TRUE(WaitUntilDead(Started().at(0)));
}

TEST_F(ManagerRestart, ServiceRegistersWithTheNextManager)
{
    WriteAbility(ID, "serve", true);
    WriteAbility(ID + 1, "serve");
    Child manager = StartManager();
    Child service = StartExternal();
    Crash(manager);
    manager = StartManager();
    EXPECT_TRUE(WaitFor([&service] { return Check(ID) == "object " + std::to_string(service.Pid()); }));
    EXPECT_EQ(service.Ask("add 4712"), Status(TAVO::ABILITY_REFUSED));
}

// Whether it comes back before the load or while the load waits for it.
TEST_F(ManagerRestart, RefusedServiceReleasesItsLock)
{
    class Unheard : public TAVO::SystemAbilityLoadCallbackStub {
        void OnLoadSystemAbilitySuccess(int32_t, const TAVO::sptr<TAVO::IRemoteObject>&) override {}
        void OnLoadSystemAbilityFail(int32_t) override {}
    };
    std::string error;
    const RuntimeDir dir = RuntimeDir::Open(RuntimePath(), false, error);
    for (const bool comesLater : {false, true}) {
        SCOPED_TRACE(comesLater);
        WriteAbility(ID, "serve", true);
        Child manager = StartManager();
        Child service = StartExternal();
        if (comesLater) {
            service.Stop();
        }
        Crash(manager);
        WriteAbility(ID, "serve", false);
        manager = StartManager();
        if (comesLater) {
            EXPECT_EQ(Manager()->LoadAbility(ID, new Unheard), TAVO::ABILITY_OK);  // from now on the owner is awaited
            service.Continue();
        } else {
            EXPECT_TRUE(WaitFor([&dir] { return ProcessLock::IsFree(dir.Fd(), AbilityLockName(ID)); }));
        }
        const int pid = PidIn(Load(ID));
        ASSERT_FALSE(Started().empty());
        EXPECT_EQ(pid, Started().back());
        ::kill(manager.Pid(), SIGTERM);  // and the service that it started
        EXPECT_EQ(manager.WaitForExit(), "exit 0");
    }
    EXPECT_EQ(Started().size(), 2u);
}

TEST_F(ManagerRestart, AbilityThatAHungManagerDidNotRemoveStaysRegistered)
{
    WriteAbility(ID, "serve", true);
    Child manager = StartManager();
    Child service = StartExternal();
    manager.Stop();
    EXPECT_EQ(service.Ask("remove 4711"), Status(TAVO::ABILITY_UNREACHABLE));
    Crash(manager);
    manager = StartManager();
    EXPECT_TRUE(WaitFor([&service] { return Check(ID) == "object " + std::to_string(service.Pid()); }));
}

// What is refused is never tried again, so a manager that cannot look must not refuse.
TEST_F(ManagerRestart, UnreadableLockDoesNotRefuseAService)
{
    namespace fs = std::filesystem;
    WriteAbility(ID, "serve", true);
    Child manager = StartManager();
    Child service = StartExternal();
    const std::string lock = RuntimePath() + "/4711.lock";
    fs::rename(lock, lock + ".kept");
    fs::create_symlink("elsewhere", lock);  // which is not opened
    EXPECT_EQ(service.Ask("add 4711"), Status(TAVO::ABILITY_UNREACHABLE));
    fs::rename(lock + ".kept", lock);
    EXPECT_EQ(service.Ask("add 4711"), Status(TAVO::ABILITY_OK));
    EXPECT_EQ(PidIn(Check(ID)), service.Pid());
}

TEST_F(ManagerRestart, ExitOfTheManagerEndsItsServices)
{
    WriteAbility(1, "serve");
    WriteAbility(2, "ignore-term");
    WriteAbility(3, "when-told");
    for (const bool areOfEarlierManager : {true, false}) {
        SCOPED_TRACE(areOfEarlierManager);
        const size_t count = Started().size();
        Child manager = StartManager();
        const int pid = PidIn(Load(1));
        EXPECT_NE(PidIn(Load(2)), 0);
        std::thread asker([] { Load(3); });  // still starting
        asker.detach();
        ASSERT_TRUE(WaitFor([this, count] { return Started().size() == count + 3; }));
        if (areOfEarlierManager) {
            ASSERT_TRUE(StopAndWait(pid));  // It cannot register again.
            ASSERT_TRUE(WaitFor([this] { return std::ifstream(RuntimePath() + "/3.started").peek() != EOF; }));
            Crash(manager);
            manager = StartManager();
        }
        ::kill(manager.Pid(), SIGTERM);
        EXPECT_EQ(manager.WaitForExit(), "exit 0");
        for (const pid_t started : Started()) {
            EXPECT_TRUE(WaitUntilDead(started));
        }
    }
}

TEST_F(ManagerRestart, ServiceRegistersOnceAHungManagerContinues)
{
    WriteAbility(ID, "serve");
    Child manager = StartManager();
    const int pid = PidIn(Load(ID));
    ASSERT_TRUE(StopAndWait(pid));
    Crash(manager);
    manager = StartManager();
    manager.Stop();
    ::kill(pid, SIGCONT);
    // Its attempts fail while this process waits without success too, and nothing appears afterwards that could wake it.
    EXPECT_EQ(Manager()->CheckAbility(ID), nullptr);
    manager.Continue();
    EXPECT_TRUE(WaitFor([pid] { return Check(ID) == "object " + std::to_string(pid); }));
}

}  // namespace
}  // namespace ManagerTest
