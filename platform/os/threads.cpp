// SPDX-License-Identifier: Apache-2.0
// Starts the threads of the platform, detached, and has the role of each. The signal mask and the scheduling are set so
// that it does not matter which thread of the game makes the first call.
#include "os/threads.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <exception>
#include <thread>
#include <utility>

namespace TAVO::Transport {
namespace {

thread_local ThreadRole t_role = ThreadRole::OTHER;

// A fault of the thread itself raises these. A thread that blocks them is killed by the kernel without any handler.
constexpr int SYNCHRONOUS_SIGNALS[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS};

// Gives the calling thread what the main thread has; a thread inherits from the one that starts it, which may be a
// loader thread with low priority on one processor. Each step may be refused: only a privileged process may raise a
// priority.
void AdoptSchedulingOfProcess() noexcept
{
    const pid_t process = ::getpid();
    cpu_set_t processors;
    cpu_set_t own;
    if (::sched_getaffinity(process, sizeof(processors), &processors) == 0 &&
        ::sched_getaffinity(0, sizeof(own), &own) == 0 && CPU_EQUAL(&processors, &own) == 0) {
        ::sched_setaffinity(0, sizeof(processors), &processors);
    }
    sched_param parameters{};
    const int policy = ::sched_getscheduler(process);
    // Other policies than the usual one have priorities too, so they are set even if the policy is the same.
    const bool isUsual = policy == SCHED_OTHER && ::sched_getscheduler(0) == SCHED_OTHER;
    if (policy >= 0 && !isUsual && ::sched_getparam(process, &parameters) == 0) {
        ::sched_setscheduler(0, policy, &parameters);
    }
    const int nice = ::getpriority(PRIO_PROCESS, static_cast<id_t>(process));
    if (nice != ::getpriority(PRIO_PROCESS, 0)) {
        ::setpriority(PRIO_PROCESS, 0, nice);
    }
}

}  // namespace

ThreadRole CurrentRole() noexcept
{
    return t_role;
}

bool StartThread(ThreadRole role, const char* name, std::function<void()> body) noexcept
{
    sigset_t blocked;
    sigset_t before;
    sigfillset(&blocked);
    for (const int signal : SYNCHRONOUS_SIGNALS) {
        sigdelset(&blocked, signal);
    }
    // Set before the start: a signal that arrives at a new thread first would run the game's handler on it.
    pthread_sigmask(SIG_SETMASK, &blocked, &before);  // The new thread inherits the mask.
    bool started = true;
    try {
        std::thread([role, name, run = std::move(body)] {
            t_role = role;
            // At most 15 characters; longer names are refused by the kernel.
            pthread_setname_np(pthread_self(), name);
            AdoptSchedulingOfProcess();
            run();
        }).detach();
    } catch (const std::exception&) {
        // std::system_error for EAGAIN (RLIMIT_NPROC, memory), or bad_alloc.
        started = false;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return started;
}

}  // namespace TAVO::Transport
