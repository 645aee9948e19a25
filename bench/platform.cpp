// SPDX-License-Identifier: Apache-2.0
// Starts and ends the manager of a benchmark.
#include "platform.h"

#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "row.h"
#include "tavo/system_ability_manager_client.h"

extern char** environ;

namespace Bench {
namespace {

constexpr double START_SECONDS = 10;

std::string g_dir;
pid_t g_manager = 0;
pid_t g_owner = 0;  // of both: a forked process leaves them alone

// Runtime directories lie in memory everywhere else too: a disk takes many times as long to make a socket's name.
bool MakeDir(const char* parent)
{
    g_dir = std::string(parent) + "/veltra_bench.XXXXXX";
    return ::mkdtemp(g_dir.data()) != nullptr;
}

void End()
{
    if (::getpid() != g_owner) {
        return;
    }
    if (g_manager > 0) {
        ::kill(g_manager, SIGTERM);
        ::waitpid(g_manager, nullptr, 0);
    }
    g_manager = 0;
    std::error_code ignored;
    std::filesystem::remove_all(g_dir, ignored);
}

}  // namespace

void Pin(int processor)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    if (processor == EITHER_PROCESSOR) {
        CPU_SET(0, &set);
        CPU_SET(1, &set);
    } else {
        CPU_SET(processor, &set);
    }
    if (::sched_setaffinity(0, sizeof(set), &set) != 0) {
        GiveUp("cannot run on the processor asked for");
    }
}

void MakeRuntimeDir()
{
    if (!g_dir.empty()) {
        return;
    }
    if (!MakeDir("/dev/shm") && !MakeDir(VELTRA_BIN_DIR "/..")) {
        GiveUp("cannot make a runtime directory in memory or in the build folder");
    }
    g_owner = ::getpid();
    std::atexit(End);
    ::setenv("TAVO_RUNTIME_DIR", g_dir.c_str(), 1);
}

Platform::Platform(int managerProcessor, int ownProcessor, Service service)
{
    MakeRuntimeDir();
    Pin(managerProcessor);
    std::string program = VELTRA_BIN_DIR "/tavo_manager";
    std::string option = "--abilities";
    std::string abilities = service == Service::REAL ? VELTRA_BIN_DIR "/../share/tavo/abilities" : BENCH_ABILITIES_DIR;
    char* const arguments[] = {program.data(), option.data(), abilities.data(), nullptr};
    if (::posix_spawn(&g_manager, program.c_str(), nullptr, nullptr, arguments, environ) != 0) {
        GiveUp("cannot start tavo_manager");
    }
    Pin(ownProcessor);
    for (const double start = Now();
         TAVO::SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager() == nullptr;) {
        if (Now() - start > START_SECONDS) {
            GiveUp("tavo_manager does not answer");
        }
        ::sched_yield();
    }
}

Platform::~Platform()
{
    End();
}

}  // namespace Bench
