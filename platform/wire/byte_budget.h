// SPDX-License-Identifier: Apache-2.0
// Bounds the memory of messages that were received and not yet handed to a handler or caller, for a whole process and
// for each peer.
#ifndef TAVO_WIRE_BYTE_BUDGET_H
#define TAVO_WIRE_BYTE_BUDGET_H

#include <atomic>
#include <cstddef>
#include <utility>

namespace TAVO::Transport {

enum class MessageKind { REQUEST, REPLY };

// Counts bytes; a parent counts them too. Any thread.
class ByteBudget {
public:
    static constexpr size_t PROCESS_LIMIT = size_t{256} << 20;
    static constexpr size_t PEER_LIMIT = size_t{128} << 20;

    explicit ByteBudget(size_t limit, ByteBudget* parent = nullptr) : limit_(limit), parent_(parent) {}

    size_t Used() const noexcept { return used_.load(std::memory_order_relaxed); }

private:
    friend class ByteCharge;

    // False, and nothing charged, when that would exceed a limit.
    bool Take(size_t bytes) noexcept
    {
        if (used_.fetch_add(bytes, std::memory_order_relaxed) + bytes > limit_ ||
            (parent_ != nullptr && !parent_->Take(bytes))) {
            used_.fetch_sub(bytes, std::memory_order_relaxed);
            return false;
        }
        return true;
    }
    void TakeAnyway(size_t bytes) noexcept
    {
        used_.fetch_add(bytes, std::memory_order_relaxed);
        if (parent_ != nullptr) {
            parent_->TakeAnyway(bytes);
        }
    }
    void Give(size_t bytes) noexcept
    {
        used_.fetch_sub(bytes, std::memory_order_relaxed);
        if (parent_ != nullptr) {
            parent_->Give(bytes);
        }
    }
    // Whether a message of that kind exceeds the limits. Of the whole process.
    std::atomic<bool>& Exception(MessageKind kind) noexcept
    {
        return parent_ != nullptr ? parent_->Exception(kind) : exceptions_[static_cast<size_t>(kind)];
    }

    const size_t limit_;
    ByteBudget* const parent_;
    std::atomic<size_t> used_{0};
    std::atomic<bool> exceptions_[2] = {};
};

// The bytes that one message is charged with, until it is released or destroyed. One request and one reply of the
// process may exceed the limits at any time. Otherwise several incomplete messages could wait for each other for ever,
// and so could queued requests and the reply that their object's handler waits for.
class ByteCharge {
public:
    ByteCharge(ByteBudget* budget, MessageKind kind) noexcept : budget_(budget), kind_(kind) {}
    ByteCharge(ByteCharge&& other) noexcept
        : budget_(other.budget_),
          kind_(other.kind_),
          bytes_(std::exchange(other.bytes_, size_t{0})),
          isException_(std::exchange(other.isException_, false))
    {
    }
    ByteCharge& operator=(ByteCharge&&) = delete;
    ~ByteCharge() { Release(); }

    // Raises the charge to `bytes`; false, and unchanged, when the limits do not allow it now.
    bool RaiseTo(size_t bytes) noexcept
    {
        if (budget_ == nullptr || bytes <= bytes_) {
            return true;
        }
        if (!budget_->Take(bytes - bytes_)) {
            bool isTaken = false;
            if (!isException_ && !budget_->Exception(kind_).compare_exchange_strong(isTaken, true)) {
                return false;
            }
            isException_ = true;
            budget_->TakeAnyway(bytes - bytes_);
        }
        bytes_ = bytes;
        return true;
    }
    void Release() noexcept
    {
        if (bytes_ != 0) {
            budget_->Give(std::exchange(bytes_, size_t{0}));
        }
        if (std::exchange(isException_, false)) {
            budget_->Exception(kind_).store(false);
        }
    }

private:
    ByteBudget* const budget_;  // null: nothing is counted
    const MessageKind kind_;
    size_t bytes_ = 0;
    bool isException_ = false;
};

}  // namespace TAVO::Transport

#endif
