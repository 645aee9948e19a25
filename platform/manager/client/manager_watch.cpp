// SPDX-License-Identifier: Apache-2.0
// Waits for the socket of a manager to appear, with inotify on the runtime directory. The manager renames its socket
// into place, which is IN_MOVED_TO; IN_CREATE is for a socket that is bound under its final name. Without inotify (its
// instances are limited for each user) the wait is a sleep, and the caller tries at each end of it.
#include "manager/client/manager_watch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>

#include "manager/client/manager_log.h"

namespace TAVO::Manager {

using Clock = std::chrono::steady_clock;

ManagerWatch::ManagerWatch(int dirFd) : fd_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
    // The directory that this process uses, also if its path leads elsewhere by now.
    const std::string path = "/proc/self/fd/" + std::to_string(dirFd);
    if (!fd_.IsOpen() || ::inotify_add_watch(fd_.Get(), path.c_str(), IN_MOVED_TO | IN_CREATE) < 0) {
        const int reason = errno;
        Log(SCRIVO_WARN,
            "cannot watch the runtime directory for a new manager: %{public}s. The manager is looked for every few "
            "seconds instead; %{public}s",
            std::strerror(reason),
            reason == ENOENT ? "mount /proc here"
                             : "raise fs.inotify.max_user_instances or the limit of open files (ulimit -n)");
        fd_.Reset();
    }
}

bool ManagerWatch::Wait(std::chrono::milliseconds atMost)
{
    const Clock::time_point deadline = Clock::now() + atMost;
    if (!fd_.IsOpen()) {
        std::this_thread::sleep_until(deadline);
        return false;
    }
    // Other files appear in the directory as well; they do not end the wait.
    while (Transport::PollUntil(fd_.Get(), POLLIN, deadline)) {
        if (ReadEvents()) {
            return true;
        }
    }
    return false;
}

// Whether a manager's socket was among what appeared.
bool ManagerWatch::ReadEvents()
{
    alignas(inotify_event) char buffer[4096];
    const ssize_t got = ::read(fd_.Get(), buffer, sizeof(buffer));
    bool isManager = false;
    // One read returns several events of different lengths, whole ones only.
    for (ssize_t at = 0; at + static_cast<ssize_t>(sizeof(inotify_event)) <= got;) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
        isManager = isManager || (event->len > 0 && std::strcmp(event->name, "manager") == 0);
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
    return isManager;
}

}  // namespace TAVO::Manager
