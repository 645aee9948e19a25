// SPDX-License-Identifier: Apache-2.0
// Starts programs with posix_spawn: it does not copy the page tables of the manager, so a start takes the same time
// however much memory the manager has. The child begins with what a program may expect: no blocked or ignored signals,
// a session of its own, /dev/null as stdin, and no descriptor of the manager. The pidfd is opened before anything could
// reap the child, so it is surely this child.
#include "manager/daemon/spawn.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "manager/daemon/pidfd.h"

namespace TAVO::Manager {
namespace {

class SpawnAttributes {
public:
    SpawnAttributes()
    {
        posix_spawnattr_init(&attributes_);
        posix_spawn_file_actions_init(&actions_);
        sigset_t signals;
        sigemptyset(&signals);
        // The manager blocks SIGTERM, SIGINT and SIGHUP in all threads; a service that inherited that could not be
        // ended.
        posix_spawnattr_setsigmask(&attributes_, &signals);
        // All of them: the C library resets those that are named with one system call each, the others with two.
        sigset_t all;
        sigfillset(&all);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);
        // setsid above: a Ctrl-C in the terminal of the manager reaches the manager only, which then ends its services
        // in order.
        posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        // Descriptors that the manager's own launcher left open without close-on-exec.
        posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    }
    ~SpawnAttributes()
    {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    const posix_spawnattr_t* Attributes() const { return &attributes_; }
    const posix_spawn_file_actions_t* Actions() const { return &actions_; }

private:
    posix_spawnattr_t attributes_;
    posix_spawn_file_actions_t actions_;
};

std::vector<std::string> MergedEnvironment(const AbilityFile& ability)
{
    std::vector<std::string> merged;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        // Names of the ability file replace those of the manager: with both, getenv would find the first.
        if (ability.environment.count(text.substr(0, text.find('='))) == 0) {
            merged.push_back(text);
        }
    }
    for (const auto& [name, value] : ability.environment) {
        merged.push_back(name + "=" + value);
    }
    return merged;
}

std::vector<char*> Pointers(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

// 0 when the file exists and this user may execute it, else an errno value.
int WhyNotExecutable(const std::string& program)
{
    struct stat status {};
    if (::stat(program.c_str(), &status) != 0) {
        return errno;
    }
    if (S_ISDIR(status.st_mode)) {
        return EISDIR;
    }
    // AT_EACCESS: by the effective user, as execve checks it.
    return ::faccessat(AT_FDCWD, program.c_str(), X_OK, AT_EACCESS) == 0 ? 0 : errno;
}

}  // namespace

StartedProcess Spawn(const AbilityFile& ability)
{
    StartedProcess started;
    // Checked before posix_spawn, which does not say whether the program or its interpreter is missing.
    started.error = WhyNotExecutable(ability.program);
    if (started.error != 0) {
        return started;
    }
    std::vector<std::string> command{ability.program};
    command.insert(command.end(), ability.arguments.begin(), ability.arguments.end());
    std::vector<std::string> environment = MergedEnvironment(ability);
    const SpawnAttributes how;
    started.error = ::posix_spawn(&started.pid, ability.program.c_str(), how.Actions(), how.Attributes(),
                                  Pointers(command).data(), Pointers(environment).data());
    if (started.error != 0) {
        return started;
    }
    started.pidFd = Transport::OpenPidFd(started.pid);  // Surely this child: it is not reaped yet.
    if (!started.pidFd.IsOpen()) {
        started.error = errno;
        // Without a pidfd its end would not be noticed.
        ::kill(started.pid, SIGKILL);
        ::waitpid(started.pid, nullptr, 0);
    }
    return started;
}

}  // namespace TAVO::Manager
