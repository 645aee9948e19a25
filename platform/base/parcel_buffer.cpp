// SPDX-License-Identifier: Apache-2.0
// A block is a capacity, the headroom and the data in one piece; callers know the address of the data alone. Small
// blocks come from the cache of the calling thread, most recently used first, without a lock; the block goes to the
// cache of the thread that frees it, whichever made it. Larger ones come from the C library, the largest are mappings
// that grow by mremap: the kernel moves page table entries and copies nothing. A block's kind follows from its capacity
// alone, so the capacity that is noted is always the full one. Nothing here throws; if out of memory the result is
// null.
#include "base/parcel_buffer.h"

#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "tavo/large_pages.h"

namespace TAVO::ParcelBuffer {

namespace {

struct alignas(std::max_align_t) Block {
    size_t capacity;
    alignas(std::max_align_t) uint8_t headroom[HEADROOM];

    uint8_t* Data() noexcept { return headroom + HEADROOM; }
    static Block* Of(const uint8_t* data) noexcept
    {
        return reinterpret_cast<Block*>(const_cast<uint8_t*>(data) - sizeof(Block));
    }
};
static_assert(sizeof(Block) == 16 + HEADROOM, "nothing lies between headroom and data");

// Trivially destructible, so it can be used until the very end of its thread; Close frees what it holds.
struct Cache {
    Block* blocks[MAX_KEPT_BLOCKS];
    size_t count;
    size_t bytes;
    bool isArmed;   // Close will run when the thread ends
    bool isClosed;  // it has run

    Block* Take(size_t capacity) noexcept
    {
        for (size_t i = count; i-- > 0;) {  // the one used last is the warmest
            Block* block = blocks[i];
            if (block->capacity >= capacity) {
                std::copy(blocks + i + 1, blocks + count, blocks + i);
                --count;
                bytes -= block->capacity;
                return block;
            }
        }
        return nullptr;
    }

    bool Keep(Block* block) noexcept
    {
        if (isClosed || block->capacity > MAX_KEPT_CAPACITY || count == MAX_KEPT_BLOCKS ||
            bytes + block->capacity > MAX_KEPT_BYTES) {
            return false;
        }
        blocks[count++] = block;
        bytes += block->capacity;
        return true;
    }
};
thread_local Cache t_cache{};

void Close(void*)
{
    t_cache.isClosed = true;
    std::for_each(t_cache.blocks, t_cache.blocks + t_cache.count, std::free);
    t_cache.count = 0;
}

// Deliberate: a key and no object with a destructor. The C library ends the process when it has no memory to note the
// latter.
bool Arm() noexcept
{
    static const struct Key {
        Key() noexcept : isMade(pthread_key_create(&key, Close) == 0) {}
        pthread_key_t key;
        const bool isMade;
    } KEY;
    return KEY.isMade && pthread_setspecific(KEY.key, &t_cache) == 0;
}

// The sanitizers see blocks of the C library only: the thread sanitizer takes memory that mremap has moved for a race.
#ifdef TAVO_SANITIZED
constexpr bool MAPS_LARGE_BLOCKS = false;
#else
constexpr bool MAPS_LARGE_BLOCKS = true;
#endif

bool IsLarge(size_t blockBytes) noexcept
{
    return MAPS_LARGE_BLOCKS && blockBytes >= LARGE_BLOCK_BYTES;
}

bool IsLarge(const Block* block) noexcept
{
    return block != nullptr && IsLarge(sizeof(Block) + block->capacity);
}

// The size of the whole block, for large ones in whole huge pages.
size_t BlockBytes(size_t capacity) noexcept
{
    const size_t bytes = sizeof(Block) + capacity;
    return IsLarge(bytes) ? (bytes + LARGE_PAGE_BYTES - 1) / LARGE_PAGE_BYTES * LARGE_PAGE_BYTES : bytes;
}

void Release(Block* block) noexcept
{
    if (IsLarge(block)) {
        ::munmap(block, BlockBytes(block->capacity));
    } else {
        std::free(block);
    }
}

// Deliberate: large blocks are mappings of our own. The C library takes blocks of up to 32 MiB from a heap once it has
// seen one of them freed: growing then copies, and each page is a fault. A mapping of whole huge pages grows by moving
// its page table entries.
Block* ResizeLarge(Block* block, size_t bytes) noexcept
{
    const bool wasLarge = IsLarge(block);
    void* const mapped = wasLarge ? ::mremap(block, BlockBytes(block->capacity), bytes, MREMAP_MAYMOVE)
                                  : ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) {
        return nullptr;
    }
    UseLargePages(mapped, bytes);
    if (block != nullptr && !wasLarge) {
        std::memcpy(mapped, block, sizeof(Block) + block->capacity);
        std::free(block);
    }
    return static_cast<Block*>(mapped);
}

Block* Resize(Block* block, size_t capacity) noexcept
{
    // The sums in BlockBytes cannot overflow after this.
    if (capacity > PTRDIFF_MAX - sizeof(Block) - LARGE_PAGE_BYTES) {
        return nullptr;
    }
    const size_t bytes = BlockBytes(capacity);
    auto* resized = IsLarge(bytes) ? ResizeLarge(block, bytes) : static_cast<Block*>(std::realloc(block, bytes));
    if (resized != nullptr) {
        resized->capacity = bytes - sizeof(Block);
    }
    return resized;
}

}  // namespace

uint8_t* Allocate(size_t capacity) noexcept
{
    Block* block = t_cache.Take(capacity);
    if (block == nullptr) {
        block = Resize(nullptr, std::max(capacity, FIRST_CAPACITY));
    }
    return block == nullptr ? nullptr : block->Data();
}

uint8_t* Enlarge(uint8_t* data, size_t capacity) noexcept
{
    Block* block = Resize(Block::Of(data), capacity);
    return block == nullptr ? nullptr : block->Data();
}

void Free(uint8_t* data) noexcept
{
    Block* block = Block::Of(data);
    // Only a thread that has freed a block has something to release at its end.
    t_cache.isArmed = t_cache.isArmed || Arm();
    if (!t_cache.isArmed || !t_cache.Keep(block)) {
        Release(block);
    }
}

size_t Capacity(const uint8_t* data) noexcept
{
    return Block::Of(data)->capacity;
}

}  // namespace TAVO::ParcelBuffer
