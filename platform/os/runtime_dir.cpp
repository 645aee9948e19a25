// SPDX-License-Identifier: Apache-2.0
// Finds the runtime directory and checks it through an open descriptor: what is checked is then what is used, even if
// the path is replaced meanwhile. Only this user may have access (mode 0700), and the path must not be a symbolic link,
// which another user could have put into a shared parent such as /tmp. The error text says what to do.
#include "os/runtime_dir.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "os/fd.h"

namespace TAVO::Transport {
namespace {

// -1 and the reason when `path` cannot be opened, or is no directory itself.
int OpenFolder(const std::string& path, std::string& reason)
{
    std::string name = path;
    while (name.size() > 1 && name.back() == '/') {  // With one behind it a link would be followed.
        name.pop_back();
    }
    const int fd = AboveStandardFds(::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (fd < 0 && (errno == ELOOP || errno == ENOTDIR)) {
        reason = "is a symbolic link or no directory; give a directory of your own";
    } else if (fd < 0) {
        const int failure = errno;
        // For the text only: it tells a manager that was never started from a missing parent.
        const bool hasParent = ::access(name.substr(0, name.rfind('/') + 1).c_str(), F_OK) == 0;
        reason = std::string("cannot be opened: ") + std::strerror(failure) +
                 (failure != ENOENT ? ""
                  : hasParent       ? "; start tavo_manager, which creates it"
                                    : "; create its parent, or set TAVO_RUNTIME_DIR to another directory");
    }
    return fd;
}

// Empty for a directory to which this user alone has access.
std::string WhyUntrusted(int fd, const std::string& path)
{
    struct stat status {};
    if (::fstat(fd, &status) != 0) {
        return std::string("cannot be examined: ") + std::strerror(errno);
    }
    if (status.st_uid != ::geteuid()) {
        return "belongs to another user; give a directory of your own";
    }
    // Below a parent with the setgid bit the kernel sets it here too; it gives no other user access.
    if (const unsigned mode = status.st_mode & 0777; mode != 0700) {
        char octal[8];
        std::snprintf(octal, sizeof(octal), "%04o", mode);
        return std::string("has mode ") + octal + "; only its owner may have access: chmod 0700 " + path;
    }
    return std::string();
}

// Empty if sockets in the directory fit into an address, by their plain paths or by way of /proc (see SocketPath).
std::string WhyOutOfReach(const std::string& path)
{
    constexpr size_t LONGEST_NAME = sizeof("/p/.new") - 1 + 32;  // with the instance of a process in hexadecimal
    constexpr size_t LONGEST_PATH = sizeof(sockaddr_un::sun_path) - 1 - LONGEST_NAME;
    if (path.size() <= LONGEST_PATH || ::access("/proc/self/fd", F_OK) == 0) {
        return std::string();
    }
    return "has " + std::to_string(path.size()) + " characters, and without /proc it may have " +
           std::to_string(LONGEST_PATH) + "; mount /proc, or set TAVO_RUNTIME_DIR to a shorter path";
}

}  // namespace

RuntimeDir::~RuntimeDir()
{
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

RuntimeDir::RuntimeDir(RuntimeDir&& other) noexcept : fd_(std::exchange(other.fd_, -1)), path_(std::move(other.path_))
{
}

RuntimeDir& RuntimeDir::operator=(RuntimeDir&& other) noexcept
{
    std::swap(fd_, other.fd_);
    std::swap(path_, other.path_);
    return *this;
}

std::string RuntimeDir::DefaultPath()
{
    const auto variable = [](const char* name) -> std::string {
        const char* value = std::getenv(name);
        return value != nullptr ? value : "";
    };
    if (std::string own = variable("TAVO_RUNTIME_DIR"); !own.empty()) {
        return own;
    }
    if (const std::string session = variable("XDG_RUNTIME_DIR"); !session.empty()) {
        return session + "/tavo";
    }
    return "/run/user/" + std::to_string(::geteuid()) + "/tavo";
}

RuntimeDir RuntimeDir::Open(const std::string& path, bool create, std::string& error)
{
    RuntimeDir dir;
    dir.path_ = path;
    std::string reason;
    if (path.empty() || path.front() != '/') {
        reason = "is a relative path, which means another directory in every working directory; give an absolute one";
        // Deliberate: only the last part is created. A missing parent is more likely a wrong path than one to create.
    } else if (create && ::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
        reason = std::string("cannot be created: ") + std::strerror(errno) +
                 "; create its parent, or set TAVO_RUNTIME_DIR to another directory";
    } else {
        dir.fd_ = OpenFolder(path, reason);
        reason = dir.fd_ >= 0 ? WhyUntrusted(dir.fd_, path) : reason;
        reason = reason.empty() ? WhyOutOfReach(path) : reason;
    }
    if (!reason.empty()) {
        error = "runtime directory " + path + ": " + reason;
        if (dir.fd_ >= 0) {
            ::close(std::exchange(dir.fd_, -1));
        }
    }
    return dir;
}

std::string RuntimeDir::SocketPath(const std::string& name) const
{
    std::string plain = path_ + "/" + name;
    if (IsOpen() && plain.front() == '/' && plain.size() < sizeof(sockaddr_un::sun_path)) {
        return plain;
    }
    // sun_path has 108 bytes; the kernel resolves the short path through the open directory.
    return "/proc/self/fd/" + std::to_string(fd_) + "/" + name;
}

}  // namespace TAVO::Transport
