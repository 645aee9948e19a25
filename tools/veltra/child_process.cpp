// SPDX-License-Identifier: Apache-2.0
// Starts, awaits and ends one process. Between fork and exec only system calls run, because the platform's threads may
// hold any lock at that moment.
#include "child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

namespace VeltraTool {

namespace {

constexpr std::chrono::seconds END_LIMIT{3};
constexpr int NOT_EXECUTED = 127;

// Pointers to the texts, and a null behind them, as execve needs them.
std::vector<char*> Pointers(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> EnvironmentWith(const Environment& added)
{
    std::vector<std::string> all;
    for (char** own = environ; *own != nullptr; ++own) {
        bool isReplaced = false;
        for (const auto& [name, value] : added) {
            isReplaced = isReplaced || std::strncmp(*own, (name + "=").c_str(), name.size() + 1) == 0;
        }
        if (!isReplaced) {
            all.emplace_back(*own);
        }
    }
    for (const auto& [name, value] : added) {
        all.push_back(name + "=" + value);
    }
    return all;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command, const Environment& environment,
                           const std::string& output)
{
    // All memory is allocated before the fork: the child of a process with threads must not.
    std::vector<std::string> words = command;
    std::vector<std::string> variables = EnvironmentWith(environment);
    const std::vector<char*> arguments = Pointers(words);
    const std::vector<char*> all = Pointers(variables);
    const pid_t parent = ::getpid();
    const int file = ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (file < 0) {
        return;
    }
    const pid_t child = ::fork();
    if (child == 0) {
        // The child ends with the tool, also if that is killed. It may have died before this call, hence the check of
        // getppid below.
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        // The tool may block signals, which would stay blocked.
        sigset_t none;
        sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        const int null = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (::getppid() != parent || ::dup2(null, STDIN_FILENO) < 0 || ::dup2(file, STDOUT_FILENO) < 0 ||
            ::dup2(file, STDERR_FILENO) < 0) {
            ::_exit(NOT_EXECUTED);
        }
        ::execve(arguments[0], arguments.data(), all.data());
        ::_exit(NOT_EXECUTED);
    }
    // The parent's copy; the child has its own.
    ::close(file);
    pid_ = child > 0 ? child : 0;
}

ChildProcess::~ChildProcess()
{
    if (pid_ == 0 || status_) {
        return;
    }
    ::kill(pid_, SIGTERM);
    // SIGTERM first: a manager then ends its services too.
    if (!Wait(END_LIMIT)) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
}

std::optional<int> ChildProcess::Wait(std::chrono::milliseconds limit)
{
    if (status_ || pid_ == 0) {
        return status_;
    }
    // Until waitpid has reaped it, the pid is surely this child's.
    const int process = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
    pollfd ended{process, POLLIN, 0};
    const bool hasEnded = process >= 0 && ::poll(&ended, 1, static_cast<int>(limit.count())) == 1;
    ::close(process);
    int status = 0;
    if (hasEnded && ::waitpid(pid_, &status, 0) == pid_) {
        // As shells report a signal.
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return status_;
}

}  // namespace VeltraTool
