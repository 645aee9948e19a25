// SPDX-License-Identifier: Apache-2.0
#include "tavo/runtime_directory.h"

#include "manager/client/ability_lock.h"
#include "os/process_lock.h"
#include "os/runtime_dir.h"

namespace TAVO {

RuntimeDirectory DescribeRuntimeDirectory()
{
    using Transport::ProcessLock;
    RuntimeDirectory directory;
    directory.path = Transport::RuntimeDir::DefaultPath();
    const Transport::RuntimeDir opened = Transport::RuntimeDir::Open(directory.path, false, directory.error);
    if (opened.IsOpen()) {
        // The lock names the manager's process even if its socket was removed.
        const pid_t holder = ProcessLock::Holder(opened.Fd(), Manager::MANAGER_LOCK_NAME);
        directory.manager = holder == ProcessLock::CANNOT_TELL ? 0 : holder;
    }
    return directory;
}

}  // namespace TAVO
