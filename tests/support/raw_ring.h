// SPDX-License-Identifier: Apache-2.0
// The ring of docs/wire.md by hand, either end of it.
#ifndef VELTRA_TESTS_SUPPORT_RAW_RING_H
#define VELTRA_TESTS_SUPPORT_RAW_RING_H

#include "support/raw_memory.h"

namespace TestSupport {

class RawRing : public RawMemory {
public:
    static constexpr size_t CAPACITY = 256 * 1024;
    static constexpr size_t SIZE = 4096 + CAPACITY;
    static constexpr uint32_t AWAKE = 0, ASLEEP = 1, ENDED = 2;
    static constexpr uint64_t CLOSED = uint64_t{1} << 63;  // in the writer's count

    // As a receiver, or nearly; or that of process `pid`.
    RawRing(const RawInstance& owner, uint64_t lane, size_t size = SIZE, unsigned seals = SHRINK)
        : RawMemory(owner, lane, size, seals)
    {
    }
    RawRing(pid_t pid, uint64_t fd) : RawMemory(pid, fd, SIZE) {}

    std::atomic_ref<uint64_t> Written() { return AtomicAt<uint64_t>(64); }
    std::atomic_ref<uint64_t> Read() { return AtomicAt<uint64_t>(128); }
    std::atomic_ref<uint32_t> Reader() { return AtomicAt<uint32_t>(136); }
    // Puts bytes in behind the last, without a look at the room.
    void Write(const Bytes& bytes)
    {
        const uint64_t written = Written().load();
        for (size_t i = 0; i < bytes.size(); ++i) {
            *At(4096 + (written + i) % CAPACITY) = bytes[i];
        }
        Written().store(written + bytes.size());
    }
};

}  // namespace TestSupport

#endif
