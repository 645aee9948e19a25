// SPDX-License-Identifier: Apache-2.0
// A wake-up of a sleeping thread costs 4 to 25 us, and a short call has two of them. So each end of a call lane polls
// before it sleeps, for about as long as a wake-up takes. Polling must not take a processor from a thread that has
// work, least of all from the peer whose message is awaited. Therefore each poll is followed by a yield: a peer on the
// same processor runs at once. A yield that returns late has given the processor to some other program, which costs a
// time slice instead of a wake-up. Then, and after polls without a message, the lane sleeps at once for a growing time.
#include "transport/spin.h"

#include <sched.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace TAVO::Transport {
namespace {

using Clock = std::chrono::steady_clock;

// Other threads of the two processes take less between two polls; a program that computes takes more.
constexpr std::chrono::microseconds LOST_PROCESSOR{1000};

bool IsTurnedOn() noexcept
{
    // Read once: getenv is not safe beside a setenv of the game on another thread, so as seldom as possible.
    static const bool isTurnedOn = [] {
        const char* const setting = std::getenv("TAVO_SPIN");
        return setting == nullptr || std::strcmp(setting, "off") != 0;
    }();
    return isTurnedOn;
}

}  // namespace

void SpinPause::Extend(Time now, std::chrono::microseconds least) noexcept
{
    length_ = std::clamp(2 * length_, least, MAX);
    end_ = now + length_;
}

IoResult Spin::Receive(int fd, void* place, size_t size) noexcept
{
    constexpr IoResult NOTHING{IoStatus::WOULD_BLOCK, 0};
    Clock::time_point now = Clock::now();
    if (!IsTurnedOn() || !pause_.IsOver(now)) {
        return NOTHING;
    }
    for (int poll = 0; poll < polls_; ++poll) {
        const IoResult got = ReceiveNow(fd, place, size);
        if (got.status != IoStatus::WOULD_BLOCK) {
            pause_.OnMessage();
            return got;
        }
        // On a processor of its own it returns at once (0.5 to 1 us). If the peer waits for this processor, it runs
        // now.
        ::sched_yield();
        const Clock::time_point before = std::exchange(now, Clock::now());
        if (now - before > LOST_PROCESSOR) {
            // No message was received, but it may be there: the caller goes to sleep in recv, which returns it at once.
            pause_.OnLostProcessor(now);
            return NOTHING;
        }
    }
    pause_.OnNothing(now);
    return NOTHING;
}

}  // namespace TAVO::Transport
