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

}  // namespace

void SpinPause::OnLostProcessor(Time since, Time now) noexcept
{
    // Long after the last pause this is another event, not the same program that still computes.
    if (since - end_ > lossLength_) {
        lossLength_ = std::chrono::microseconds::zero();
    }
    Extend(now, lossLength_, std::chrono::duration_cast<std::chrono::microseconds>(now - since) * PER_LOSS);
}

void SpinPause::Extend(Time now, std::chrono::microseconds& length, std::chrono::microseconds least) noexcept
{
    length = std::clamp(2 * length, std::min(least, MAX), MAX);
    end_ = now + length;
}

bool Spin::IsTurnedOn() noexcept
{
    // Read once: getenv is not safe beside a setenv of the game on another thread, so as seldom as possible.
    static const bool isTurnedOn = [] {
        const char* const setting = std::getenv("TAVO_SPIN");
        return setting == nullptr || std::strcmp(setting, "off") != 0;
    }();
    return isTurnedOn;
}

bool Spin::Begin() noexcept
{
    now_ = Clock::now();
    return IsTurnedOn();
}

bool Spin::Yield() noexcept
{
    // On a processor of its own it returns at once (0.5 to 1 us). If the peer waits for this processor, it runs now.
    ::sched_yield();
    const Clock::time_point before = std::exchange(now_, Clock::now());
    if (now_ - before <= LOST_PROCESSOR) {
        return true;
    }
    // No message was received, but it may be there: the caller goes to sleep, which returns at once then.
    pause_.OnLostProcessor(before, now_);
    return false;
}

IoResult Spin::Receive(int fd, void* place, size_t size) noexcept
{
    IoResult got{IoStatus::WOULD_BLOCK, 0};
    Poll([&] {
        got = ReceiveNow(fd, place, size);
        return got.status != IoStatus::WOULD_BLOCK;
    });
    return got;
}

}  // namespace TAVO::Transport
