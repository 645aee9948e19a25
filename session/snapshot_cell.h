// SPDX-License-Identifier: Apache-2.0
// Where one thread leaves the latest snapshot for any number of others, without a lock.
#ifndef VELTRA_SESSION_SNAPSHOT_CELL_H
#define VELTRA_SESSION_SNAPSHOT_CELL_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "veltra_session.h"

namespace TAVO::Veltra {

// Two slots and a count of what was published: the count's lowest bit names the slot to read. The writer fills the
// other slot, then publishes it; so a writer that is suspended half-way delays no reader. A reader copies its slot and
// is done if the count is still the same; otherwise the writer may have begun to fill that slot, and it copies again.
//
// The words are atomics, so that copying beside a writer is no data race. A reader that meets a word of the publication
// after the next has synchronised with it (release, acquire) and sees the higher count. Plain moves on x86.
class SnapshotCell {
public:
    DeviceSnapshot Load() const noexcept
    {
        Words words;
        uint64_t before = 0;
        do {
            before = published_.load(std::memory_order_acquire);
            const Slot& slot = slots_[before % 2];
            for (size_t i = 0; i < WORDS; ++i) {
                words[i] = slot[i].load(std::memory_order_acquire);
            }
        } while (published_.load(std::memory_order_relaxed) != before);
        DeviceSnapshot snapshot;
        std::memcpy(static_cast<void*>(&snapshot), words.data(), sizeof(snapshot));
        return snapshot;
    }

    // One thread only.
    void Store(const DeviceSnapshot& snapshot) noexcept
    {
        Words words{};
        std::memcpy(words.data(), &snapshot, sizeof(snapshot));
        const uint64_t next = published_.load(std::memory_order_relaxed) + 1;
        for (size_t i = 0; i < WORDS; ++i) {
            slots_[next % 2][i].store(words[i], std::memory_order_release);
        }
        published_.store(next, std::memory_order_release);
    }

    SnapshotCell() { Store(DeviceSnapshot()); }

private:
    static constexpr size_t WORDS = (sizeof(DeviceSnapshot) + sizeof(uint64_t) - 1) / sizeof(uint64_t);
    using Words = std::array<uint64_t, WORDS>;
    using Slot = std::array<std::atomic<uint64_t>, WORDS>;

    std::array<Slot, 2> slots_{};
    std::atomic<uint64_t> published_{0};
};

}  // namespace TAVO::Veltra

#endif
