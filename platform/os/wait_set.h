// SPDX-License-Identifier: Apache-2.0
// What platform threads wait with: an epoll, and in it an eventfd that announces jobs.
#ifndef TAVO_OS_WAIT_SET_H
#define TAVO_OS_WAIT_SET_H

#include "os/fd.h"

namespace TAVO::Transport {

// Open is called under the owner's lock, and before a thread that waits is started.
class WaitSet {
public:
    // False when no descriptor is left: nothing is open then, and the next call tries again. True at once when open.
    bool Open() noexcept;
    // For epoll_wait, which gives the data pointer null for jobs, and for adding other descriptors.
    int Epoll() const noexcept { return epoll_.Get(); }
    // After a job was queued: one thread that waits, now or later, is woken up. Signals that no thread has received yet
    // count as one, so a thread that is woken up looks for all jobs, or signals again for those that it leaves.
    void Signal() const noexcept;

private:
    UniqueFd epoll_;
    UniqueFd ready_;
};

}  // namespace TAVO::Transport

#endif
