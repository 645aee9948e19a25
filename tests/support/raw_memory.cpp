// SPDX-License-Identifier: Apache-2.0
#include "support/raw_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

namespace TestSupport {

RawMemory::RawMemory(const RawInstance& owner, uint64_t lane, size_t size, unsigned seals)
    : size_(size), fd_(::memfd_create("raw", MFD_CLOEXEC | MFD_ALLOW_SEALING))
{
    Bytes names;
    Append(names, owner, lane);
    if (::ftruncate(fd_.Get(), static_cast<off_t>(size)) == 0 && ::fcntl(fd_.Get(), F_ADD_SEALS, seals) == 0 &&
        ::pwrite(fd_.Get(), names.data(), names.size(), 0) == static_cast<ssize_t>(names.size())) {
        Map();
    }
}

RawMemory::RawMemory(pid_t pid, uint64_t fd, size_t size)
    : size_(size),
      fd_(::open(("/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd)).c_str(), O_RDWR | O_CLOEXEC))
{
    Map();
}

RawMemory::~RawMemory()
{
    if (memory_ != nullptr) {
        ::munmap(memory_, size_);
    }
}

void RawMemory::Map()
{
    void* const memory = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_.Get(), 0);
    memory_ = memory != MAP_FAILED ? static_cast<uint8_t*>(memory) : nullptr;
}

}  // namespace TestSupport
