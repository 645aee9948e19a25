// SPDX-License-Identifier: Apache-2.0
#include "service_process.h"

#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "control/control_codes.h"
#include "ipc/server_codes.h"
#include "row.h"
#include "tavo/system_ability_manager_client.h"

namespace Bench {
namespace {

constexpr double START_SECONDS = 10;
constexpr double END_SECONDS = 10;

TAVO::sptr<TAVO::ISystemAbilityManager> Manager()
{
    TAVO::sptr<TAVO::ISystemAbilityManager> manager =
        TAVO::SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    if (manager == nullptr) {
        GiveUp("the manager is gone");
    }
    return manager;
}

}  // namespace

TAVO::AbilityDescription DescribeService()
{
    for (const TAVO::AbilityDescription& ability : Manager()->DescribeAbilities()) {
        if (ability.id == TAVO::Veltra::VELTRA_SERVER_SA_ID) {
            return ability;
        }
    }
    GiveUp("the manager does not know the service");
}

TAVO::sptr<TAVO::IRemoteObject> AwaitControl()
{
    for (const double start = Now(); Now() - start < START_SECONDS;) {
        if (auto control = Manager()->CheckAbility(TAVO::Veltra::VELTRA_CONTROL_SA_ID)) {
            return control;
        }
        ::sched_yield();
    }
    GiveUp("the control ability of the service is not registered");
}

void KillService()
{
    const pid_t pid = DescribeService().pid;
    if (pid == 0) {
        return;
    }
    const int process = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    if (process < 0 && errno == ESRCH) {
        return;  // It had ended already, and the manager has noticed it meanwhile.
    }
    ::kill(pid, SIGKILL);
    pollfd end{process, POLLIN, 0};
    if (process < 0 || ::poll(&end, 1, static_cast<int>(END_SECONDS * 1000)) != 1) {
        GiveUp("the service does not end");
    }
    ::close(process);
}

void EndService()
{
    KillService();
    for (const double start = Now();
         DescribeService().pid != 0 || Manager()->CheckAbility(TAVO::Veltra::VELTRA_SERVER_SA_ID) != nullptr;) {
        if (Now() - start > END_SECONDS) {
            GiveUp("the end of the service is not noticed");
        }
        ::sched_yield();
    }
}

double MemoryOf(pid_t process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string word; status >> word;) {
        double kibibytes = 0;
        if (word == "RssAnon:" && status >> kibibytes) {
            return kibibytes * 1024;
        }
    }
    GiveUp("cannot read the memory of the service");
}

double DescriptorsOf(pid_t process)
{
    std::error_code error;
    const std::filesystem::directory_iterator entries("/proc/" + std::to_string(process) + "/fd", error);
    if (error) {
        GiveUp("cannot read the descriptors of the service");
    }
    return static_cast<double>(std::distance(begin(entries), end(entries)));
}

}  // namespace Bench
