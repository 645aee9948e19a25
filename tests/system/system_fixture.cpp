// SPDX-License-Identifier: Apache-2.0
#include "system/system_fixture.h"

#include <signal.h>

#include <filesystem>
#include <fstream>

#include "tavo/system_ability_manager_client.h"

namespace SystemTest {
namespace {

TAVO::AbilityDescription DescribeService()
{
    const auto manager = TAVO::SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    const std::vector<TAVO::AbilityDescription> abilities =
        manager != nullptr ? manager->DescribeAbilities() : std::vector<TAVO::AbilityDescription>();
    return abilities.empty() ? TAVO::AbilityDescription() : abilities.front();
}

}  // namespace

SystemFixture::SystemFixture()
{
    WriteRealAbility("laptop");
}

SystemFixture::~SystemFixture()
{
    // A service that is left without a manager, by a test that killed it, is known by the manager's own record.
    pid_t started = 0;
    std::ifstream(PathOf("66006.started")) >> started;
    if (manager_.Pid() > 0) {
        manager_.Continue();
        ::kill(manager_.Pid(), SIGTERM);
        EXPECT_EQ(manager_.WaitForExit(), "exit 0");
    }
    if (started > 0 && IsAlive(started)) {
        ::kill(started, SIGKILL);
    }
}

void SystemFixture::WriteAbility(const std::string& program, const std::vector<std::string>& arguments)
{
    ManagerFixture::WriteAbility(66006, program, arguments, true);
    WriteAbilityFile("66007.json", R"({"id": 66007, "external": true})");
}

void SystemFixture::WriteRealAbility(const std::string& machine)
{
    WriteAbility("veltra_server", {"--root", std::string(VELTRA_TEST_ROOTS) + "/" + machine});
}

void SystemFixture::WriteScenario(const std::string& scenario)
{
    std::ofstream(PathOf("scenario.json")) << scenario;
    WriteAbility("veltra_server", {"--scenario", PathOf("scenario.json"), "--speed", "20", "--catalogue",
                                   std::string(VELTRA_SHARE) + "/catalogue.json"});
}

// A level that is 0 and 4 in turns, each for longer than the second between two looks at the device, so that events
// keep coming; and batches of four samples.
void SystemFixture::StartStory()
{
    WriteScenario(R"({
        "curves": {"tempLevel": {"points": [[0, 0], [1.2, 0], [1.3, 4], [2.5, 4]], "repeat": true},
                   "temperature": 50, "thermalMargin": 33},
        "events": [{"at": 20, "text": "levelStarted"}, {"at": 40, "text": "levelStarted"},
                   {"at": 80, "text": "levelStarted"}, {"at": 160, "text": "levelStarted"}],
        "gpu": {"count": 4, "intervalSeconds": 1, "counters": {"gpuLoadPercent": 70}}})");
    StartManager();
}

void SystemFixture::StartManager()
{
    // A killed manager leaves its socket behind, which would pass for the new one's.
    std::filesystem::remove(PathOf("manager"));
    manager_ = RunManager();
    ASSERT_TRUE(WaitFor([this] { return std::filesystem::exists(PathOf("manager")); })) << "no manager came up";
}

void SystemFixture::KillManager()
{
    Crash(manager_);
}

Child SystemFixture::StartTestService()
{
    Child service = Child::Start({"system_test_service", "serve"});
    EXPECT_EQ(service.Pipe().Receive(), "serving");
    return service;
}

pid_t SystemFixture::ServicePid() const
{
    return DescribeService().pid;
}

int SystemFixture::Starts() const
{
    return DescribeService().starts;
}

void SystemFixture::KillService()
{
    const pid_t pid = ServicePid();
    ASSERT_GT(pid, 0);
    const auto object = ServiceObject();
    ::kill(pid, SIGKILL);
    ASSERT_TRUE(WaitFor([pid] { return !IsAlive(pid); })) << "process " << pid << " does not die";
    ASSERT_TRUE(IsKnownDead(object)) << "process " << pid;
}

TAVO::sptr<TAVO::IRemoteObject> SystemFixture::ServiceObject()
{
    const auto manager = TAVO::SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    return manager == nullptr ? nullptr : manager->CheckAbility(66006);
}

bool SystemFixture::IsKnownDead(const TAVO::sptr<TAVO::IRemoteObject>& object)
{
    return WaitFor([&object] { return object == nullptr || ServiceObject() != object; });
}

bool SystemFixture::IsServedAgain()
{
    return WaitFor([this] { return client_.CallAuth("again") == 0; });
}

bool IsAsleep(pid_t thread)
{
    return ManagerTest::StateIn("/proc/self/task/" + std::to_string(thread)) == 'S';
}

}  // namespace SystemTest
