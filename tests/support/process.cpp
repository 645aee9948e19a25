// SPDX-License-Identifier: Apache-2.0
// Starts, steers and counts processes; every wait has a deadline.
#include "support/process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

extern char** environ;

namespace TestSupport {
namespace {

[[noreturn]] void Fail(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

int MillisecondsUntil(Clock::time_point deadline)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

void CloseFd(int& fd)
{
    if (fd >= 0) {
        ::close(std::exchange(fd, -1));
    }
}

// Two pipes: ends[0] is the parent's, ends[1] the child's.
std::array<LinePipe, 2> ConnectedPipes(std::array<int, 2>& childFds)
{
    int toChild[2];
    int toParent[2];
    if (::pipe2(toChild, O_CLOEXEC) != 0 || ::pipe2(toParent, O_CLOEXEC) != 0) {
        Fail("pipe");
    }
    childFds = {toChild[0], toParent[1]};
    return {LinePipe(toParent[0], toChild[1]), LinePipe(toChild[0], toParent[1])};
}

// A child never outlives the test, whatever becomes of it.
void DieWithParent(pid_t parent)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) {
        ::_exit(127);
    }
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

// Later settings win over those of this process.
std::vector<std::string> MergedEnvironment(const std::vector<std::string>& settings)
{
    std::vector<std::string> merged = settings;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const std::string name = text.substr(0, text.find('=') + 1);
        bool isReplaced = false;
        for (const std::string& setting : settings) {
            isReplaced = isReplaced || setting.compare(0, name.size(), name) == 0;
        }
        if (!isReplaced) {
            merged.push_back(text);
        }
    }
    return merged;
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

LinePipe::LinePipe(LinePipe&& other) noexcept
    : readFd_(std::exchange(other.readFd_, -1)),
      writeFd_(std::exchange(other.writeFd_, -1)),
      pending_(std::move(other.pending_))
{
}

LinePipe& LinePipe::operator=(LinePipe&& other) noexcept
{
    std::swap(readFd_, other.readFd_);
    std::swap(writeFd_, other.writeFd_);
    std::swap(pending_, other.pending_);
    return *this;
}

bool LinePipe::Say(const std::string& line)
{
    // A pipe has no MSG_NOSIGNAL: the signal is kept away from this thread and taken back if it was raised.
    sigset_t pipeSignal;
    sigset_t before;
    sigset_t waiting;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipeSignal, &before);
    const std::string text = line + '\n';
    size_t written = 0;
    bool isOpen = true;
    while (written < text.size() && isOpen) {
        const ssize_t put = ::write(writeFd_, text.data() + written, text.size() - written);
        if (put > 0) {
            written += static_cast<size_t>(put);
        } else if (errno != EINTR) {
            isOpen = false;
        }
    }
    sigpending(&waiting);
    if (!isOpen && sigismember(&waiting, SIGPIPE) == 1 && sigismember(&before, SIGPIPE) == 0) {
        const timespec now{};
        ::sigtimedwait(&pipeSignal, nullptr, &now);
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return isOpen;
}

std::optional<std::string> LinePipe::Hear(Clock::duration patience)
{
    const Clock::time_point deadline = Clock::now() + patience;
    for (;;) {
        if (const size_t end = pending_.find('\n'); end != std::string::npos) {
            std::string line = pending_.substr(0, end);
            pending_.erase(0, end + 1);
            return line;
        }
        pollfd entry{readFd_, POLLIN, 0};
        const int ready = ::poll(&entry, 1, MillisecondsUntil(deadline));
        if (ready == 0) {
            return std::nullopt;
        }
        char buffer[4096];
        const ssize_t got = ready > 0 ? ::read(readFd_, buffer, sizeof(buffer)) : -1;
        if (got > 0) {
            pending_.append(buffer, static_cast<size_t>(got));
        } else if (got == 0 || errno != EINTR) {
            return std::nullopt;
        }
    }
}

void LinePipe::CloseWriting()
{
    CloseFd(writeFd_);
}

void LinePipe::Close()
{
    CloseFd(readFd_);
    CloseFd(writeFd_);
}

Child Child::Start(std::vector<std::string> command, const std::vector<std::string>& environment)
{
    std::array<int, 2> childFds{};
    std::array<LinePipe, 2> ends = ConnectedPipes(childFds);
    command.front() = ProgramPath(command.front());
    std::vector<std::string> variables = MergedEnvironment(environment);
    const std::vector<char*> argv = Pointers(command);
    const std::vector<char*> envp = Pointers(variables);
    const pid_t parent = ::getpid();
    Child child;
    child.pid_ = ::fork();
    if (child.pid_ < 0) {
        Fail("fork");
    }
    if (child.pid_ == 0) {  // Only calls that are safe in the fork of a process with threads.
        DieWithParent(parent);
        ::dup2(childFds[0], STDIN_FILENO);
        ::dup2(childFds[1], STDOUT_FILENO);
        ::execve(argv[0], argv.data(), envp.data());
        ::_exit(127);
    }
    child.pipe_ = std::move(ends[0]);
    return child;
}

Child Child::Fork(const std::function<int(LinePipe& parent)>& body)
{
    std::array<int, 2> childFds{};
    std::array<LinePipe, 2> ends = ConnectedPipes(childFds);
    const pid_t parent = ::getpid();
    Child child;
    child.pid_ = ::fork();
    if (child.pid_ < 0) {
        Fail("fork");
    }
    if (child.pid_ == 0) {
        DieWithParent(parent);
        ends[0].Close();
        int status = 126;
        try {
            status = body(ends[1]);
        } catch (const std::exception& error) {
            ::dprintf(STDERR_FILENO, "forked child: %s\n", error.what());
        }
        ::_exit(status);
    }
    child.pipe_ = std::move(ends[0]);
    return child;
}

Child::Child(Child&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), ended_(std::move(other.ended_)), pipe_(std::move(other.pipe_))
{
}

Child& Child::operator=(Child&& other) noexcept
{
    std::swap(pid_, other.pid_);
    std::swap(ended_, other.ended_);
    std::swap(pipe_, other.pipe_);
    return *this;
}

std::string Child::Ask(const std::string& line)
{
    return pipe_.Say(line) ? pipe_.Hear().value_or("") : "";
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

std::string Child::WaitForExit(Clock::duration patience)
{
    int status = 0;
    const auto hasEnded = [this, &status] { return pid_ <= 0 || ::waitpid(pid_, &status, WNOHANG) == pid_; };
    if (!WaitFor(hasEnded, patience)) {
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

size_t PeakResidentBytes(pid_t pid)
{
    return std::stoul(StatusField(pid, "VmHWM:")) * 1024;
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
