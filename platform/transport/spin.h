// SPDX-License-Identifier: Apache-2.0
// Polls a socket for a moment before its thread sleeps: a message that arrives in that time costs no wake-up.
#ifndef TAVO_TRANSPORT_SPIN_H
#define TAVO_TRANSPORT_SPIN_H

#include <chrono>
#include <cstddef>

#include "os/fd.h"

namespace TAVO::Transport {

// The time after which polling is tried again. A wait in which polling received nothing doubles it, from FIRST to MAX;
// one in which it received a message halves it, so polling resumes at once where it pays.
class SpinPause {
public:
    using Time = std::chrono::steady_clock::time_point;
    static constexpr std::chrono::microseconds FIRST{64};
    static constexpr std::chrono::microseconds MAX{1000000};
    // Another program had the processor for a time slice of about 3 ms: this keeps the loss of both ends below 3 %.
    static constexpr std::chrono::microseconds AFTER_LOSS{256000};

    bool IsOver(Time now) const noexcept { return now >= end_; }
    void OnMessage() noexcept { length_ /= 2; }
    void OnNothing(Time now) noexcept { Extend(now, FIRST); }
    void OnLostProcessor(Time now) noexcept { Extend(now, AFTER_LOSS); }

private:
    void Extend(Time now, std::chrono::microseconds least) noexcept;

    std::chrono::microseconds length_{0};
    Time end_;
};

// For one end of one lane, whose waits it learns from; one thread at a time. TAVO_SPIN=off in the environment turns
// polling off for the process.
class Spin {
public:
    // How often a wait polls. Each poll takes 0.5 to 1 us of the processor.
    static constexpr int CALLER_POLLS = 50;  // for a reply: as long as a wake-up of the callee takes
    static constexpr int WORKER_POLLS = 20;  // for the next request of the same thread

    explicit Spin(int polls) noexcept : polls_(polls) {}

    // Receives the next bytes of `fd` without sleeping. WOULD_BLOCK: nothing arrived while it polled, or polling does
    // not pay at present.
    IoResult Receive(int fd, void* place, size_t size) noexcept;

private:
    const int polls_;
    SpinPause pause_;
};

}  // namespace TAVO::Transport

#endif
