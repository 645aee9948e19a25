// SPDX-License-Identifier: Apache-2.0
// Moves bytes through the shared memory of a ring. Each end keeps its own count in its own memory and uses the shared
// one only to learn about the other end, whose count is checked at each look: more bytes than the ring has room for end
// the lane.
//
// Sleep and wake-up: the reader stores ASLEEP and then looks at `written`; the writer changes `written` and then looks
// at the reader's state. Both orders are sequentially consistent, so at least one of them sees the other, and no frame
// stays unread by a sleeping reader.
#include "wire/ring.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace TAVO::Transport {
namespace {

// Copies between the ring and `size` bytes at `at` of the stream, which wraps around.
template <typename Copy>
void CopyAround(uint64_t at, size_t size, const Copy& copy)
{
    const size_t begin = at % RingMemory::BYTES;
    const size_t first = std::min(size, RingMemory::BYTES - begin);
    copy(begin, size_t{0}, first);
    if (first != size) {
        copy(size_t{0}, first, size - first);
    }
}

}  // namespace

std::unique_ptr<RingReader> RingReader::Make(const Instance& self, uint64_t lane)
{
    std::unique_ptr<RingReader> ring(new (std::nothrow) RingReader(self, lane));
    return ring != nullptr && ring->memory_.IsOpen() ? std::move(ring) : nullptr;
}

IoResult RingReader::Read(void* place, size_t size) noexcept
{
    RingMemory& memory = Memory();
    const uint64_t written = memory.written.load(std::memory_order_acquire);
    const bool hasEnded = (written & RingMemory::CLOSED) != 0;
    // If the peer has set its count back, the difference wraps around and exceeds BYTES.
    const uint64_t there = (written & ~RingMemory::CLOSED) - read_;
    if (there > RingMemory::BYTES) {
        return {IoStatus::CLOSED, 0};
    }
    if (there == 0) {
        return {hasEnded ? IoStatus::CLOSED : IoStatus::WOULD_BLOCK, 0};
    }
    const size_t taken = std::min<size_t>(size, there);
    CopyAround(read_, taken, [&](size_t at, size_t done, size_t bytes) {
        std::memcpy(static_cast<uint8_t*>(place) + done, memory.bytes + at, bytes);
    });
    read_ += taken;
    // After the copy: from here on the writer may overwrite these bytes.
    memory.read.store(read_, std::memory_order_release);
    return {IoStatus::OK, taken};
}

void RingReader::End() noexcept
{
    // In the writer's own count, so that its next compare-and-swap fails: a frame is either published before the end,
    // and read, or refused.
    Memory().written.fetch_or(RingMemory::CLOSED);
    Memory().reader.store(RingMemory::ENDED);
}

bool RingReader::EndIfUnused() noexcept
{
    RingMemory& memory = Memory();
    // Succeeds only if written == read: everything is read, and no write comes in between.
    uint64_t all = memory.read.load(std::memory_order_acquire);
    if (memory.reader.load() != RingMemory::ASLEEP ||
        !memory.written.compare_exchange_strong(all, all | RingMemory::CLOSED)) {
        return false;
    }
    memory.reader.store(RingMemory::ENDED);
    return true;
}

bool RingReader::Sleep() noexcept
{
    Change(RingMemory::AWAKE, RingMemory::ASLEEP);
    if (Memory().written.load() == read_) {
        return true;
    }
    WakeUp();
    return false;
}

std::unique_ptr<RingWriter> RingWriter::Open(int pid, uint64_t fd, const Instance& owner, uint64_t lane)
{
    std::unique_ptr<RingWriter> ring(new (std::nothrow) RingWriter(pid, fd, owner, lane));
    return ring != nullptr && ring->memory_.IsOpen() ? std::move(ring) : nullptr;
}

IoResult RingWriter::Write(const void* from, size_t size, bool& needsBell) noexcept
{
    RingMemory& memory = Memory();
    // The writer's own count, not the shared one: a receiver that changes it gains nothing.
    const uint64_t unread = written_ - memory.read.load(std::memory_order_acquire);
    if (unread > RingMemory::BYTES) {
        return {IoStatus::CLOSED, 0};
    }
    if (size > RingMemory::BYTES - unread) {
        return {IoStatus::WOULD_BLOCK, 0};
    }
    CopyAround(written_, size, [&](size_t at, size_t done, size_t bytes) {
        std::memcpy(memory.bytes + at, static_cast<const uint8_t*>(from) + done, bytes);
    });
    // Before the look at the reader, as the reader falls asleep before it looks at this count.
    uint64_t before = written_;
    if (!memory.written.compare_exchange_strong(before, written_ + size)) {
        return {IoStatus::CLOSED, 0};
    }
    written_ += size;
    uint32_t reader = memory.reader.load();
    // The exchange makes it one bell for each sleep, however many frames follow.
    needsBell = reader == RingMemory::ASLEEP && memory.reader.compare_exchange_strong(reader, RingMemory::AWAKE);
    return {IoStatus::OK, size};
}

}  // namespace TAVO::Transport
