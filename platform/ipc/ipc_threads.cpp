// SPDX-License-Identifier: Apache-2.0
#include "tavo/ipc_threads.h"

#include <unistd.h>

#include "base/forked_child.h"

namespace TAVO {

void IpcThreads::JoinPool()
{
    // The workers of the platform handle requests. This thread only keeps the process alive; pause returns after a
    // signal.
    for (;;) {
        ::pause();
    }
}

bool IpcThreads::IsForkedChild() noexcept
{
    return InForkedChild();
}

}  // namespace TAVO
