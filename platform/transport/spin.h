// SPDX-License-Identifier: Apache-2.0
// Polls a socket for a moment before its thread sleeps: a message that arrives in that time costs no wake-up.
#ifndef TAVO_TRANSPORT_SPIN_H
#define TAVO_TRANSPORT_SPIN_H

#include <chrono>
#include <cstddef>

#include "os/fd.h"

namespace TAVO::Transport {

// The time after which polling is tried again. A wait in which polling received nothing doubles it, from FIRST to MAX;
// one in which it received a message halves it, so polling resumes at once where it pays. Where polling loses the
// processor to another program, the pause is in proportion to the loss, and doubles with each loss that follows soon.
class SpinPause {
public:
    using Time = std::chrono::steady_clock::time_point;
    static constexpr std::chrono::microseconds FIRST{64};
    static constexpr std::chrono::microseconds MAX{1000000};
    static constexpr int PER_LOSS = 16;  // times as long as the loss

    bool IsOver(Time now) const noexcept { return now >= end_; }
    void OnMessage() noexcept { length_ /= 2; }
    void OnNothing(Time now) noexcept { Extend(now, length_, FIRST); }
    // `since`: when it had the processor last.
    void OnLostProcessor(Time since, Time now) noexcept;

private:
    void Extend(Time now, std::chrono::microseconds& length, std::chrono::microseconds least) noexcept;

    std::chrono::microseconds length_{0};
    std::chrono::microseconds lossLength_{0};
    Time end_;
};

// For one end of one lane, whose waits it learns from; one thread at a time. TAVO_SPIN=off in the environment turns
// polling off for the process.
class Spin {
public:
    // How often a wait polls. Each poll takes 0.3 us of the processor at a page, up to 1 us at a socket. Long enough for
    // a wake-up of the other end: with less, a wait that misses a message makes the next one miss too.
    static constexpr int CALLER_POLLS = 150;  // for a reply
    static constexpr int WORKER_POLLS = 100;  // for the next request of the same thread

    explicit Spin(int polls) noexcept : polls_(polls) {}

    // Whether threads of this process poll at all.
    static bool IsTurnedOn() noexcept;

    // Looks until `look` returns true. False: it did not while this polled, or polling does not pay at present.
    template <typename Look>
    bool Poll(const Look& look) noexcept
    {
        if (!Begin() || !pause_.IsOver(now_)) {
            return false;
        }
        switch (LookRepeatedly(look)) {
            case Seen::MESSAGE:
                pause_.OnMessage();
                return true;
            case Seen::NOTHING:
                pause_.OnNothing(now_);
                return false;
            default:
                return false;
        }
    }
    // As Poll, for a message that the peer has announced: polls during a pause too, and says nothing about other waits.
    template <typename Look>
    bool PollAlerted(const Look& look) noexcept
    {
        return Begin() && LookRepeatedly(look) == Seen::MESSAGE;
    }
    // Receives the next bytes of `fd` without sleeping. WOULD_BLOCK: as Poll.
    IoResult Receive(int fd, void* place, size_t size) noexcept;

private:
    enum class Seen { MESSAGE, NOTHING, OTHER_PROGRAM };

    template <typename Look>
    Seen LookRepeatedly(const Look& look) noexcept
    {
        for (int poll = 0; poll < polls_; ++poll) {
            if (look()) {
                return Seen::MESSAGE;
            }
            if (!Yield()) {
                return Seen::OTHER_PROGRAM;
            }
        }
        return Seen::NOTHING;
    }
    // Reads the clock. False: this process does not poll.
    bool Begin() noexcept;
    // Lets other threads run. False if another program used the processor for long: polling must end then.
    bool Yield() noexcept;

    const int polls_;
    SpinPause pause_;
    SpinPause::Time now_;  // of the last look at the clock
};

}  // namespace TAVO::Transport

#endif
