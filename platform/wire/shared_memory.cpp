// SPDX-License-Identifier: Apache-2.0
// The creator seals the memory against shrinking: without that seal a peer could truncate it, and the next access here
// would raise SIGBUS. The opener checks what it opens, since the number of a descriptor may belong to another file by
// then.
#include "wire/shared_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <string>
#include <string_view>

namespace TAVO::Transport {
namespace {

constexpr std::string_view KIND = "/memfd:";  // how the kernel shows such a file, and no other

// Opens the file behind another's descriptor only once it is known to be memory: opening a file of another kind may
// wait.
UniqueFd OpenMemory(int pid, uint64_t fd)
{
    const std::string name = "/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd);
    // O_PATH does not open the file: a named pipe or a device in its place cannot block or act.
    const UniqueFd place(AboveStandardFds(::open(name.c_str(), O_PATH | O_CLOEXEC)));
    if (!place.IsOpen()) {
        return UniqueFd();
    }
    const std::string own = "/proc/self/fd/" + std::to_string(place.Get());
    // Only as many bytes as are compared; readlink cuts off the rest.
    char target[KIND.size()];
    if (::readlink(own.c_str(), target, sizeof(target)) != static_cast<ssize_t>(sizeof(target)) ||
        std::string_view(target, sizeof(target)) != KIND) {
        return UniqueFd();
    }
    return UniqueFd(AboveStandardFds(::open(own.c_str(), O_RDWR | O_CLOEXEC)));
}

}  // namespace

UniqueFd CreateSharedMemory(size_t bytes)
{
    UniqueFd fd(AboveStandardFds(::memfd_create("tavo-lane", MFD_CLOEXEC | MFD_ALLOW_SEALING)));
    // All of it is allocated now: with a lazy allocation a write into it could fail with SIGBUS when memory is short.
    if (!fd.IsOpen() || ::posix_fallocate(fd.Get(), 0, static_cast<off_t>(bytes)) != 0 ||
        ::fcntl(fd.Get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
        return UniqueFd();
    }
    return fd;
}

UniqueFd OpenSharedMemory(int pid, uint64_t fd, size_t bytes)
{
    UniqueFd file = OpenMemory(pid, fd);
    struct stat status {};
    const int seals = file.IsOpen() ? ::fcntl(file.Get(), F_GET_SEALS) : -1;
    // Seals and size before the memory is used. A sealed file keeps both.
    if (seals < 0 || (seals & F_SEAL_SHRINK) == 0 || ::fstat(file.Get(), &status) != 0 ||
        status.st_size != static_cast<off_t>(bytes)) {
        return UniqueFd();
    }
    return file;
}

SharedMapping::SharedMapping(int fd, size_t bytes) : bytes_(bytes)
{
    void* const memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    memory_ = memory != MAP_FAILED ? memory : nullptr;
}

SharedMapping::~SharedMapping()
{
    if (memory_ != nullptr) {
        ::munmap(memory_, bytes_);
    }
}

}  // namespace TAVO::Transport
