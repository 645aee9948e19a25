// SPDX-License-Identifier: Apache-2.0
// The pool of worker threads that handle requests in this process.
#ifndef TAVO_IPC_THREADS_H
#define TAVO_IPC_THREADS_H

#include <cstddef>

#include "tavo/export.h"

namespace TAVO {

// The platform starts workers when they are first needed; most programs never use this class.
class TAVO_EXPORT IpcThreads {
public:
    static constexpr size_t DEFAULT_WORKERS = 16;  // that handle requests at a time
    static constexpr size_t MAX_THREADS = 64;      // workers inside an outgoing call included

    // Blocks the calling thread and never returns: for the main thread of a service that has nothing else to do.
    [[noreturn]] static void JoinPool();

    // True in a child of fork() whose parent had used the platform. Every operation of the platform fails at once
    // there: locks of threads that do not exist in the child stay locked, and connections belong to the parent. A
    // library above checks this before it takes its own locks.
    static bool IsForkedChild() noexcept;
};

}  // namespace TAVO

#endif
