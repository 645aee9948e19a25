// SPDX-License-Identifier: Apache-2.0
// Whether this process is a child of fork(), where other threads may have left locks behind that no thread unlocks.
#ifndef TAVO_BASE_FORKED_CHILD_H
#define TAVO_BASE_FORKED_CHILD_H

namespace TAVO {

// To be called before the platform's locks are taken or its threads are started, each time. From the first call on, a
// child of fork() is marked, and nothing of the platform works in it. A process that forks before the first call leaves
// its child an unused platform, which works.
void WatchForks() noexcept;

// True in a child of fork() whose parent had used the platform, and in its children. Tested before a lock is taken
// that another thread of the parent may have held. One relaxed load.
bool InForkedChild() noexcept;

}  // namespace TAVO

#endif
