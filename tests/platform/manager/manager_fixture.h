// SPDX-License-Identifier: Apache-2.0
// A runtime directory with ability files, and managers in it; also below the tests of the whole product.
#ifndef VELTRA_TESTS_PLATFORM_MANAGER_MANAGER_FIXTURE_H
#define VELTRA_TESTS_PLATFORM_MANAGER_MANAGER_FIXTURE_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/process.h"
#include "tavo/isystem_ability_manager.h"

namespace ManagerTest {

// Each test is a process of its own, so its platform first meets this directory. Services that a test leaves running
// are killed at its end.
class ManagerFixture : public ::testing::Test {
public:
    ~ManagerFixture() override;

protected:
    static constexpr int ID = 4711;

    ManagerFixture();

    // Says how `id` is started: as the test service that behaves like `how`, or by any program. Any process may serve an
    // external one without having been started.
    void WriteAbility(int id, const std::string& how, bool isExternal = false);
    void WriteAbility(int id, const std::string& program, const std::vector<std::string>& arguments, bool isExternal);
    void WriteAbilityFile(const std::string& name, const std::string& json);

    // Starts a manager and returns once this process has a session with it; fails the test when it cannot.
    TestSupport::Child StartManager();
    // The same without waiting.
    TestSupport::Child RunManager() const
    {
        return TestSupport::Child::Start({"tavo_manager", "--abilities", abilityPath_});
    }
    // One with any arguments, its stderr in its pipe.
    TestSupport::Child LaunchManager(const std::vector<std::string>& arguments = {});
    TestSupport::Child StartClient() { return TestSupport::Child::Start({"manager_test_service"}); }
    // A client that registers itself as ID, which its file has to allow.
    TestSupport::Child StartExternal();
    static void Crash(TestSupport::Child& manager);

    // The processes that test services noted, in the order of their starts.
    std::vector<pid_t> Started() const;
    // Lets the services that wait for it continue.
    void NotifyServices();

    const std::string& RuntimePath() const { return runtimeDir_.Path(); }
    const std::string& AbilityPath() const { return abilityPath_; }

private:
    TestSupport::PrivateRuntimeDir runtimeDir_;
    const std::string abilityPath_;
    const std::string notesPath_;
    const std::string fifoPath_;
    TAVO::sptr<TAVO::ISystemAbilityManager> lastManager_;  // of the session with the manager started last
};

// False once all its threads have ended, even if it is not reaped yet.
bool IsAlive(pid_t pid);
bool WaitUntilDead(pid_t pid);
// What the kernel shows in the folder of a process or a thread: 'R', 'S', 'T', 'Z' and so on; 0 when there is none.
char StateIn(const std::filesystem::path& folder);
// Stops a process that is no child; true once none of its threads runs any more.
bool StopAndWait(pid_t pid);

}  // namespace ManagerTest

#endif
