// SPDX-License-Identifier: Apache-2.0
// A socket gets its final name only once it listens, since the manager removes sockets that refuse connections. Until
// then its name ends in .new.
#include "transport/runtime_sockets.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "base/warn_limited.h"

namespace TAVO::Transport {
namespace {

constexpr int BACKLOG = 1024;

// Creates the folder of the sockets. Several processes may do so at the same time: EEXIST is no error.
bool CreateFolder(int dir)
{
    constexpr const char* FOLDER = "p";
    if (::mkdirat(dir, FOLDER, 0700) != 0) {
        return errno == EEXIST;
    }
    // The umask of the process that happens to be first must not keep all processes out.
    return ::fchmodat(dir, FOLDER, 0700, 0) == 0;
}

// Creates the folder of the socket if it is missing.
bool Bind(int fd, int dir, const sockaddr_un& address)
{
    const auto bind = [&] { return ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0; };
    return bind() || (errno == ENOENT && CreateFolder(dir) && bind());
}

}  // namespace

int RuntimeSockets::OpenDir()
{
    if (!dir_.IsOpen()) {
        std::string error;
        dir_ = RuntimeDir::Open(RuntimeDir::DefaultPath(), false, error);
        if (!dir_.IsOpen()) {
            WarnLimited("the ability manager cannot be reached", error.c_str());
        }
    }
    return dir_.Fd();
}

int RuntimeSockets::DirFd()
{
    MutexLock lock(mutex_);
    return OpenDir();
}

std::string RuntimeSockets::PathOf(const std::string& name)
{
    MutexLock lock(mutex_);
    OpenDir();
    return dir_.SocketPath(name);
}

bool RuntimeSockets::EnsureListening(const std::string& name, const std::function<bool(UniqueFd)>& accept)
{
    MutexLock lock(mutex_);
    if (!isListening_) {
        UniqueFd fd = Listen(name);
        isListening_ = fd.IsOpen() && accept(std::move(fd));
    }
    return isListening_;
}

UniqueFd RuntimeSockets::Listen(const std::string& name)
{
    const int dir = OpenDir();
    const std::string firstName = name + ".new";
    // A path that is longer than the 108 bytes of sun_path becomes one below /proc/self/fd/<directory>.
    const std::string path = dir_.SocketPath(firstName);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    UniqueFd fd(AboveStandardFds(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)));
    if (dir < 0 || !fd.IsOpen() || path.size() >= sizeof(address.sun_path)) {
        return UniqueFd();
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    if (!Bind(fd.Get(), dir, address) || ::listen(fd.Get(), BACKLOG) != 0 ||
        ::renameat(dir, firstName.c_str(), dir, name.c_str()) != 0) {
        // unlinkat changes errno.
        const int reason = errno;
        ::unlinkat(dir, firstName.c_str(), 0);  // It would be in the way of the next attempt.
        const std::string what =
            "cannot listen at " + dir_.Path() + "/" + name + ", so this process can send no objects";
        WarnLimited(what.c_str(), std::strerror(reason));
        return UniqueFd();
    }
    return fd;
}

}  // namespace TAVO::Transport
