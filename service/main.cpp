// SPDX-License-Identifier: Apache-2.0
// veltra_server: registers the service with the ability manager and serves until a signal ends it. A game may be
// blocked on this start, so everything that is not needed for the first answer is done later: default configuration
// files, the sensors and the GPU library at their first use, the control side after 100 ms. Files named by an option
// are read before the registration, because a mistake in them ends the program.
#include <malloc.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <tavo/system_ability_manager_client.h>

#include "base/service_log.h"
#include "explain.h"
#include "ipc/server_codes.h"
#include "service_options.h"
#include "veltra_control.h"
#include "veltra_service.h"

namespace TAVO::Veltra {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds MANAGER_WAIT{5};
constexpr timespec ATTEMPT_PAUSE{0, 50000000};  // 50 ms
// The control side is registered when the first call that has caused the start has surely been answered.
constexpr timespec CONTROL_DELAY{0, 100000000};  // 100 ms
constexpr timespec CONTROL_RETRY{2, 0};

// The signals that end the process. Blocked before the first thread starts, so that only main takes them.
sigset_t EndSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    return signals;
}

// Each client costs a few descriptors; the soft limit is often 1024.
void RaiseDescriptorLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

bool IsFolder(const std::string& path)
{
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

int32_t TryRegister(int32_t ability, const sptr<IRemoteObject>& service)
{
    const sptr<ISystemAbilityManager> manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    return manager == nullptr ? static_cast<int32_t>(ABILITY_UNREACHABLE) : manager->AddAbility(ability, service);
}

const char* Explain(int32_t status)
{
    switch (status) {
        case ABILITY_REFUSED:
            return "the manager does not accept this process; let the manager start it, or set \"external\": true in "
                   "the "
                   "ability file";
        case ABILITY_TAKEN:
            return "another process serves it already; end that one first";
        case ABILITY_UNREACHABLE:
            return "no manager answered within 5 s; start tavo_manager, or see the lines above";
        default:
            return "the manager refused it; its log names the reason";
    }
}

// Registers, waiting a while for a manager that is not there yet. Empty when an end signal came meanwhile.
std::optional<int32_t> Register(const sptr<IRemoteObject>& service, const sigset_t& endSignals)
{
    const Clock::time_point deadline = Clock::now() + MANAGER_WAIT;
    for (bool isFirst = true;; isFirst = false) {
        // Never only once: a process that was suspended in its first attempt has no time left and was not refused.
        const int32_t status = TryRegister(VELTRA_SERVER_SA_ID, service);
        if (status != ABILITY_UNREACHABLE || (!isFirst && Clock::now() >= deadline)) {
            return status;
        }
        if (sigtimedwait(&endSignals, nullptr, &ATTEMPT_PAUSE) > 0) {
            return std::nullopt;
        }
    }
}

// Registers the control side a moment after the service, and serves both. Without it games are served all the same.
// Gives the signal that ends the process.
int AwaitEnd(const sptr<VeltraService>& service, const sigset_t& endSignals)
{
    const sptr<VeltraControl> control(new VeltraControl(service));
    for (const timespec* pause = &CONTROL_DELAY;; pause = &CONTROL_RETRY) {
        // Waits and listens for the end in one call, without a thread or a timer.
        const int signal = sigtimedwait(&endSignals, nullptr, pause);
        if (signal > 0) {
            return signal;
        }
        // Once it has succeeded, the library registers it again with each later manager.
        const int32_t status = TryRegister(VELTRA_CONTROL_SA_ID, control->AsObject());
        if (status != ABILITY_UNREACHABLE) {
            if (status != ABILITY_OK) {
                VELTRA_SERVICE_LOGW(
                    "tools cannot reach this service: ability %d cannot be registered (status %d); "
                    "install share/tavo/abilities/66007.json and restart the manager",
                    VELTRA_CONTROL_SA_ID, status);
            }
            break;
        }
    }
    int signal = 0;
    sigwait(&endSignals, &signal);
    return signal;
}

// Reads the files that the options name; empty, and said why, when one of them is no good.
std::optional<ServiceSetup> SetUp(const ServiceOptions& options)
{
    ServiceSetup setup;
    setup.rootDir = options.rootDir;
    setup.allowsSimulation = options.allowsSimulation;
    // The speed is the scenario's; without one the service's intervals are real seconds.
    setup.speed = options.scenarioFile.empty() ? 1 : options.speed;
    try {
        if (!options.configFile.empty()) {
            setup.config.Read(options.configFile);
        } else if (options.explains) {
            for (const std::string& file : DefaultConfigFiles(options.rootDir)) {
                setup.config.Read(file);
            }
        } else {
            setup.lateConfigFiles = [root = options.rootDir] { return DefaultConfigFiles(root); };
        }
        if (!options.scenarioFile.empty()) {
            setup.scenario = std::make_shared<Scenario>(Scenario::Load(options.scenarioFile, options.seed));
        }
        if (!options.catalogueFile.empty()) {
            setup.catalogue = Catalogue::Load(options.catalogueFile);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "veltra_server: %s\n", error.what());
        return std::nullopt;
    }
    return setup;
}

int Serve(const ServiceOptions& options)
{
    ScrivoActAsDaemon();
    // One heap for all threads, which would each make one of their own in the first request that they see.
    // An arena of its own would also keep the free memory of one thread from the others.
    mallopt(M_ARENA_MAX, 1);
    const sigset_t endSignals = EndSignals();
    sigprocmask(SIG_BLOCK, &endSignals, nullptr);
    RaiseDescriptorLimit();
    if (!options.runtimeDir.empty()) {
        setenv("TAVO_RUNTIME_DIR", std::filesystem::absolute(options.runtimeDir).c_str(), 1);
    }
    if (!IsFolder(options.rootDir)) {
        std::fprintf(stderr, "veltra_server: --root %s is no folder; name one that contains sys and proc\n",
                     options.rootDir.c_str());
        return ServiceOptions::EXIT_REFUSED;
    }
    std::optional<ServiceSetup> setup = SetUp(options);
    if (!setup) {
        return ServiceOptions::EXIT_REFUSED;
    }
    if (options.explains) {
        if (std::fputs(ExplainMachine(setup->rootDir, setup->config).c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
            std::fprintf(stderr, "veltra_server: cannot write the explanation: %s\n",
                         std::generic_category().message(errno).c_str());
            return ServiceOptions::EXIT_REFUSED;
        }
        return ServiceOptions::EXIT_DONE;
    }
    const sptr<VeltraService> service(new VeltraService(std::move(*setup)));
    const std::optional<int32_t> status = Register(service->AsObject(), endSignals);
    if (!status) {
        return ServiceOptions::EXIT_DONE;
    }
    if (*status != ABILITY_OK) {
        std::fprintf(stderr, "veltra_server: cannot register ability %d: %s\n", VELTRA_SERVER_SA_ID, Explain(*status));
        return ServiceOptions::EXIT_REFUSED;
    }
    VELTRA_SERVICE_LOGI("ended by signal %d", AwaitEnd(service, endSignals));
    // Deliberate: workers may still run requests, which must not see the service or static objects go.
    std::_Exit(ServiceOptions::EXIT_DONE);
}

}  // namespace

}  // namespace TAVO::Veltra

int main(int argc, char** argv)
try {
    using TAVO::Veltra::ServiceOptions;
    int exitCode = 0;
    const std::optional<ServiceOptions> options = ServiceOptions::Parse(argc, argv, exitCode);
    return options ? TAVO::Veltra::Serve(*options) : exitCode;
} catch (const std::system_error& error) {
    std::fprintf(stderr, "veltra_server: cannot start: %s; free memory, or raise the limit of processes (ulimit -u)\n",
                 error.code().message().c_str());
    return TAVO::Veltra::ServiceOptions::EXIT_REFUSED;
} catch (const std::exception&) {
    std::fprintf(stderr, "veltra_server: out of memory\n");
    return TAVO::Veltra::ServiceOptions::EXIT_REFUSED;
}
