// SPDX-License-Identifier: Apache-2.0
// Polls a pidfd for each process: no handler of SIGCHLD, which would interrupt system calls of other threads, and no
// pid that the kernel may have given to another process meanwhile. One thread (tavo-watch) polls, reaps and reports; it
// also serves the timers of the registry, since it wakes up for both. The lock guards the table and is never held while
// the registry is called, which calls Add and Signal under its own lock.
#include "manager/daemon/process_watch.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <thread>
#include <utility>

#include "manager/client/manager_log.h"
#include "manager/daemon/pidfd.h"
#include "os/threads.h"

namespace TAVO::Manager {
namespace {

const char* const UNKNOWN_STATUS = "an unknown status";
// Before the thread tries again what has failed because it was out of memory.
constexpr std::chrono::milliseconds MEMORY_PAUSE{100};

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
        // Reaping happens under this lock, so the pid cannot be another process's here.
        ::kill(-process.pid, signal);  // Its group is its own until it is reaped.
    } else {
        // Only the process itself: the group of a process that is no child may be gone.
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
        try {
            // The timers first: they return how long the thread may sleep.
            WaitForEvents(timer_());
            ReportEnds();
        } catch (const std::bad_alloc&) {
            std::this_thread::sleep_for(MEMORY_PAUSE);
        }
    }
}

void ProcessWatch::WaitForEvents(Clock::time_point until)
{
    // Built anew each time. A process that is added meanwhile wakes the thread through wakeUp_; its descriptor is
    // closed by this thread only, so the copies stay valid during the poll.
    std::vector<pollfd> polled{{wakeUp_.Get(), POLLIN, 0}};
    {
        MutexLock lock(mutex_);
        for (const auto& [serial, process] : processes_) {
            polled.push_back({process.pidFd.Get(), POLLIN, 0});
        }
    }
    if (::poll(polled.data(), polled.size(), MillisecondsUntil(until)) > 0) {
        eventfd_t ignored = 0;
        ::eventfd_read(wakeUp_.Get(), &ignored);
    }
}

// Reaps a process after its end has been reported: when memory runs out before, the end is reported again.
void ProcessWatch::ReportEnds()
{
    for (;;) {
        uint64_t serial = 0;
        std::string how;
        {
            MutexLock lock(mutex_);
            const auto ended = std::find_if(processes_.begin(), processes_.end(),
                                            [](const auto& process) { return IsReadable(process.second); });
            if (ended == processes_.end()) {
                return;
            }
            serial = ended->first;
            how = HowItEnded(ended->second);
            Log(SCRIVO_INFO, "process %{public}d ended with %{public}s", ended->second.pid, how.c_str());
        }
        ended_(serial, how);
        MutexLock lock(mutex_);
        const auto ended = processes_.find(serial);
        siginfo_t unused{};
        // Fails for a process that is no child.
        ::waitid(P_PIDFD, static_cast<id_t>(ended->second.pidFd.Get()), &unused, WEXITED | WNOHANG);
        processes_.erase(ended);
    }
}

bool ProcessWatch::IsReadable(const Process& process)
{
    pollfd polled{process.pidFd.Get(), POLLIN, 0};
    return ::poll(&polled, 1, 0) > 0;
}

std::string ProcessWatch::HowItEnded(uint64_t serial)
{
    MutexLock lock(mutex_);
    const auto found = processes_.find(serial);
    return found != processes_.end() ? HowItEnded(found->second) : UNKNOWN_STATUS;
}

std::string ProcessWatch::HowItEnded(const Process& process)
{
    if (!IsReadable(process)) {
        return "";
    }
    siginfo_t how{};
    const bool isKnown =
        process.isChild &&
        // WNOWAIT: ReportEnds reaps it.
        ::waitid(P_PIDFD, static_cast<id_t>(process.pidFd.Get()), &how, WEXITED | WNOHANG | WNOWAIT) == 0 &&
        how.si_pid != 0;
    if (!isKnown) {
        return UNKNOWN_STATUS;
    }
    if (how.si_code == CLD_EXITED) {
        return "exit status " + std::to_string(how.si_status);
    }
    const char* const description = ::sigdescr_np(how.si_status);
    return "signal " + std::to_string(how.si_status) + " (" + (description != nullptr ? description : "?") + ")";
}

}  // namespace TAVO::Manager
