// SPDX-License-Identifier: Apache-2.0
// The runtime directory as a tool sees it from outside.
#ifndef TAVO_RUNTIME_DIRECTORY_H
#define TAVO_RUNTIME_DIRECTORY_H

#include <sys/types.h>

#include <string>

#include "tavo/export.h"

namespace TAVO {

struct RuntimeDirectory {
    static constexpr pid_t UNKNOWN_PROCESS = -1;  // there is one, without a pid in this process's namespace

    std::string path;   // $TAVO_RUNTIME_DIR, else $XDG_RUNTIME_DIR/tavo, else /run/user/UID/tavo
    std::string error;  // why it cannot be used, and the remedy; empty: it can
    pid_t manager = 0;  // the process that holds the manager's lock; it may hang. 0: none
};

// Looks at the directory and the lock in it. Creates nothing, and neither connects nor waits. Throws only
// std::bad_alloc. Not for the manager's own process, whose lock it would drop.
TAVO_EXPORT RuntimeDirectory DescribeRuntimeDirectory();

}  // namespace TAVO

#endif
