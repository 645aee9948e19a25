// SPDX-License-Identifier: Apache-2.0
// The ability file lies in the runtime directory, and goes with it.
#include "system/system_fixture.h"

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

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

SystemFixture::SystemFixture() : abilityPath_(PathOf("abilities"))
{
    std::filesystem::create_directory(abilityPath_);
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
    std::vector<std::string> command = TestSupport::ProgramCommand(program);
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::string list;
    for (auto argument = command.begin() + 1; argument != command.end(); ++argument) {
        list += (list.empty() ? "\"" : ", \"") + *argument + "\"";
    }
    std::ofstream(abilityPath_ + "/66006.json") << R"({"id": 66006, "program": ")" << command.front()
                                                << R"(", "arguments": [)" << list << R"(], "external": true})";
    std::ofstream(abilityPath_ + "/66007.json") << R"({"id": 66007, "external": true})";
}

void SystemFixture::WriteRealAbility(const std::string& machine)
{
    WriteAbility("veltra_server", {"--root", std::string(VELTRA_TEST_ROOTS) + "/" + machine});
}

void SystemFixture::WriteScenario(const std::string& scenario)
{
    std::ofstream(PathOf("scenario.json")) << scenario;
    WriteAbility("veltra_server", {"--scenario", PathOf("scenario.json"), "--speed", "20", "--catalogue",
                                   VELTRA_SHARE "/catalogue.json"});
}

void SystemFixture::StartManager()
{
    // A killed manager leaves its socket behind, which would pass for the new one's.
    std::filesystem::remove(PathOf("manager"));
    manager_ = Child::Start({"tavo_manager", "--abilities", abilityPath_});
    ASSERT_TRUE(WaitFor([this] { return std::filesystem::exists(PathOf("manager")); })) << "no manager came up";
}

void SystemFixture::KillManager()
{
    manager_.Kill();
    EXPECT_EQ(manager_.WaitForExit(), "signal 9");
}

Child SystemFixture::StartTestService()
{
    Child service = Child::Start({"system_test_service", "serve"});
    EXPECT_EQ(service.Pipe().Hear(), "serving");
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

bool IsAlive(pid_t pid)
{
    // Not by /proc: there a process looks ended while some of its threads still run and hold its sockets.
    const int process = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    pollfd entry{process, POLLIN, 0};
    const bool isAlive = process >= 0 && ::poll(&entry, 1, 0) == 0;
    ::close(process);
    return isAlive;
}

bool IsAsleep(pid_t thread)
{
    std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string text;
    std::getline(status, text);
    return text.find(") S ") != std::string::npos;
}

}  // namespace SystemTest
