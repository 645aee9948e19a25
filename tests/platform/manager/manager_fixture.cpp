// SPDX-License-Identifier: Apache-2.0
// Ability files, notes and the fifo of the test services lie in the runtime directory, and go with it.
#include "platform/manager/manager_fixture.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/manager/ability_client.h"

namespace ManagerTest {

using TestSupport::Child;

ManagerFixture::ManagerFixture()
    : abilityPath_(runtimeDir_.Path() + "/abilities"),
      notesPath_(runtimeDir_.Path() + "/notes"),
      fifoPath_(runtimeDir_.Path() + "/fifo")
{
    std::filesystem::create_directory(abilityPath_);
    ::mkfifo(fifoPath_.c_str(), 0600);
    ::setenv("TEST_NOTES", notesPath_.c_str(), 1);
    ::setenv("TEST_FIFO", fifoPath_.c_str(), 1);
}

ManagerFixture::~ManagerFixture()
{
    for (const pid_t pid : Started()) {
        ::kill(pid, SIGKILL);
    }
}

void ManagerFixture::WriteAbility(int id, const std::string& how, bool isExternal)
{
    WriteAbility(id, "manager_test_service", {how, std::to_string(id)}, isExternal);
}

void ManagerFixture::WriteAbility(int id, const std::string& program, const std::vector<std::string>& arguments,
                                  bool isExternal)
{
    std::vector<std::string> command = TestSupport::ProgramCommand(program);
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::string list;
    for (auto argument = command.begin() + 1; argument != command.end(); ++argument) {
        list += (list.empty() ? "\"" : ", \"") + *argument + "\"";
    }
    const std::string text = std::to_string(id);
    WriteAbilityFile(text + ".json", R"({"id": )" + text + R"(, "program": ")" + command.front() +
                                         R"(", "arguments": [)" + list + R"(], "external": )" +
                                         (isExternal ? "true" : "false") + "}");
}

void ManagerFixture::WriteAbilityFile(const std::string& name, const std::string& json)
{
    std::ofstream(abilityPath_ + "/" + name) << json;
}

Child ManagerFixture::StartManager()
{
    Child manager = RunManager();
    const TAVO::sptr<TAVO::ISystemAbilityManager> before = lastManager_;
    const auto isNew = [this, &before] {
        lastManager_ = Manager();
        return lastManager_ != nullptr && lastManager_ != before;
    };
    EXPECT_TRUE(TestSupport::WaitFor(isNew)) << "no manager came up";
    return manager;
}

Child ManagerFixture::LaunchManager(const std::vector<std::string>& arguments)
{
    std::vector<std::string> command{"/bin/sh", "-c", "exec \"$@\" 2>&1", "sh"};
    const std::vector<std::string> program = TestSupport::ProgramCommand("tavo_manager");
    command.insert(command.end(), program.begin(), program.end());
    command.insert(command.end(), arguments.begin(), arguments.end());
    return Child::Start(command);
}

Child ManagerFixture::StartExternal()
{
    Child service = StartClient();
    EXPECT_EQ(service.Ask("add 4711"), Status(TAVO::ABILITY_OK));
    return service;
}

void ManagerFixture::Crash(Child& manager)
{
    manager.Kill();
    EXPECT_EQ(manager.WaitForExit(), "signal 9");
}

std::vector<pid_t> ManagerFixture::Started() const
{
    std::vector<pid_t> pids;
    std::ifstream notes(notesPath_);
    for (pid_t pid = 0; notes >> pid;) {
        pids.push_back(pid);
    }
    return pids;
}

void ManagerFixture::NotifyServices()
{
    const int fifo = ::open(fifoPath_.c_str(), O_WRONLY | O_CLOEXEC);  // Waits until a service listens.
    ::close(fifo);
}

char StateIn(const std::filesystem::path& folder)
{
    std::ifstream file(folder / "stat");
    std::string text;
    std::getline(file, text);
    const size_t nameEnd = text.rfind(") ");
    return nameEnd == std::string::npos ? '\0' : text[nameEnd + 2];
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

bool WaitUntilDead(pid_t pid)
{
    return TestSupport::WaitFor([pid] { return !IsAlive(pid); });
}

bool StopAndWait(pid_t pid)
{
    ::kill(pid, SIGSTOP);
    return TestSupport::WaitFor([pid] {
        const std::filesystem::directory_iterator threads("/proc/" + std::to_string(pid) + "/task");
        return std::all_of(begin(threads), end(threads), [](const auto& it) { return StateIn(it.path()) == 'T'; });
    });
}

}  // namespace ManagerTest
