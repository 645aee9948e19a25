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
namespace {

std::atomic<int> g_pages{0};

}  // namespace

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

CallPage::CallPage(UniqueFd fd, bool isCreator)
    : fd_(std::move(fd)), isCreator_(isCreator), mapping_(fd_.Get(), sizeof(Layout))
{
    static_assert(sizeof(Layout) == 4096);
}

CallPage::~CallPage()
{
    if (isCreator_) {
        --g_pages;
    }
}

std::unique_ptr<CallPage> CallPage::Create(const Instance& self, uint64_t lane)
{
    UniqueFd fd = CreateSharedMemory(sizeof(Layout));
    if (!fd.IsOpen()) {
        return nullptr;
    }
    ++g_pages;  // The destructor decrements it.
    std::unique_ptr<CallPage> page(new (std::nothrow) CallPage(std::move(fd), true));
    if (page == nullptr) {
        --g_pages;
    }
    if (page == nullptr || page->mapping_.Get() == nullptr || g_pages > MOST) {
        return nullptr;
    }
    auto* const memory = new (page->mapping_.Get()) Layout;
    // The opener compares these two: the number of a descriptor may belong to another file by the time it opens it.
    memory->owner = self;
    memory->lane = lane;
    return page;
}

std::unique_ptr<CallPage> CallPage::Open(int pid, uint64_t fd, const Instance& owner, uint64_t lane)
{
    UniqueFd file = OpenSharedMemory(pid, fd, sizeof(Layout));
    if (!file.IsOpen()) {
        return nullptr;
    }
    std::unique_ptr<CallPage> page(new (std::nothrow) CallPage(std::move(file), false));
    if (page == nullptr || page->mapping_.Get() == nullptr) {
        return nullptr;
    }
    page->CloseFd();
    return page->Memory().owner == owner && page->Memory().lane == lane ? std::move(page) : nullptr;
}

void CallPage::Close() noexcept
{
    Requests().Close(false);
    Replies().Close(true);
}

}  // namespace TAVO::Transport
