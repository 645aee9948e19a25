// SPDX-License-Identifier: Apache-2.0
// The runtime directory: where it is, and whether it can be trusted.
#ifndef TAVO_OS_RUNTIME_DIR_H
#define TAVO_OS_RUNTIME_DIR_H

#include <string>

namespace TAVO::Transport {

// An open descriptor of the directory (close-on-exec). Its path may have any length.
class RuntimeDir {
public:
    RuntimeDir() = default;
    ~RuntimeDir();
    RuntimeDir(RuntimeDir&& other) noexcept;
    RuntimeDir& operator=(RuntimeDir&& other) noexcept;

    // $TAVO_RUNTIME_DIR, else $XDG_RUNTIME_DIR/tavo, else /run/user/UID/tavo.
    static std::string DefaultPath();
    // Opens `path`, which must be absolute, and checks through the descriptor that it is a directory of this user with
    // mode 0700 (the setgid bit may be set) and no symbolic link. With `create` a missing one is created (its last
    // component only). On failure the result is not open and `error` holds one line: path, reason, remedy.
    static RuntimeDir Open(const std::string& path, bool create, std::string& error);

    bool IsOpen() const noexcept { return fd_ >= 0; }
    int Fd() const noexcept { return fd_; }
    const std::string& Path() const noexcept { return path_; }
    // A path for bind and connect that fits into a socket address: the plain one if it is absolute and short, since the
    // path through /proc takes a new process four times as long; else "/proc/self/fd/N/<name>". The peer is checked
    // again once it is connected: the plain path may lead elsewhere than the descriptor by then.
    std::string SocketPath(const std::string& name) const;

private:
    int fd_ = -1;
    std::string path_;
};

}  // namespace TAVO::Transport

#endif
