// SPDX-License-Identifier: Apache-2.0
#include "support/raw_ring.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace TestSupport {

RawRing::RawRing(const RawInstance& owner, uint64_t lane, size_t size, unsigned seals)
    : fd_(::memfd_create("raw", MFD_CLOEXEC | MFD_ALLOW_SEALING))
{
    Bytes names;
    Append(names, owner, lane);
    if (::ftruncate(fd_.Get(), static_cast<off_t>(size)) == 0 && ::fcntl(fd_.Get(), F_ADD_SEALS, seals) == 0 &&
        ::pwrite(fd_.Get(), names.data(), names.size(), 0) == static_cast<ssize_t>(names.size())) {
        Map();
    }
}

RawRing::RawRing(pid_t pid, uint64_t fd)
    : fd_(::open(("/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd)).c_str(), O_RDWR | O_CLOEXEC))
{
    Map();
}

RawRing::~RawRing()
{
    if (memory_ != nullptr) {
        ::munmap(memory_, SIZE);
    }
}

void RawRing::Map()
{
    void* const memory = ::mmap(nullptr, SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, fd_.Get(), 0);
    memory_ = memory != MAP_FAILED ? static_cast<uint8_t*>(memory) : nullptr;
}

void RawRing::Write(const Bytes& bytes)
{
    const uint64_t written = Written().load();
    for (size_t i = 0; i < bytes.size(); ++i) {
        memory_[4096 + (written + i) % CAPACITY] = bytes[i];
    }
    Written().store(written + bytes.size());
}

}  // namespace TestSupport
