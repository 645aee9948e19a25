// SPDX-License-Identifier: Apache-2.0
// Bounds the memory that unfinished messages may hold, for a whole process and for each peer.
#ifndef TAVO_TRANSPORT_BYTE_BUDGET_H
#define TAVO_TRANSPORT_BYTE_BUDGET_H

#include <atomic>
#include <cstddef>

namespace TAVO::Transport {

// Counts bytes; a parent counts them too. Any thread.
class ByteBudget {
public:
    static constexpr size_t PROCESS_LIMIT = size_t{256} << 20;
    static constexpr size_t PEER_LIMIT = size_t{128} << 20;

    explicit ByteBudget(size_t limit, ByteBudget* parent = nullptr) : limit_(limit), parent_(parent) {}

    // False, and nothing taken, when that would exceed a limit.
    bool Take(size_t bytes) noexcept
    {
        if (used_.fetch_add(bytes, std::memory_order_relaxed) + bytes > limit_ ||
            (parent_ != nullptr && !parent_->Take(bytes))) {
            used_.fetch_sub(bytes, std::memory_order_relaxed);
            return false;
        }
        return true;
    }
    // One message of the process at a time may go beyond, so that unfinished ones cannot wait for each other for ever:
    // takes them in any case when `message` is the one, or becomes it.
    bool TakeBeyond(size_t bytes, const void* message) noexcept
    {
        ByteBudget& whole = parent_ != nullptr ? *parent_ : *this;
        const void* known = nullptr;
        if (!whole.beyond_.compare_exchange_strong(known, message) && known != message) {
            return false;
        }
        used_.fetch_add(bytes, std::memory_order_relaxed);
        if (parent_ != nullptr) {
            parent_->used_.fetch_add(bytes, std::memory_order_relaxed);
        }
        return true;
    }
    // All that `message` took.
    void Give(size_t bytes, const void* message) noexcept
    {
        used_.fetch_sub(bytes, std::memory_order_relaxed);
        if (parent_ != nullptr) {
            parent_->Give(bytes, message);
        } else if (beyond_.load() == message) {
            beyond_.store(nullptr);
        }
    }
    size_t Used() const noexcept { return used_.load(std::memory_order_relaxed); }

private:
    const size_t limit_;
    ByteBudget* const parent_;
    std::atomic<size_t> used_{0};
    std::atomic<const void*> beyond_{nullptr};  // of the whole only
};

}  // namespace TAVO::Transport

#endif
