// SPDX-License-Identifier: Apache-2.0
// The runtime directory as this process uses it: where peers listen, and its own listening socket.
#ifndef TAVO_TRANSPORT_RUNTIME_SOCKETS_H
#define TAVO_TRANSPORT_RUNTIME_SOCKETS_H

#include <functional>
#include <string>

#include "os/fd.h"
#include "os/runtime_dir.h"
#include "tavo/mutex.h"

namespace TAVO::Transport {

// Opens the directory at its first use, and tries again while that fails. Any thread.
class RuntimeSockets {
public:
    // Descriptor of the directory; -1 while it cannot be opened, with a line in the log.
    int DirFd();
    // The path of `name` in the directory, usable in a socket address; one that leads nowhere while the directory
    // cannot be opened.
    std::string PathOf(const std::string& name);
    // Listens at `name`, from the first success on. `accept` is called once, with the listening socket. False while any
    // of this fails.
    bool EnsureListening(const std::string& name, const std::function<bool(UniqueFd)>& accept);

private:
    int OpenDir() TAVO_REQUIRES(mutex_);
    UniqueFd Listen(const std::string& name) TAVO_REQUIRES(mutex_);

    Mutex mutex_;
    RuntimeDir dir_ TAVO_GUARDED_BY(mutex_);
    bool isListening_ TAVO_GUARDED_BY(mutex_) = false;
};

}  // namespace TAVO::Transport

#endif
