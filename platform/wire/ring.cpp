// SPDX-License-Identifier: Apache-2.0
// Creates and opens the shared memory of a ring, and moves bytes through it. Each end keeps its own count in its own
// memory and uses the shared one only to learn about the other end, whose count is checked at each look: more bytes
// than the ring has room for end the lane. The memory is sealed against shrinking. Without that seal a peer could
// truncate it, and the next access here would raise SIGBUS.
//
// Sleep and wake-up: the reader stores ASLEEP and then looks at `written`; the writer changes `written` and then looks
// at the reader's state. Both orders are sequentially consistent, so at least one of them sees the other, and no frame
// stays unread by a sleeping reader.
#include "wire/ring.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace TAVO::Transport {
namespace {

constexpr std::string_view KIND = "/memfd:";  // how the kernel shows such a file, and no other

std::atomic<int> g_rings{0};

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

RingMapping::RingMapping(int fd)
{
    void* const memory = ::mmap(nullptr, sizeof(RingMemory), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    memory_ = memory != MAP_FAILED ? static_cast<RingMemory*>(memory) : nullptr;
}

RingMapping::~RingMapping()
{
    if (memory_ != nullptr) {
        ::munmap(memory_, sizeof(RingMemory));
    }
}

std::unique_ptr<RingReader> RingReader::Make(const Instance& self, uint64_t lane)
{
    UniqueFd fd(AboveStandardFds(::memfd_create("tavo-lane", MFD_CLOEXEC | MFD_ALLOW_SEALING)));
    // All of it is allocated now: with a lazy allocation a write into the ring could fail with SIGBUS when memory is
    // short.
    if (!fd.IsOpen() || ::posix_fallocate(fd.Get(), 0, sizeof(RingMemory)) != 0 ||
        ::fcntl(fd.Get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
        return nullptr;
    }
    ++g_rings;  // The destructor decrements it.
    std::unique_ptr<RingReader> ring(new (std::nothrow) RingReader(std::move(fd)));
    if (ring == nullptr) {
        --g_rings;
    }
    if (ring == nullptr || ring->mapping_.Get() == nullptr || g_rings > MOST) {
        return nullptr;
    }
    auto* const memory = new (ring->mapping_.Get()) RingMemory;
    // The writer compares these two: the number of a descriptor may belong to another file by the time it opens it.
    memory->owner = self;
    memory->lane = lane;
    return ring;
}

RingReader::~RingReader()
{
    --g_rings;
}

IoResult RingReader::Read(void* place, size_t size) noexcept
{
    RingMemory& memory = *mapping_.Get();
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
    mapping_.Get()->written.fetch_or(RingMemory::CLOSED);
    mapping_.Get()->reader.store(RingMemory::ENDED);
}

bool RingReader::EndIfUnused() noexcept
{
    RingMemory& memory = *mapping_.Get();
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
    if (mapping_.Get()->written.load() == read_) {
        return true;
    }
    WakeUp();
    return false;
}

std::unique_ptr<RingWriter> RingWriter::Open(int pid, uint64_t fd, const Instance& owner, uint64_t lane)
{
    const UniqueFd file = OpenMemory(pid, fd);
    struct stat status {};
    const int seals = file.IsOpen() ? ::fcntl(file.Get(), F_GET_SEALS) : -1;
    // Seals and size before the mapping is used. A sealed file keeps both.
    if (seals < 0 || (seals & F_SEAL_SHRINK) == 0 || ::fstat(file.Get(), &status) != 0 ||
        status.st_size != static_cast<off_t>(sizeof(RingMemory))) {
        return nullptr;
    }
    std::unique_ptr<RingWriter> ring(new (std::nothrow) RingWriter(file.Get()));
    const RingMemory* const memory = ring != nullptr ? ring->mapping_.Get() : nullptr;
    return memory != nullptr && memory->owner == owner && memory->lane == lane ? std::move(ring) : nullptr;
}

IoResult RingWriter::Write(const void* from, size_t size, bool& needsBell) noexcept
{
    RingMemory& memory = *mapping_.Get();
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
