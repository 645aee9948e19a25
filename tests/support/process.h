// SPDX-License-Identifier: Apache-2.0
// Other processes for tests: programs or forked functions, lines over pipes as barriers, and what /proc says of them.
#ifndef VELTRA_TESTS_SUPPORT_PROCESS_H
#define VELTRA_TESTS_SUPPORT_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace TestSupport {

using Clock = std::chrono::steady_clock;

// How long a test waits for what must happen: only a hang takes as long, also under a sanitizer on a busy machine.
constexpr std::chrono::seconds TIMEOUT{30};

// Whether `condition` becomes true in time; for values that can only be polled, such as a count in /proc.
template <typename Condition>
bool WaitFor(Condition condition, Clock::duration timeout = TIMEOUT)
{
    const Clock::time_point deadline = Clock::now() + timeout;
    while (!condition()) {
        if (Clock::now() >= deadline) {
            return condition();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// A descriptor that is closed with its owner.
class OwnedFd {
public:
    explicit OwnedFd(int fd = -1) : fd_(fd) {}
    OwnedFd(OwnedFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    OwnedFd& operator=(OwnedFd&& other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~OwnedFd() { Close(); }
    int Get() const { return fd_; }
    void Close();

private:
    int fd_;
};

// Whether poll finds one of `events` in time.
bool PollUntil(int fd, short events, Clock::time_point deadline);

// Lines to and from the other end of a socket.
class LinePipe {
public:
    LinePipe() = default;
    // A test program finds one as its stdin and stdout.
    explicit LinePipe(int socket) : socket_(socket) {}
    explicit LinePipe(OwnedFd socket) : socket_(std::move(socket)) {}

    // False if the other end is closed. SIGPIPE is not raised.
    bool Send(const std::string& line);
    // The next line without its end; nothing at the end of the pipe or if none arrived in time.
    std::optional<std::string> Receive(Clock::duration timeout = TIMEOUT);
    // The other end reads the end of the pipe.
    void CloseWriting();
    void Close() { socket_.Close(); }

private:
    OwnedFd socket_;
    std::string pending_;  // received, not yet returned
};

// A child process, killed and reaped with the object, and by the kernel when the thread that started it ends. What
// it writes to stderr is seen. Not copyable.
class Child {
public:
    Child() = default;
    // Runs `command` (a program of the build by its bare name, or a path) with the pipe as its stdin and stdout.
    static Child Start(std::vector<std::string> command);
    // Runs `body` in a fork of this process; its result is the exit status. The fork of a process that has used the
    // platform can no longer use it: fork first, and let the child wait for a line.
    static Child Fork(const std::function<int(LinePipe& parent)>& body);

    Child(Child&& other) noexcept { *this = std::move(other); }
    Child& operator=(Child&& other) noexcept
    {
        std::swap(pid_, other.pid_);
        std::swap(ended_, other.ended_);
        std::swap(pipe_, other.pipe_);
        return *this;
    }
    ~Child() { End(); }

    pid_t Pid() const { return pid_; }
    LinePipe& Pipe() { return pipe_; }
    // Sends `line` and returns the answer; empty if the child has ended or does not answer.
    std::string Ask(const std::string& line);

    void Kill();
    // Returns once the process has stopped.
    void Stop();
    void Continue();
    // "exit 0", "signal 9", or "running" when it did not end in time.
    std::string WaitForExit(Clock::duration timeout = TIMEOUT);

private:
    template <typename Body>
    static Child Launch(Body inChild);
    void End();

    pid_t pid_ = -1;     // -1: none, or reaped
    std::string ended_;  // how, once reaped
    LinePipe pipe_;
};

// Where the build put the program of this bare name.
std::string ProgramPath(const std::string& name);

// What runs a program of the build by its bare name: its path, behind the emulator if this build is for another processor.
std::vector<std::string> ProgramCommand(const std::string& name);

// An empty directory of mode 0700 in the build folder, the runtime directory of this process and the children started
// after it; removed with all it holds. Make it before the first use of the platform.
class PrivateRuntimeDir {
public:
    PrivateRuntimeDir();
    ~PrivateRuntimeDir();
    PrivateRuntimeDir(const PrivateRuntimeDir&) = delete;
    PrivateRuntimeDir& operator=(const PrivateRuntimeDir&) = delete;

    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

// Values of a process in /proc; 0 if it has ended.
size_t CountDescriptors(pid_t pid);
size_t CountThreads(pid_t pid);
size_t ResidentBytes(pid_t pid);
// What its threads have used up; needs no descriptor.
Clock::duration ProcessorTime(pid_t pid);

}  // namespace TestSupport

#endif
