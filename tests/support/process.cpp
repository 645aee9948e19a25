// SPDX-License-Identifier: Apache-2.0
// Starts, steers and counts processes; every wait has a deadline.
#include "support/process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace TestSupport {
namespace {

[[noreturn]] void Fail(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

std::string StatusField(pid_t pid, const std::string& field)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.compare(0, field.size(), field) == 0) {
            return line.substr(field.size());
        }
    }
    return "0";
}

}  // namespace

void OwnedFd::Close()
{
    if (fd_ >= 0) {
        ::close(std::exchange(fd_, -1));
    }
}

bool PollUntil(int fd, short events, Clock::time_point deadline)
{
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd entry{fd, events, 0};
        const int ready = ::poll(&entry, 1, left > 0 ? static_cast<int>(left) : 0);
        if (ready >= 0 || errno != EINTR) {
            return ready > 0;
        }
    }
}

bool LinePipe::Send(const std::string& line)
{
    const std::string text = line + '\n';
    for (size_t sent = 0; sent < text.size();) {
        const ssize_t put = ::send(socket_.Get(), text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (put < 0 && errno != EINTR) {
            return false;
        }
        sent += static_cast<size_t>(std::max<ssize_t>(put, 0));
    }
    return true;
}

void LinePipe::CloseWriting()
{
    ::shutdown(socket_.Get(), SHUT_WR);
}

std::optional<std::string> LinePipe::Receive(Clock::duration timeout)
{
    const Clock::time_point deadline = Clock::now() + timeout;
    for (;;) {
        if (const size_t end = pending_.find('\n'); end != std::string::npos) {
            std::string line = pending_.substr(0, end);
            pending_.erase(0, end + 1);
            return line;
        }
        if (!PollUntil(socket_.Get(), POLLIN, deadline)) {
            return std::nullopt;
        }
        char buffer[4096];
        const ssize_t got = ::read(socket_.Get(), buffer, sizeof(buffer));
        if (got > 0) {
            pending_.append(buffer, static_cast<size_t>(got));
        } else if (got == 0 || errno != EINTR) {
            return std::nullopt;
        }
    }
}

// `inChild` gets its end of the pipe; its result is the exit status. It never outlives the test, whatever becomes of it.
template <typename Body>
Child Child::Launch(Body inChild)
{
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        Fail("socketpair");
    }
    Child child;
    child.pipe_ = LinePipe(OwnedFd(ends[0]));
    OwnedFd childsEnd(ends[1]);
    const pid_t parent = ::getpid();
    child.pid_ = ::fork();
    if (child.pid_ < 0) {
        Fail("fork");
    }
    if (child.pid_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        child.pipe_.Close();
        ::_exit(::getppid() == parent ? inChild(std::move(childsEnd)) : 127);
    }
    return child;
}

Child Child::Start(std::vector<std::string> command)
{
    std::vector<std::string> program = ProgramCommand(command.front());
    command.erase(command.begin());
    command.insert(command.begin(), program.begin(), program.end());
    std::vector<char*> argv;
    for (std::string& text : command) {
        argv.push_back(text.data());
    }
    argv.push_back(nullptr);
    return Launch([&argv](OwnedFd end) {  // only calls that are safe in the fork of a process with threads
        ::dup2(end.Get(), STDIN_FILENO);
        ::dup2(end.Get(), STDOUT_FILENO);
        ::execv(argv[0], argv.data());
        return 127;
    });
}

Child Child::Fork(const std::function<int(LinePipe& parent)>& body)
{
    return Launch([&body](OwnedFd end) {
        LinePipe parent(std::move(end));
        try {
            return body(parent);
        } catch (const std::exception& error) {
            ::dprintf(STDERR_FILENO, "forked child: %s\n", error.what());
            return 126;
        }
    });
}

std::string Child::Ask(const std::string& line)
{
    return pipe_.Send(line) ? pipe_.Receive().value_or("") : "";
}

void Child::Kill()
{
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
    }
}

void Child::Stop()
{
    ::kill(pid_, SIGSTOP);
    siginfo_t info{};
    ::waitid(P_PID, static_cast<id_t>(pid_), &info, WSTOPPED | WEXITED | WNOWAIT);
}

void Child::Continue()
{
    ::kill(pid_, SIGCONT);
}

std::string Child::WaitForExit(Clock::duration timeout)
{
    int status = 0;
    const auto hasEnded = [this, &status] { return pid_ <= 0 || ::waitpid(pid_, &status, WNOHANG) == pid_; };
    if (!WaitFor(hasEnded, timeout)) {
        return "running";
    }
    if (pid_ > 0) {
        pid_ = -1;
        ended_ = WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                                     : "exit " + std::to_string(WEXITSTATUS(status));
    }
    return ended_;
}

void Child::End()
{
    Kill();
    if (pid_ > 0) {
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
}

std::string ProgramPath(const std::string& name)
{
    return name.find('/') == std::string::npos ? std::string(VELTRA_BIN_DIR) + "/" + name : name;
}

std::vector<std::string> ProgramCommand(const std::string& name)
{
    const std::string emulator = VELTRA_EMULATOR;
    const bool isOfThisBuild = name.find('/') == std::string::npos;
    return emulator.empty() || !isOfThisBuild ? std::vector{ProgramPath(name)}
                                              : std::vector{emulator, ProgramPath(name)};
}

PrivateRuntimeDir::PrivateRuntimeDir()
{
    const char* given = std::getenv("TAVO_RUNTIME_DIR");
    const std::string parent = given != nullptr ? given : std::string(VELTRA_BIN_DIR) + "/../run";
    std::filesystem::create_directories(parent);
    path_ = parent + "/XXXXXX";
    if (::mkdtemp(path_.data()) == nullptr) {  // Mode 0700 by itself.
        Fail("mkdtemp");
    }
    ::setenv("TAVO_RUNTIME_DIR", path_.c_str(), 1);
}

PrivateRuntimeDir::~PrivateRuntimeDir()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

size_t CountDescriptors(pid_t pid)
{
    std::error_code error;
    size_t count = 0;
    std::filesystem::directory_iterator entry("/proc/" + std::to_string(pid) + "/fd", error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        ++count;
    }
    return count;
}

size_t CountThreads(pid_t pid)
{
    return std::stoul(StatusField(pid, "Threads:"));
}

size_t ResidentBytes(pid_t pid)
{
    return std::stoul(StatusField(pid, "VmRSS:")) * 1024;
}

Clock::duration ProcessorTime(pid_t pid)
{
    clockid_t clock{};
    timespec used{};
    if (::clock_getcpuclockid(pid, &clock) == 0) {
        ::clock_gettime(clock, &used);
    }
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

}  // namespace TestSupport
