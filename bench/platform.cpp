// SPDX-License-Identifier: Apache-2.0
// Starts and ends the manager of a benchmark.
#include "platform.h"

#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "row.h"
#include "tavo/system_ability_manager_client.h"

extern char** environ;

namespace Bench {
namespace {

constexpr double START_SECONDS = 10;

[[noreturn]] void Give(const char* what)
{
    std::fprintf(stderr, "bench: %s\n", what);
    std::exit(1);
}

}  // namespace

void Pin(int processor)
{
    if (processor == ANYWHERE) {
        return;
    }
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(processor, &set);
    if (::sched_setaffinity(0, sizeof(set), &set) != 0) {
        Give("cannot run on the processor asked for");
    }
}

Platform::Platform(int managerProcessor, int ownProcessor, Service service)
{
    dir_ = std::string(VELTRA_BIN_DIR) + "/../bench.XXXXXX";
    if (::mkdtemp(dir_.data()) == nullptr) {
        Give("cannot make a runtime directory in the build folder");
    }
    ::setenv("TAVO_RUNTIME_DIR", dir_.c_str(), 1);
    Pin(managerProcessor);
    std::string program = VELTRA_BIN_DIR "/tavo_manager";
    std::string option = "--abilities";
    std::string abilities = service == Service::REAL ? VELTRA_BIN_DIR "/../share/tavo/abilities" : BENCH_ABILITIES_DIR;
    char* const arguments[] = {program.data(), option.data(), abilities.data(), nullptr};
    if (::posix_spawn(&manager_, program.c_str(), nullptr, nullptr, arguments, environ) != 0) {
        Give("cannot start tavo_manager");
    }
    Pin(ownProcessor);
    for (const double start = Now();
         TAVO::SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager() == nullptr;) {
        if (Now() - start > START_SECONDS) {
            Give("tavo_manager does not answer");
        }
        ::sched_yield();
    }
}

Platform::~Platform()
{
    ::kill(manager_, SIGTERM);
    ::waitpid(manager_, nullptr, 0);
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
}

}  // namespace Bench
