// SPDX-License-Identifier: Apache-2.0
// The platform's own threads: their roles, and how they are started.
#ifndef TAVO_OS_THREADS_H
#define TAVO_OS_THREADS_H

#include <functional>

namespace TAVO::Transport {

enum class ThreadRole { OTHER, WORKER, CONTROL, DELIVERY };

ThreadRole CurrentRole() noexcept;

// Starts a detached thread; false when the system has no thread left. It blocks all signals except those that a fault
// of its own raises (SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS), so that the host's crash handler runs for a
// crash in a callback. It has the scheduling policy, nice value and processors of the process, that is of its main
// thread, and not those of the calling thread, as far as the kernel permits the change.
bool StartThread(ThreadRole role, const char* name, std::function<void()> body) noexcept;

}  // namespace TAVO::Transport

#endif
