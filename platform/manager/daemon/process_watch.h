// SPDX-License-Identifier: Apache-2.0
// The manager's one thread beside the platform's: notices the end of services, reaps them, and runs timers.
#ifndef TAVO_MANAGER_PROCESS_WATCH_H
#define TAVO_MANAGER_PROCESS_WATCH_H

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "os/fd.h"
#include "tavo/mutex.h"

namespace TAVO::Manager {

// Any thread. Lives as long as the process, like its thread.
class ProcessWatch {
public:
    using Clock = std::chrono::steady_clock;
    using Ended = std::function<void(uint64_t serial, const std::string& how)>;
    using Timer = std::function<Clock::time_point()>;

    ProcessWatch();
    ProcessWatch(const ProcessWatch&) = delete;
    ProcessWatch& operator=(const ProcessWatch&) = delete;

    // Starts the thread: it calls `timer`, which does its work and returns when to be called again, and `ended` once
    // for each process that has ended, before it is reaped; `how` is as from HowItEnded. It holds no lock then. What
    // throws std::bad_alloc is called again. False when the thread cannot be started.
    bool Begin(Ended ended, Timer timer);
    // `serial` names the process from here on; never used again. It is watched from the next Wake on.
    void Add(uint64_t serial, pid_t pid, Transport::UniqueFd pidFd, bool isChild);
    // Whether a process that was added has ended, though `ended` may not have been called for it yet.
    bool IsOver(uint64_t serial);
    // "exit status 1" or "signal 9 (Killed)"; "an unknown status" for a process that is no child, or reaped.
    std::string HowItEnded(uint64_t serial);
    // To the whole process group of a child, to an adopted process alone. Nothing once its end has been
    // reported.
    void Signal(uint64_t serial, int signal);
    // A process was added, or the timer has to run earlier than it returned.
    void Wake();

private:
    struct Process {
        pid_t pid;
        Transport::UniqueFd pidFd;
        bool isChild;
    };

    [[noreturn]] void Run();
    void WaitForEvents(Clock::time_point until);
    void ReportEnds();
    static bool IsReadable(const Process& process);
    // Empty while it lives.
    static std::string HowItEnded(const Process& process);

    Ended ended_;
    Timer timer_;
    Transport::UniqueFd wakeUp_;  // an event descriptor
    Mutex mutex_;
    std::map<uint64_t, Process> processes_ TAVO_GUARDED_BY(mutex_);  // only the thread removes
};

}  // namespace TAVO::Manager

#endif
