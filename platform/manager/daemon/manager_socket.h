// SPDX-License-Identifier: Apache-2.0
// The manager's lock in the runtime directory, which makes it the only one, and its socket.
#ifndef TAVO_MANAGER_MANAGER_SOCKET_H
#define TAVO_MANAGER_MANAGER_SOCKET_H

#include <string>

#include "os/fd.h"
#include "os/process_lock.h"
#include "os/runtime_dir.h"

namespace TAVO::Manager {

// Claim, hand the listener over, then Publish: a client that sees the socket is answered.
class ManagerSocket {
public:
    // `dir` must outlive the object.
    explicit ManagerSocket(const Transport::RuntimeDir& dir) : dir_(dir) {}

    // Becomes the manager of the directory and listens under a temporary name. False with one clear line when another
    // manager lives or the directory cannot be written.
    bool Claim(std::string& error);
    int ReleaseListener() { return listener_.Release(); }
    // Puts the socket in its place in one step; what a dead manager left there is replaced.
    bool Publish(std::string& error);
    // Takes the socket away. The lock stays with the process.
    void Remove();

private:
    const Transport::RuntimeDir& dir_;
    Transport::ProcessLock lock_;
    Transport::UniqueFd listener_;
};

// Removes the sockets in <runtime>/p of processes that have ended.
void RemoveStaleSockets(const Transport::RuntimeDir& dir);

}  // namespace TAVO::Manager

#endif
