// SPDX-License-Identifier: Apache-2.0
// Polls a descriptor per process: no signal handler, and no pid that could mean somebody else.
#include "manager/daemon/process_watch.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "manager/client/manager_log.h"
#include "manager/daemon/pidfd.h"
#include "transport/threads.h"

namespace TAVO::Manager {
namespace {

int MillisecondsUntil(ProcessWatch::Clock::time_point when)
{
    if (when == ProcessWatch::Clock::time_point::max()) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(when - ProcessWatch::Clock::now()).count();
    return static_cast<int>(std::clamp<int64_t>(left, 0, std::numeric_limits<int>::max()));
}

}  // namespace

ProcessWatch::ProcessWatch() : wakeUp_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

bool ProcessWatch::Begin(Ended ended, Timer timer)
{
    ended_ = std::move(ended);
    timer_ = std::move(timer);
    return wakeUp_.IsOpen() && Transport::StartThread(Transport::ThreadRole::OTHER, "tavo-watch", [this] { Run(); });
}

void ProcessWatch::Add(uint64_t serial, pid_t pid, Transport::UniqueFd pidFd, bool isChild)
{
    MutexLock lock(mutex_);
    processes_.emplace(serial, Process{pid, std::move(pidFd), isChild});
}

bool ProcessWatch::IsOver(uint64_t serial)
{
    MutexLock lock(mutex_);
    const auto found = processes_.find(serial);
    return found == processes_.end() || IsReadable(found->second);
}

void ProcessWatch::Signal(uint64_t serial, int signal)
{
    MutexLock lock(mutex_);
    const auto found = processes_.find(serial);
    if (found == processes_.end()) {
        return;
    }
    const Process& process = found->second;
    if (process.isChild) {
        ::kill(-process.pid, signal);  // Its group is its own as long as nobody has reaped it.
    } else {
        SignalPidFd(process.pidFd, signal);
    }
}

void ProcessWatch::Wake()
{
    ::eventfd_write(wakeUp_.Get(), 1);
}

void ProcessWatch::Run()
{
    for (;;) {
        std::vector<uint64_t> ended;
        WaitForEvents(timer_(), ended);
        for (const uint64_t serial : ended) {
            ended_(serial);
        }
    }
}

void ProcessWatch::WaitForEvents(Clock::time_point until, std::vector<uint64_t>& ended)
{
    std::vector<pollfd> polled{{wakeUp_.Get(), POLLIN, 0}};
    {
        MutexLock lock(mutex_);
        for (const auto& [serial, process] : processes_) {
            polled.push_back({process.pidFd.Get(), POLLIN, 0});
        }
    }
    if (::poll(polled.data(), polled.size(), MillisecondsUntil(until)) <= 0) {
        return;
    }
    eventfd_t ignored = 0;
    ::eventfd_read(wakeUp_.Get(), &ignored);
    MutexLock lock(mutex_);
    for (auto process = processes_.begin(); process != processes_.end();) {
        if (Reap(process->second)) {
            ended.push_back(process->first);
            process = processes_.erase(process);
        } else {
            ++process;
        }
    }
}

bool ProcessWatch::IsReadable(const Process& process)
{
    pollfd polled{process.pidFd.Get(), POLLIN, 0};
    return ::poll(&polled, 1, 0) > 0;
}

// False while it lives.
bool ProcessWatch::Reap(const Process& process)
{
    if (!IsReadable(process)) {
        return false;
    }
    if (process.isChild) {
        siginfo_t how{};
        ::waitid(P_PIDFD, static_cast<id_t>(process.pidFd.Get()), &how, WEXITED | WNOHANG);
        Log(SCRIVO_INFO, "process %{public}d ended: %{public}s %{public}d", process.pid,
            how.si_code == CLD_EXITED ? "exit" : "signal", how.si_status);
    }
    return true;
}

}  // namespace TAVO::Manager
