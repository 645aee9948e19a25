// SPDX-License-Identifier: Apache-2.0
// The ring of docs/wire.md by hand, either end of it.
#ifndef VELTRA_TESTS_SUPPORT_RAW_RING_H
#define VELTRA_TESTS_SUPPORT_RAW_RING_H

#include <atomic>
#include <string>

#include "support/process.h"
#include "support/raw_message.h"

namespace TestSupport {

// A mapping of a ring. Not open: it could not be made or had.
class RawRing {
public:
    static constexpr size_t CAPACITY = 256 * 1024;
    static constexpr size_t SIZE = 4096 + CAPACITY;
    static constexpr unsigned SHRINK = 2;  // of fcntl's seals
    static constexpr uint32_t AWAKE = 0, ASLEEP = 1, ENDED = 2;
    static constexpr uint64_t CLOSED = uint64_t{1} << 63;  // in the writer's count

    // Makes one as a receiver does, or nearly.
    RawRing(const RawInstance& owner, uint64_t lane, size_t size = SIZE, unsigned seals = SHRINK);
    // Opens what process `pid` has as `fd`.
    RawRing(pid_t pid, uint64_t fd);
    ~RawRing();
    RawRing(const RawRing&) = delete;
    RawRing& operator=(const RawRing&) = delete;

    bool IsOpen() const { return memory_ != nullptr; }
    int Fd() const { return fd_.Get(); }
    std::atomic_ref<uint64_t> Written() { return std::atomic_ref(*reinterpret_cast<uint64_t*>(memory_ + 64)); }
    std::atomic_ref<uint64_t> Read() { return std::atomic_ref(*reinterpret_cast<uint64_t*>(memory_ + 128)); }
    std::atomic_ref<uint32_t> Reader() { return std::atomic_ref(*reinterpret_cast<uint32_t*>(memory_ + 136)); }
    // Puts bytes in behind the last, without a look at the room.
    void Write(const Bytes& bytes);

private:
    void Map();

    OwnedFd fd_;
    uint8_t* memory_ = nullptr;
};

}  // namespace TestSupport

#endif
