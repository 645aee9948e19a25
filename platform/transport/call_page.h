// SPDX-License-Identifier: Apache-2.0
// A page of memory that both ends of a busy call lane share: small requests and replies go through it.
#ifndef TAVO_TRANSPORT_CALL_PAGE_H
#define TAVO_TRANSPORT_CALL_PAGE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "os/fd.h"
#include "transport/spin.h"
#include "wire/lane_memory.h"
#include "wire/wire.h"

namespace TAVO::Transport {

// One direction: room for one frame, and a state that tells the sender where its receiver waits. In shared memory: the
// peer may write anything at any time.
class CallBox {
public:
    enum State : uint32_t {
        ABSENT,  // the receiver waits at the socket, or not at all
        AWAKE,   // it looks at this box
        ASLEEP,  // it sleeps on the state
        FULL,    // a frame is in the box
        SOCKET,  // the frame goes through the socket
        CLOSED,  // the lane has ended
    };

    // ---- The sender, one frame at a time
    // Puts a whole frame into the box. False: it is to be sent through the socket, where the receiver looks next.
    bool Put(const uint8_t* frame, size_t size) noexcept;
    // A frame comes soon: wakes up the receiver if it sleeps at the box. Any thread of the sender, at any time.
    void Alert() noexcept;

    // ---- The receiver
    // From now on frames may come through the box. False if the next one comes through the socket, or none will come.
    bool Attend() noexcept { return Change(ABSENT, AWAKE); }
    // Waits after Attend. FULL, SOCKET and CLOSED as above; ABSENT: nothing has come by `deadline`, and the next frame
    // comes through the socket. Polls first, and when it is alerted, if there is a `spin`.
    struct Waited {
        uint32_t state;
        bool hasSlept;  // and was woken up
    };
    Waited Wait(Spin* spin, Deadline deadline) noexcept;
    // The frame in a box that is FULL. To be read once, since it may change meanwhile.
    std::pair<const uint8_t*, const uint8_t*> Frame() const noexcept;
    // The frame is read. False: the sender has withdrawn it meanwhile.
    bool Release() noexcept { return Change(FULL, ABSENT); }
    // The frame is read from the socket. False: the sender does not know of the box.
    bool ReleaseSocket() noexcept { return Change(SOCKET, ABSENT); }

    // ---- Either, any thread
    // Wakes up the receiver, and closes the box. A frame that was announced stays if `keepsFrame`.
    void Close(bool keepsFrame) noexcept;

private:
    // Asleep, until that is changed; false when that is this thread after `deadline`: the receiver has left the box.
    bool Sleep(Deadline deadline) noexcept;
    bool Change(uint32_t from, uint32_t to) noexcept { return state_.compare_exchange_strong(from, to); }

    std::atomic<uint32_t> state_{ABSENT};
    uint32_t bytes_ = 0;
    uint8_t frame_[2008];
};

class CallPage {
public:
    static constexpr int MOST = 256;  // created by this process

    // The end that receives requests creates it. Null when there is no memory or descriptor, or too many are there.
    static std::unique_ptr<CallPage> Create(const Instance& self, uint64_t lane);
    // Opens what process `pid` has created as `fd`. Null when that is not what `owner` creates for `lane`, or not
    // reachable.
    static std::unique_ptr<CallPage> Open(int pid, uint64_t fd, const Instance& owner, uint64_t lane);

    int Fd() const noexcept { return memory_.Fd(); }
    // The other end has it.
    void CloseFd() noexcept { memory_.CloseFd(); }

    CallBox& Requests() noexcept { return memory_.Get().requests; }
    CallBox& Replies() noexcept { return memory_.Get().replies; }
    // Any thread: the lane has ended. A reply that was sent can still be read; a request that was not read is withdrawn.
    void Close() noexcept;

private:
    struct Layout {
        Instance owner;  // the creator's process
        uint64_t lane = 0;
        alignas(64) CallBox requests;
        alignas(32) CallBox replies;
    };

    CallPage(const Instance& self, uint64_t lane) : memory_(self, lane, MOST) {}
    CallPage(int pid, uint64_t fd, const Instance& owner, uint64_t lane) : memory_(pid, fd, owner, lane) {}

    LaneMemory<Layout> memory_;
};

// Where a lane keeps its page: set once, by one thread, and read by any until the lane is destroyed.
class CallPageSlot {
public:
    void Set(std::unique_ptr<CallPage> page) noexcept
    {
        owner_ = std::move(page);
        page_.store(owner_.get(), std::memory_order_release);
    }
    CallPage* Get() const noexcept { return page_.load(std::memory_order_acquire); }
    void Close() noexcept
    {
        if (CallPage* const page = Get(); page != nullptr) {
            page->Close();
        }
    }

private:
    std::unique_ptr<CallPage> owner_;
    std::atomic<CallPage*> page_{nullptr};
};

}  // namespace TAVO::Transport

#endif
