// SPDX-License-Identifier: Apache-2.0
// The page of a call lane by hand, either end of it.
#ifndef VELTRA_TESTS_SUPPORT_RAW_PAGE_H
#define VELTRA_TESTS_SUPPORT_RAW_PAGE_H

#include <optional>

#include "support/raw_memory.h"

namespace TestSupport {

// One direction.
class RawBox {
public:
    static constexpr uint32_t ABSENT = 0, AWAKE = 1, ASLEEP = 2, FULL = 3, SOCKET = 4, CLOSED = 5;
    static constexpr size_t MOST_BYTES = 2008;

    RawBox(RawMemory& memory, size_t at) : memory_(memory), at_(at) {}

    std::atomic_ref<uint32_t> State() { return memory_.AtomicAt<uint32_t>(at_); }
    bool IsAttended() { return State() == AWAKE || State() == ASLEEP; }
    // Changes the state and wakes up the other end.
    void Set(uint32_t state);
    // Writes the frame and `size`, which may be a lie. If the receiver attends, the state becomes `state`; false if not.
    bool Put(const Bytes& frame, uint32_t size, uint32_t state = FULL);
    bool Put(const Bytes& frame) { return Put(frame, static_cast<uint32_t>(frame.size())); }
    // Waits for a frame and takes it out; nothing if the state does not become FULL in time.
    std::optional<Bytes> Take();

private:
    RawMemory& memory_;
    const size_t at_;
};

class RawPage : public RawMemory {
public:
    static constexpr size_t SIZE = 4096;

    // As the end that serves the lane, or nearly; or that of process `pid`.
    RawPage(const RawInstance& owner, uint64_t lane, size_t size = SIZE, unsigned seals = SHRINK)
        : RawMemory(owner, lane, size, seals)
    {
    }
    RawPage(pid_t pid, uint64_t fd) : RawMemory(pid, fd, SIZE) {}

    RawBox requests{*this, 64};
    RawBox replies{*this, 2080};
};

}  // namespace TestSupport

#endif
