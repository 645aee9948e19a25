// SPDX-License-Identifier: Apache-2.0
// Only the process that holds manager.lock binds, renames or removes sockets of the runtime directory. A socket file
// outlives its process: connect then fails with ECONNREFUSED and bind with EADDRINUSE. So the manager binds a second
// name and renames it over the first, and clients find either the old file, the new one or none, never a half-made
// socket.
#include "manager/daemon/manager_socket.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <string_view>

#include "manager/client/ability_lock.h"

namespace TAVO::Manager {
namespace {

using Transport::UniqueFd;

constexpr const char* SOCKET_NAME = "manager";
constexpr const char* UNPUBLISHED_NAME = "manager.new";
constexpr const char* PEER_FOLDER = "p";

UniqueFd ListenAt(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return UniqueFd();
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    UniqueFd listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!listener.IsOpen() || ::bind(listener.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(listener.Get(), SOMAXCONN) != 0) {
        return UniqueFd();
    }
    return listener;
}

constexpr std::string_view UNPUBLISHED_SUFFIX = ".new";
// A process has its socket under a temporary name for microseconds. One that is older belongs to a process that was
// killed then. Should it only have been stopped, it makes another.
constexpr time_t UNPUBLISHED_LIFETIME_SECONDS = 60;

// "<instance>" or "<instance>.new".
bool IsInstanceName(std::string_view name, bool& isUnpublished)
{
    constexpr size_t INSTANCE_DIGITS = 32;
    const std::string_view digits = name.substr(0, INSTANCE_DIGITS);
    isUnpublished = name.substr(digits.size()) == UNPUBLISHED_SUFFIX;
    return digits.size() == INSTANCE_DIGITS && digits.find_first_not_of("0123456789abcdef") == std::string_view::npos &&
           (isUnpublished || name.size() == INSTANCE_DIGITS);
}

bool IsStale(const Transport::RuntimeDir& dir, const std::string& name, bool isUnpublished)
{
    struct stat status {};
    if (::fstatat(dir.Fd(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISSOCK(status.st_mode) ||
        (isUnpublished && ::time(nullptr) - status.st_mtim.tv_sec < UNPUBLISHED_LIFETIME_SECONDS)) {
        return false;
    }
    // A bound socket without a listener and a socket without a process both refuse; that is why processes bind under a
    // ".new" name and rename it when they listen.
    const Transport::ConnectionFd connection = Transport::ConnectStreamNow(dir.SocketPath(name));
    return !connection.IsOpen() && errno == ECONNREFUSED;
}

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};

}  // namespace

bool ManagerSocket::Claim(std::string& error)
{
    if (!lock_.Take(dir_.Fd(), MANAGER_LOCK_NAME)) {
        error = "runtime directory " + dir_.Path() + ": ";
        error += errno == EAGAIN ? "another manager is running there (process " +
                                       std::to_string(Transport::ProcessLock::Holder(dir_.Fd(), MANAGER_LOCK_NAME)) +
                                       "); end it, or give this one another --runtime-dir"
                                 : std::string("cannot write manager.lock: ") + std::strerror(errno) +
                                       "; it needs a file system " + "with free space that this user may write";
        return false;
    }
    // Left by a manager that was killed between bind and rename. Safe, since the lock is held.
    ::unlinkat(dir_.Fd(), UNPUBLISHED_NAME, 0);
    listener_ = ListenAt(dir_.SocketPath(UNPUBLISHED_NAME));
    if (!listener_.IsOpen()) {
        error = "runtime directory " + dir_.Path() + ": cannot make a socket: " + std::strerror(errno) +
                "; it needs a local file system with free space";
        return false;
    }
    return true;
}

bool ManagerSocket::Publish(std::string& error)
{
    if (::renameat(dir_.Fd(), UNPUBLISHED_NAME, dir_.Fd(), SOCKET_NAME) != 0) {
        error = "runtime directory " + dir_.Path() + ": cannot rename manager.new to manager: " + std::strerror(errno) +
                "; remove what is in its place";
        return false;
    }
    return true;
}

void ManagerSocket::Remove()
{
    ::unlinkat(dir_.Fd(), SOCKET_NAME, 0);
}

void RemoveStaleSockets(const Transport::RuntimeDir& dir)
{
    const int folder = ::openat(dir.Fd(), PEER_FOLDER, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder < 0) {
        return;
    }
    const std::unique_ptr<DIR, DirCloser> entries(::fdopendir(folder));
    if (entries == nullptr) {
        ::close(folder);
        return;
    }
    while (const dirent* entry = ::readdir(entries.get())) {
        const std::string name = std::string(PEER_FOLDER) + "/" + entry->d_name;
        bool isUnpublished = false;
        // Other files in the folder are not touched.
        if (IsInstanceName(entry->d_name, isUnpublished) && IsStale(dir, name, isUnpublished)) {
            ::unlinkat(dir.Fd(), name.c_str(), 0);
        }
    }
}

}  // namespace TAVO::Manager
