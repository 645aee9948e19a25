// SPDX-License-Identifier: Apache-2.0
// How long the first call takes when the service is down, from its start by the manager to the answer, beside the
// start of a program that is linked as the service is and answers at once. All on one processor: where the scheduler
// puts three processes that wake each other for the first time differs from run to run by more than is measured here.
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "platform.h"
#include "row.h"
#include "service_process.h"
#include "veltra_server_client.h"

extern char** environ;

namespace {

constexpr int ROUNDS = 301;  // with a fifth of them the ratio of two runs differs by 0.04

double FirstCall()
{
    Bench::EndService();
    TAVO::Veltra::VeltraClient client;
    if (client.CallAuth("first") == TAVO::Veltra::RESULT_NO_SERVICE) {
        Bench::GiveUp("the service was not started");
    }
    const double answered = Bench::Now();
    return (answered - static_cast<double>(Bench::DescribeService().startedAt) * 1e-9) * 1e3;
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
