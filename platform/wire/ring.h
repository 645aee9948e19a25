// SPDX-License-Identifier: Apache-2.0
// A stream of bytes through memory that two processes share: how a one-way lane goes on that is used without pause.
#ifndef TAVO_WIRE_RING_H
#define TAVO_WIRE_RING_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "os/fd.h"
#include "wire/lane_memory.h"
#include "wire/wire.h"

namespace TAVO::Transport {

// What lies in the memory. Each end trusts its own count and checks the other's whenever it reads it. The reader ends
// the ring by setting CLOSED in the writer's count. The writer publishes bytes by a compare-and-swap of that count, so
// a write either comes before the end, and is read, or fails.
struct RingMemory {
    static constexpr size_t BYTES = 256 * 1024;
    static constexpr uint64_t CLOSED = uint64_t{1} << 63;
    // ASLEEP: the next write is to be followed by a bell. Set by the reader, reset by either end. ENDED: CLOSED was
    // set.
    enum Reader : uint32_t { AWAKE, ASLEEP, ENDED };

    Instance owner;  // the reader's process
    uint64_t lane = 0;
    alignas(64) std::atomic<uint64_t> written{0};  // bytes so far, and CLOSED
    alignas(64) std::atomic<uint64_t> read{0};
    std::atomic<uint32_t> reader{ASLEEP};
    alignas(4096) uint8_t bytes[BYTES];
};
static_assert(sizeof(RingMemory) == 4096 + RingMemory::BYTES && std::atomic<uint64_t>::is_always_lock_free);

// The end that makes it, all of it allocated and sealed. Used by one thread at a time.
class RingReader {
public:
    static constexpr int MOST = 64;  // in this process

    // Null when there is no memory or descriptor, or too many are there.
    static std::unique_ptr<RingReader> Make(const Instance& self, uint64_t lane);

    int Fd() const noexcept { return memory_.Fd(); }
    // The other end has it.
    void CloseFd() noexcept { memory_.CloseFd(); }

    // CLOSED: the ring has ended and all of it is read, or the writer's count is impossible.
    IoResult Read(void* place, size_t size) noexcept;
    // From now on the writer sends a bell with the next bytes. False, and it does not, when there are some already or
    // the ring has ended.
    bool Sleep() noexcept;
    void WakeUp() noexcept { Change(RingMemory::ASLEEP, RingMemory::AWAKE); }
    // Ends the ring: later writes fail.
    void End() noexcept;
    // Any thread: ends the ring if the reader sleeps and nothing is unread. False, and no change, otherwise.
    bool EndIfUnused() noexcept;

private:
    RingReader(const Instance& self, uint64_t lane) : memory_(self, lane, MOST) {}
    RingMemory& Memory() const noexcept { return memory_.Get(); }
    bool Change(uint32_t from, uint32_t to) noexcept { return Memory().reader.compare_exchange_strong(from, to); }

    LaneMemory<RingMemory> memory_;
    uint64_t read_ = 0;
};

// The end that sends. Used under its lane's lock.
class RingWriter {
public:
    // Opens what process `pid` has made as `fd`. Null when that is not what `owner` makes for `lane`, or not reachable.
    static std::unique_ptr<RingWriter> Open(int pid, uint64_t fd, const Instance& owner, uint64_t lane);

    // All or nothing. CLOSED: it will not be read, because the ring has ended or the reader's count is impossible.
    // `needsBell` becomes whether the reader slept.
    IoResult Write(const void* from, size_t size, bool& needsBell) noexcept;

private:
    RingWriter(int pid, uint64_t fd, const Instance& owner, uint64_t lane) : memory_(pid, fd, owner, lane) {}
    RingMemory& Memory() const noexcept { return memory_.Get(); }

    LaneMemory<RingMemory> memory_;
    uint64_t written_ = 0;
};

}  // namespace TAVO::Transport

#endif
