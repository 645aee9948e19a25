// SPDX-License-Identifier: Apache-2.0
// Owner of one file descriptor.
#ifndef VELTRA_SERVICE_UNIQUE_FD_H
#define VELTRA_SERVICE_UNIQUE_FD_H

#include <unistd.h>

#include <utility>

namespace TAVO::Veltra {

class UniqueFd {
public:
    UniqueFd() noexcept = default;
    explicit UniqueFd(int fd) noexcept : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~UniqueFd()
    {
        if (fd_ >= 0) {
            close(fd_);
        }
    }

    bool IsOpen() const noexcept { return fd_ >= 0; }
    int Get() const noexcept { return fd_; }
    int Release() noexcept { return std::exchange(fd_, -1); }

private:
    int fd_ = -1;
};

}  // namespace TAVO::Veltra

#endif
