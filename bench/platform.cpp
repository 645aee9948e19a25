// SPDX-License-Identifier: Apache-2.0
// Starts and ends the manager of a benchmark. A benchmark may be ended by a signal at any time: the kernel then ends its
// manager, which ends its services, and the runtime directory stays until the next benchmark makes its own. The name of
// the directory has the process that owns it.
#include "platform.h"

#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include "row.h"
#include "tavo/system_ability_manager_client.h"

namespace Bench {
namespace {

constexpr double START_SECONDS = 10;
constexpr std::string_view DIR_PREFIX = "veltra_bench.";  // before the owner's process id

std::string g_dir;
pid_t g_manager = 0;
pid_t g_owner = 0;  // of both: a forked process leaves them alone

// The process in the name of a runtime directory; 0 for any other name.
pid_t OwnerOf(std::string_view name)
{
    pid_t owner = 0;
    if (name.substr(0, DIR_PREFIX.size()) != DIR_PREFIX) {
        return 0;
    }
    const char* const end = name.data() + name.size();
    const auto [behind, error] = std::from_chars(name.data() + DIR_PREFIX.size(), end, owner);
    return error == std::errc() && behind != end && *behind == '.' ? owner : 0;
}

void RemoveStaleDirs(const char* parent)
{
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(parent, ignored)) {
        const pid_t owner = OwnerOf(entry.path().filename().string());
        if (owner > 0 && ::kill(owner, 0) != 0 && errno == ESRCH) {
            std::filesystem::remove_all(entry.path(), ignored);
        }
    }
}

// Runtime directories lie in memory everywhere else too: a disk takes many times as long to make a socket's name.
bool MakeDir(const char* parent)
{
    RemoveStaleDirs(parent);
    g_dir = std::string(parent) + '/' + std::string(DIR_PREFIX) + std::to_string(::getpid()) + ".XXXXXX";
    return ::mkdtemp(g_dir.data()) != nullptr;
}

// The manager ends with the calling process, also when that is killed.
pid_t StartManager(const char* program, char* const* arguments)
{
    const pid_t owner = ::getpid();
    const pid_t manager = ::fork();
    if (manager == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        // The owner may have ended before that call.
        if (::getppid() == owner) {
            ::execv(program, arguments);
        }
        ::_exit(127);
    }
    return manager;
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
    g_manager = StartManager(program.c_str(), arguments);
    if (g_manager < 0) {
        GiveUp("cannot start tavo_manager");
    }
    Pin(ownProcessor);
    for (const double start = Now();
         TAVO::SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager() == nullptr;) {
        if (Now() - start > START_SECONDS) {
            GiveUp("tavo_manager does not answer");
        }
        if (::waitpid(g_manager, nullptr, WNOHANG) != 0) {
            g_manager = 0;
            GiveUp("tavo_manager cannot be executed, or has ended");
        }
        ::sched_yield();
    }
}

Platform::~Platform()
{
    End();
}

}  // namespace Bench
