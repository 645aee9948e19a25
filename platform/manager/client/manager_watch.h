// SPDX-License-Identifier: Apache-2.0
// Waits until a manager's socket exists in the runtime directory.
#ifndef TAVO_MANAGER_MANAGER_WATCH_H
#define TAVO_MANAGER_MANAGER_WATCH_H

#include <chrono>

#include "os/fd.h"

namespace TAVO::Manager {

// One thread. To be kept no longer than needed: the kernel takes 20 ms to close one, and in a process that ends, the
// connections opened before it are closed, and its death is noticed, only after that.
class ManagerWatch {
public:
    explicit ManagerWatch(int dirFd);

    // True once a socket appears that was not there when the watch began, or when Wait returned last. False after
    // `atMost`, which is also how long it takes where nothing can be watched.
    bool Wait(std::chrono::milliseconds atMost);

private:
    bool ReadEvents();

    Transport::UniqueFd fd_;
};

}  // namespace TAVO::Manager

#endif
