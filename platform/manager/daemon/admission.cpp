// SPDX-License-Identifier: Apache-2.0
// Each client takes descriptors of the manager. When few are left, new connections are accepted from services only: no
// client can be served without them. Whether a process is a service is looked up in the kernel and in the runtime
// directory, not in the registry: this runs on the control thread, which must not wait for the lock of the registry.
#include "manager/daemon/admission.h"

#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>

#include "manager/client/ability_lock.h"
#include "manager/client/manager_log.h"
#include "manager/daemon/start_record.h"
#include "os/process_lock.h"

namespace TAVO::Manager {
namespace {

// A session takes descriptors for its connection, its process, a request and a notice.
constexpr size_t DESCRIPTORS_PER_SESSION = 4;
// The manager's own 14, and what a start and a registration take.
constexpr size_t RESERVED_DESCRIPTORS = 28;
// Left when clients have more connections than that: several requests at once, or connections not yet identified.
constexpr size_t LAST_DESCRIPTORS = 10;

}  // namespace

Admission::Admission(const Transport::RuntimeDir& dir, const AbilityFiles& files) : dir_(dir)
{
    for (const auto& [id, file] : files) {
        ids_.push_back(id);
    }
}

bool Admission::Admits(pid_t pid, int fd, size_t sessions) const
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    // Two estimates, since neither is enough. The number of sessions does not count connections that were just
    // accepted; the descriptor's number does not grow while lower ones are free.
    // The kernel gives the lowest descriptor that is free.
    if ((static_cast<size_t>(fd) + LAST_DESCRIPTORS < limit.rlim_cur &&
         sessions * DESCRIPTORS_PER_SESSION + RESERVED_DESCRIPTORS <= limit.rlim_cur) ||
        IsService(pid)) {
        return true;
    }
    Log(SCRIVO_WARN,
        "a connection of a client was refused: the rest of %{public}llu descriptors is reserved for services. "
        "Raise the manager's limit of open files (ulimit -n)",
        static_cast<unsigned long long>(limit.rlim_cur));
    return false;
}

// A process that was started as a service, by this manager or an earlier one, or holds the lock of one. Deliberate: the
// kernel is asked for our children, since a new one may connect before its start has returned here.
bool Admission::IsService(pid_t pid) const
{
    if (pid <= 0) {
        return false;  // A process of another pid namespace, which none of the sources below can name.
    }
    const auto isItsProcess = [this, pid](int32_t id) {
        return RecordedProcess(dir_, id) == pid ||
               Transport::ProcessLock::Holder(dir_.Fd(), AbilityLockName(id)) == pid;
    };
    // WNOWAIT leaves the child to be reaped by the watch.
    siginfo_t unused{};
    const bool isChild = ::waitid(P_PID, static_cast<id_t>(pid), &unused, WEXITED | WNOHANG | WNOWAIT) == 0;
    return isChild || std::any_of(ids_.begin(), ids_.end(), isItsProcess);
}

}  // namespace TAVO::Manager
