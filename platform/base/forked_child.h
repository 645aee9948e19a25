// SPDX-License-Identifier: Apache-2.0
// Whether this process is a child of fork(), where other threads may have left locks behind that no thread unlocks.
#ifndef TAVO_BASE_FORKED_CHILD_H
#define TAVO_BASE_FORKED_CHILD_H

namespace TAVO {

// Called by whatever is about to take the platform's locks or start its threads, each time: from the first call on a
// child of fork() is one in which nothing of the platform works. A process that forks before that gives its child a
// fresh platform.
void WatchForks() noexcept;

// True in a child of fork() whose parent had used the platform, and in its children. Tested before a lock is taken
// that another thread of the parent may have held. One relaxed load.
bool InForkedChild() noexcept;

}  // namespace TAVO

#endif
