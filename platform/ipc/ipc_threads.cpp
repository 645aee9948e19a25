// SPDX-License-Identifier: Apache-2.0
// The pool's public knobs.
#include "tavo/ipc_threads.h"

#include <unistd.h>

#include "base/forked_child.h"
#include "transport/core.h"

namespace TAVO {

bool IpcThreads::SetMaxWorkers(size_t workers)
{
    return !InForkedChild() && Transport::Core::Get().Workers().SetMax(workers);
}

void IpcThreads::JoinPool()
{
    for (;;) {
        ::pause();
    }
}

bool IpcThreads::IsForkedChild() noexcept
{
    return InForkedChild();
}

}  // namespace TAVO
