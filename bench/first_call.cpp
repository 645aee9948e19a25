// SPDX-License-Identifier: Apache-2.0
// How long the first call takes when the service is down, from its start by the manager to the answer, beside the
// start of a program that is linked as the service is and answers at once. All on one processor: where the scheduler
// puts three processes that wake each other for the first time differs from run to run by more than is measured here.
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "ipc/server_codes.h"
#include "platform.h"
#include "row.h"
#include "tavo/system_ability_manager_client.h"
#include "veltra_server_client.h"

extern char** environ;

namespace {

constexpr int ROUNDS = 301;  // with a fifth of them the ratio of two runs differs by 0.04
constexpr double END_SECONDS = 10;

// The service as the manager knows it.
TAVO::AbilityDescription DescribeService()
{
    const auto manager = TAVO::SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    if (manager == nullptr) {
        Bench::GiveUp("the manager is gone");
    }
    for (const TAVO::AbilityDescription& ability : manager->DescribeAbilities()) {
        if (ability.id == TAVO::Veltra::VELTRA_SERVER_SA_ID) {
            return ability;
        }
    }
    Bench::GiveUp("the manager does not know the service");
}

// Returns once the process has ended and both the manager and this process know it: the next call starts another.
void EndService()
{
    const auto manager = TAVO::SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    const pid_t pid = DescribeService().pid;
    if (pid == 0) {
        return;
    }
    const int process = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    ::kill(pid, SIGKILL);
    pollfd end{process, POLLIN, 0};
    if (process < 0 || ::poll(&end, 1, static_cast<int>(END_SECONDS * 1000)) != 1) {
        Bench::GiveUp("the service does not end");
    }
    ::close(process);
    for (const double start = Bench::Now();
         DescribeService().pid != 0 || manager->CheckAbility(TAVO::Veltra::VELTRA_SERVER_SA_ID) != nullptr;) {
        if (Bench::Now() - start > END_SECONDS) {
            Bench::GiveUp("the end of the service is not noticed");
        }
        ::sched_yield();
    }
}

double FirstCall()
{
    EndService();
    TAVO::Veltra::VeltraClient client;
    if (client.CallAuth("first") == TAVO::Veltra::RESULT_NO_SERVICE) {
        Bench::GiveUp("the service was not started");
    }
    const double answered = Bench::Now();
    return (answered - static_cast<double>(DescribeService().startedAt) * 1e-9) * 1e3;
}

double FirstAnswer()
{
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
        Bench::GiveUp("cannot make a socket pair");
    }
    std::string program = VELTRA_BIN_DIR "/bench_first_answer";
    char* const arguments[] = {program.data(), nullptr};
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, pair[1], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, pair[1], STDOUT_FILENO);
    pid_t child = 0;
    char byte = 0;
    const double start = Bench::Now();
    if (::posix_spawn(&child, program.c_str(), &actions, nullptr, arguments, environ) != 0 ||
        ::recv(pair[0], &byte, 1, 0) != 1) {
        Bench::GiveUp("bench_first_answer does not answer");
    }
    const double milliseconds = (Bench::Now() - start) * 1e3;
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(pair[0]);
    ::close(pair[1]);
    ::waitpid(child, nullptr, 0);
    return milliseconds;
}

}  // namespace

int main()
{
    Bench::Platform platform(0, 0);
    Bench::MeasureAndPrint({"first_call", "ms", 1.3}, ROUNDS, FirstCall, FirstAnswer);
    return 0;
}
