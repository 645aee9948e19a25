// SPDX-License-Identifier: Apache-2.0
// Starts platform threads and keeps what belongs to one thread.
#include "transport/threads.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

#include "tavo/scrivo_print.h"

namespace TAVO::Transport {
namespace {

constexpr uint32_t LOG_DOMAIN = 0xD00470C;
constexpr int LOG_TYPE = 3;
constexpr uint64_t LINES_PER_SECOND = 10;

thread_local ThreadRole t_role = ThreadRole::OTHER;
thread_local const CallingPeerScope* t_callingPeer = nullptr;

// A fault of the thread itself raises these. A thread that blocks them is killed by the kernel without any handler.
constexpr int SYNCHRONOUS_SIGNALS[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS};

// Gives the calling thread what the main thread has; a thread inherits from the one that starts it, which may be a loader
// thread with low priority on one processor. Each step may be refused: only a privileged process may raise a priority.
void AdoptSchedulingOfProcess() noexcept
{
    const pid_t process = ::getpid();
    cpu_set_t processors;
    if (::sched_getaffinity(process, sizeof(processors), &processors) == 0) {
        ::sched_setaffinity(0, sizeof(processors), &processors);
    }
    sched_param parameters{};
    const int policy = ::sched_getscheduler(process);
    if (policy >= 0 && policy != ::sched_getscheduler(0) && ::sched_getparam(process, &parameters) == 0) {
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
    pthread_sigmask(SIG_SETMASK, &blocked, &before);  // The new thread inherits the mask.
    bool started = true;
    try {
        std::thread([role, name, run = std::move(body)] {
            t_role = role;
            pthread_setname_np(pthread_self(), name);
            AdoptSchedulingOfProcess();
            run();
        }).detach();
    } catch (const std::exception&) {
        started = false;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return started;
}

CallingPeerScope::CallingPeerScope(const CallingPeer& peer) noexcept : peer_(peer), outer_(t_callingPeer)
{
    t_callingPeer = this;
}

CallingPeerScope::~CallingPeerScope()
{
    t_callingPeer = outer_;
}

const CallingPeer* CallingPeerScope::Current() noexcept
{
    return t_callingPeer != nullptr ? &t_callingPeer->peer_ : nullptr;
}

void WarnLimited(const char* what, const char* detail) noexcept
{
    static std::atomic<uint64_t> window{0};  // second since the start of the clock, times 256, plus lines in it
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    const uint64_t second = static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::seconds>(now).count());
    uint64_t seen = window.load(std::memory_order_relaxed);
    for (;;) {
        const uint64_t lines = seen >> 8 == second ? seen & 255 : 0;
        if (lines >= LINES_PER_SECOND) {
            return;
        }
        if (window.compare_exchange_weak(seen, second << 8 | (lines + 1))) {
            break;
        }
    }
    ScrivoPrint(LOG_TYPE, SCRIVO_WARN, LOG_DOMAIN, "Tavo", "%{public}s: %{public}s", what, detail);
}

}  // namespace TAVO::Transport
