// SPDX-License-Identifier: Apache-2.0
// What a platform thread waits with: an epoll, and in it an eventfd that is readable while there are jobs.
#ifndef TAVO_OS_WAIT_SET_H
#define TAVO_OS_WAIT_SET_H

#include "os/fd.h"

namespace TAVO::Transport {

// Open is called under the owner's lock, and before a thread that waits is started.
class WaitSet {
public:
    enum class Jobs { ALL, ONE };  // how many jobs one Take covers

    explicit WaitSet(Jobs jobs) noexcept : jobs_(jobs) {}

    // False when no descriptor is left: nothing is open then, and the next call tries again. True at once when open.
    bool Open() noexcept;
    // For epoll_wait, which gives the data pointer null for jobs, and for adding other descriptors.
    int Epoll() const noexcept { return epoll_.Get(); }
    void Signal() const noexcept;
    // Takes the signals of the jobs that are about to be run; false when there is none.
    bool Take() const noexcept;

private:
    const Jobs jobs_;
    UniqueFd epoll_;
    UniqueFd ready_;
};

}  // namespace TAVO::Transport

#endif
