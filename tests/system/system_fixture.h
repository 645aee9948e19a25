// SPDX-License-Identifier: Apache-2.0
// A runtime directory of its own with a manager and the service; the test process is the client.
#ifndef VELTRA_TESTS_SYSTEM_SYSTEM_FIXTURE_H
#define VELTRA_TESTS_SYSTEM_SYSTEM_FIXTURE_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "platform/manager/manager_fixture.h"
#include "support/threads.h"
#include "tavo/iremote_object.h"
#include "veltra_server_client.h"

namespace SystemTest {

using ManagerTest::IsAlive;
using TAVO::Veltra::VeltraClient;
using TestSupport::Child;
using TestSupport::Clock;
using TestSupport::Threads;
using TestSupport::WaitFor;

// Well below the 8 s that a call waits for an answer and the 10 s that it waits for a load: a call that ends within it has
// waited for neither.
constexpr std::chrono::seconds SOON{6};

// Each test is a process of its own, so its platform first meets this directory. The manager, and with it the service,
// ends with the test.
class SystemFixture : public ManagerTest::ManagerFixture {
protected:
    SystemFixture();
    ~SystemFixture() override;

    // What the manager starts as the service, unless a process that it did not start serves first.
    void WriteAbility(const std::string& program, const std::vector<std::string>& arguments = {});
    // The real service, on the machine as recorded under this name.
    void WriteRealAbility(const std::string& machine);
    // The real service with the example catalogue, playing this scenario (the text of its file) 20 times as fast.
    void WriteScenario(const std::string& scenario);
    // Starts the manager; the service plays a level of 0 and 4 in turns, each for longer than the second between two
    // looks at the device, so that events keep coming, and batches of four samples.
    void StartStory();

    // Returns once its socket is there; this process has made no contact with it then.
    void StartManager();
    void KillManager();
    Child& Manager() { return manager_; }
    // A process of its own that serves in place of the real service, as test_service.cpp says; already registered.
    Child StartTestService();

    // The process that serves now, and how many this manager has started; 0 when it is unknown.
    pid_t ServicePid() const;
    int Starts() const;
    // Kills the service, and returns once the kernel has closed all that it held, and manager and this process know.
    void KillService();
    // What the manager names as the service, as far as this process knows; null: none.
    static TAVO::sptr<TAVO::IRemoteObject> ServiceObject();
    // Whether both come to know that this one is dead; until then calls may go to it.
    static bool IsKnownDead(const TAVO::sptr<TAVO::IRemoteObject>& object);
    // Whether the service answers again, however many calls fail before.
    bool IsServedAgain();

    std::string PathOf(const std::string& name) const { return RuntimePath() + "/" + name; }

    VeltraClient client_;

private:
    Child manager_;
};

// Whether this thread of this process waits in a system call.
bool IsAsleep(pid_t thread);

}  // namespace SystemTest

#endif
