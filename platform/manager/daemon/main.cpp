// SPDX-License-Identifier: Apache-2.0
// tavo_manager: finds services by number, starts them on demand, accepts their registrations. The start is a fixed
// order: signals are blocked before the first thread exists (threads inherit the mask), the ability files are read
// before the socket is claimed (a mistake on the command line must not disturb a running manager), the lock is taken
// before the socket is bound, and the socket gets its name only when requests can be answered. Then main waits for a
// signal; all work is done by the threads of the platform and of the registry.
#include <fcntl.h>
#include <getopt.h>
#include <signal.h>
#include <sys/auxv.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "manager/client/manager_log.h"
#include "manager/daemon/ability_file.h"
#include "manager/daemon/ability_registry.h"
#include "manager/daemon/admission.h"
#include "manager/daemon/manager_socket.h"
#include "manager/daemon/manager_stub.h"
#include "os/runtime_dir.h"
#include "transport/transport.h"

namespace {

using namespace TAVO;
using namespace TAVO::Manager;

constexpr int EXIT_CANNOT_START = 2;
constexpr const char* USAGE =
    "usage: tavo_manager [--runtime-dir DIR] [--abilities DIR]...\n"
    "Runs in the foreground until SIGTERM or SIGINT, which also end the services that it started.\n"
    "  --runtime-dir DIR  where its socket is; default $TAVO_RUNTIME_DIR, else $XDG_RUNTIME_DIR/tavo,\n"
    "                     else /run/user/UID/tavo; made if need be, must be yours with mode 0700\n"
    "  --abilities DIR    a folder of ability files (*.json); later folders override earlier ones. Default:\n"
    "                     " TAVO_ABILITIES_DIR
    " (from the program's folder), /etc/tavo/abilities,\n"
    "                     $XDG_CONFIG_HOME/tavo/abilities (else ~/.config/tavo/abilities)\n";

struct Options {
    std::string runtimeDir;
    std::vector<std::string> abilityDirs;
};

// Ends the process where the command line says so or makes no sense.
Options ReadOptions(int argc, char** argv)
{
    const option known[] = {{"runtime-dir", required_argument, nullptr, 'r'},
                            {"abilities", required_argument, nullptr, 'a'},
                            {"help", no_argument, nullptr, 'h'},
                            {"version", no_argument, nullptr, 'v'},
                            {nullptr, 0, nullptr, 0}};
    Options options;
    for (int choice = 0; (choice = ::getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        switch (choice) {
            case 'r':
                if (*optarg == '\0') {
                    std::fprintf(stderr, "tavo_manager: --runtime-dir needs a path\n%s", USAGE);
                    std::exit(EXIT_CANNOT_START);
                }
                // Services get this path in their environment and may have another working directory.
                options.runtimeDir = std::filesystem::absolute(optarg).string();
                break;
            case 'a':
                options.abilityDirs.emplace_back(optarg);
                break;
            case 'h':
                std::fputs(USAGE, stdout);
                std::exit(0);
            case 'v':
                std::puts("tavo_manager " TAVO_VERSION);
                std::exit(0);
            default:
                std::fputs(USAGE, stderr);
                std::exit(EXIT_CANNOT_START);
        }
    }
    if (optind < argc) {
        std::fprintf(stderr, "tavo_manager: unexpected argument %s\n%s", argv[optind], USAGE);
        std::exit(EXIT_CANNOT_START);
    }
    if (options.runtimeDir.empty()) {
        options.runtimeDir = Transport::RuntimeDir::DefaultPath();
    }
    return options;
}

int Refuse(const std::string& why)
{
    std::fprintf(stderr, "tavo_manager: %s\n", why.c_str());
    return EXIT_CANNOT_START;
}

// Found from where the program lies, so that an installation may be moved as a whole. Without /proc that is the path by
// which it was started.
std::filesystem::path InstalledAbilities()
{
    // Not argv[0], which depends on how the manager was called.
    std::error_code noProc;
    std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", noProc);
    if (noProc) {
        program = std::filesystem::absolute(reinterpret_cast<const char*>(::getauxval(AT_EXECFN)));
    }
    return (program.parent_path() / TAVO_ABILITIES_DIR).lexically_normal();
}

// The user's folder; empty when the environment names none.
std::filesystem::path UserAbilities()
{
    const auto absolute = [](const char* name) {
        const char* const value = std::getenv(name);
        return value != nullptr && value[0] == '/' ? std::filesystem::path(value) : std::filesystem::path();
    };
    std::filesystem::path config = absolute("XDG_CONFIG_HOME");
    if (config.empty() && !absolute("HOME").empty()) {
        config = absolute("HOME") / ".config";
    }
    return config.empty() ? config : config / "tavo/abilities";
}

// Those of the command line, else the default ones that may exist: the vendor's, the administrator's, the user's.
std::vector<std::string> AbilityFolders(const Options& options)
{
    if (!options.abilityDirs.empty()) {
        return options.abilityDirs;
    }
    std::vector<std::string> folders;
    for (const std::filesystem::path& folder :
         {InstalledAbilities(), std::filesystem::path("/etc/tavo/abilities"), UserAbilities()}) {
        std::error_code unknown;  // whether it exists: then reading it leaves a warning
        if (std::filesystem::exists(folder, unknown) || unknown) {
            folders.push_back(folder.string());
        }
    }
    return folders;
}

// False only when a folder of the command line cannot be read.
bool ReadAbilities(const Options& options, AbilityFiles& files, std::string& error)
{
    // A folder that the user named and that cannot be read is a mistake of the command line; a default folder may be
    // broken by another package.
    const bool isDefault = options.abilityDirs.empty();
    for (const std::string& path : AbilityFolders(options)) {
        const AbilityFolder folder = ReadAbilityFolder(path, files);
        for (const std::string& fault : folder.faults) {
            Log(SCRIVO_ERROR, "%{public}s. This ability is disabled; correct the file and restart the manager",
                fault.c_str());
        }
        if (!folder.error.empty() && !isDefault) {
            error = folder.error + "; name a folder of ability files";
            return false;
        }
        if (!folder.error.empty()) {
            Log(SCRIVO_WARN, "%{public}s. Its files are ignored; make it readable and restart the manager",
                folder.error.c_str());
        } else if (folder.fileCount == 0 && !isDefault) {
            Log(SCRIVO_WARN,
                "ability folder %{public}s has no ability file (*.json). Add one, or correct --abilities and restart "
                "the manager",
                path.c_str());
        }
    }
    if (files.empty() && isDefault) {
        Log(SCRIVO_WARN,
            "there is no ability file, so no service can be started. Add one to %{public}s, /etc/tavo/abilities or "
            "%{public}s and restart the manager",
            InstalledAbilities().c_str(), UserAbilities().c_str());
    }
    return true;
}

// Launchers leave behind what services and the platform's descriptors must not inherit or replace.
void ResetInherited()
{
    ::signal(SIGCHLD, SIG_DFL);  // If it is ignored, the kernel reaps services itself and their pids are used again.
    for (int fd = 0; fd >= 0 && fd <= STDERR_FILENO;) {
        fd = ::open("/dev/null", O_RDWR);  // takes the lowest free descriptor
        if (fd > STDERR_FILENO) {
            ::close(fd);
        }
    }
}

// Each client costs the manager a few descriptors.
void RaiseDescriptorLimit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        // Services inherit the raised limit.
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

// Blocked in every thread, so that only main takes them.
sigset_t BlockEndSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    struct sigaction hangUp {};
    ::sigaction(SIGHUP, nullptr, &hangUp);
    if (hangUp.sa_handler != SIG_IGN) {  // nohup ignores it
        sigaddset(&signals, SIGHUP);
    }
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    ::signal(SIGPIPE, SIG_IGN);  // The reader of stderr may have ended.
    return signals;
}

int Run(const Options& options)
{
    ResetInherited();
    ScrivoActAsDaemon();
    const sigset_t endSignals = BlockEndSignals();
    RaiseDescriptorLimit();
    // For the platform in this process and for every service that is started.
    ::setenv("TAVO_RUNTIME_DIR", options.runtimeDir.c_str(), 1);

    std::string error;
    AbilityFiles files;
    if (!ReadAbilities(options, files, error)) {
        return Refuse(error);
    }
    // Deliberate: never destroyed. Threads of the platform may still use them while the process exits.
    static auto& dir = *new Transport::RuntimeDir(Transport::RuntimeDir::Open(options.runtimeDir, true, error));
    if (!dir.IsOpen()) {
        return Refuse(error);
    }
    static auto& socket = *new ManagerSocket(dir);
    if (!socket.Claim(error)) {
        return Refuse(error);
    }
    static auto& admission = *new Admission(dir, files);
    static auto& registry = *new AbilityRegistry(dir, std::move(files));
    if (!registry.Begin()) {
        return Refuse("the system has no thread left; raise the limit of processes (ulimit -u)");
    }
    Transport::ServeAsManager(socket.ReleaseListener(), new ManagerStub(registry),
                              [](int pid, int fd, size_t sessions) { return admission.Admits(pid, fd, sessions); });
    if (!socket.Publish(error)) {
        return Refuse(error);
    }
    Log(SCRIVO_INFO, "manager of %{public}s", options.runtimeDir.c_str());

    int signal = 0;
    ::sigwait(&endSignals, &signal);
    Log(SCRIVO_INFO, "signal %{public}d: the manager ends, and its services with it", signal);
    // First the name: clients that come now see "no manager" instead of a connection that ends.
    socket.Remove();
    registry.StopServices();
    // Deliberate: workers may still be ending the lanes of those services; nothing is to be taken down under them.
    std::_Exit(0);
}

}  // namespace

int main(int argc, char** argv)
try {
    return Run(ReadOptions(argc, argv));
} catch (const std::filesystem::filesystem_error& fault) {
    return Refuse(fault.path1().string() + ": " + fault.code().message());
} catch (const std::exception&) {
    return Refuse("out of memory");
}
