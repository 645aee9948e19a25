// SPDX-License-Identifier: Apache-2.0
// The shared memory of docs/wire.md by hand, either end of it.
#ifndef VELTRA_TESTS_SUPPORT_RAW_MEMORY_H
#define VELTRA_TESTS_SUPPORT_RAW_MEMORY_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "support/process.h"
#include "support/raw_message.h"

namespace TestSupport {

// A mapping of it. Not open: it could not be created or opened.
class RawMemory {
public:
    static constexpr unsigned SHRINK = 2;  // of fcntl's seals

    // Creates it as the owner of `lane` does, or nearly.
    RawMemory(const RawInstance& owner, uint64_t lane, size_t size, unsigned seals);
    // Opens what process `pid` has as `fd`, `size` bytes of it.
    RawMemory(pid_t pid, uint64_t fd, size_t size);
    ~RawMemory();
    RawMemory(const RawMemory&) = delete;
    RawMemory& operator=(const RawMemory&) = delete;

    bool IsOpen() const { return memory_ != nullptr; }
    int Fd() const { return fd_.Get(); }
    uint8_t* At(size_t offset) { return memory_ + offset; }
    template <typename T>
    std::atomic_ref<T> AtomicAt(size_t offset)
    {
        return std::atomic_ref(*reinterpret_cast<T*>(memory_ + offset));
    }

private:
    void Map();

    const size_t size_;
    OwnedFd fd_;
    uint8_t* memory_ = nullptr;
};

}  // namespace TestSupport

#endif
