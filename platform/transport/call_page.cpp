// SPDX-License-Identifier: Apache-2.0
// A frame moves through the page by one change of the box's state, and a sleeping receiver is woken up by a futex: both
// cost much less than a socket. The socket stays the lane's connection: it reports the end, carries large frames, and
// wakes up a worker that waits for many lanes at once.
//
// The state alone decides where the receiver finds the next frame, so the two cannot miss each other. A receiver that
// attends the box changes ABSENT to AWAKE, and to ASLEEP before it sleeps; one that leaves changes it back to ABSENT. A
// sender that finds it there writes the frame and changes the state to FULL, else to SOCKET. Each change is a
// compare-and-swap: the one that comes second fails and looks again.
#include "transport/call_page.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "os/futex.h"
#include "transport/lane_key.h"

namespace TAVO::Transport {

bool CallBox::Put(const uint8_t* frame, size_t size) noexcept
{
    const bool fits = size <= sizeof(frame_);
    bool isCopied = false;
    uint32_t state = state_.load(std::memory_order_acquire);
    while (state <= ASLEEP) {
        const bool isHere = fits && state != ABSENT;
        if (isHere && !std::exchange(isCopied, true)) {
            std::memcpy(frame_, frame, size);
            bytes_ = static_cast<uint32_t>(size);
        }
        // Fails if the receiver falls asleep, or leaves, in between.
        if (state_.compare_exchange_strong(state, isHere ? FULL : SOCKET)) {
            if (state == ASLEEP) {
                WakeUp(state_);
            }
            return isHere;
        }
    }
    return false;  // The lane has ended: the socket reports it.
}

void CallBox::Alert() noexcept
{
    // Looked at first: at a box that is in constant use this costs no exclusive access to its memory.
    if (state_.load(std::memory_order_relaxed) == ASLEEP && Change(ASLEEP, AWAKE)) {
        WakeUp(state_);
    }
}

CallBox::Waited CallBox::Wait(Spin* spin, Deadline deadline) noexcept
{
    const auto hasCome = [this] { return state_.load(std::memory_order_acquire) != AWAKE; };
    // One look first: a peer that was quicker costs no look at the clock.
    if (spin != nullptr && !hasCome()) {
        spin->Poll(hasCome);
    }
    bool hasSlept = false;
    while (Change(AWAKE, ASLEEP)) {
        hasSlept = true;
        if (!Sleep(deadline)) {
            return {ABSENT, hasSlept};
        }
        // Awake without a frame: the sender has announced one. Without an end it may announce what never comes.
        if (!hasCome() && (spin == nullptr || !spin->PollAlerted(hasCome)) && Clock::now() >= deadline &&
            Change(AWAKE, ABSENT)) {
            return {ABSENT, hasSlept};
        }
    }
    return {state_.load(std::memory_order_acquire), hasSlept};
}

bool CallBox::Sleep(Deadline deadline) noexcept
{
    while (state_.load(std::memory_order_acquire) == ASLEEP) {
        if (!SleepWhile(state_, ASLEEP, deadline) && Change(ASLEEP, ABSENT)) {
            return false;
        }
    }
    return true;
}

std::pair<const uint8_t*, const uint8_t*> CallBox::Frame() const noexcept
{
    // A size that is too large cannot lead out of the page; the frame then does not fit its header.
    return {frame_, frame_ + std::min<size_t>(bytes_, sizeof(frame_))};
}

void CallBox::Close(bool keepsFrame) noexcept
{
    uint32_t state = state_.load();
    while (!(keepsFrame && (state == FULL || state == SOCKET))) {
        if (state_.compare_exchange_strong(state, CLOSED)) {
            WakeUp(state_);
            return;
        }
    }
}

std::unique_ptr<CallPage> CallPage::Create(const Instance& self, uint64_t lane)
{
    static_assert(sizeof(Layout) == 4096);
    std::unique_ptr<CallPage> page(new (std::nothrow) CallPage(self, lane));
    return page != nullptr && page->memory_.IsOpen() ? std::move(page) : nullptr;
}

std::unique_ptr<CallPage> CallPage::Open(int pid, uint64_t fd, const Instance& owner, uint64_t lane)
{
    std::unique_ptr<CallPage> page(new (std::nothrow) CallPage(pid, fd, owner, lane));
    return page != nullptr && page->memory_.IsOpen() ? std::move(page) : nullptr;
}

void CallPage::Close() noexcept
{
    Requests().Close(false);
    Replies().Close(true);
}

}  // namespace TAVO::Transport
