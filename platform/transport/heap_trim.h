// SPDX-License-Identifier: Apache-2.0
// Returns the memory of many ended sessions to the system.
#ifndef TAVO_TRANSPORT_HEAP_TRIM_H
#define TAVO_TRANSPORT_HEAP_TRIM_H

#include <cstddef>

#include "transport/event_loop.h"
#include "transport/session_table.h"

namespace TAVO::Transport {

// What a process frees stays in its heap while a single block above it is in use. In a process that loses many
// sessions, as the manager and a service do when clients leave, the free pages go back to the system a moment later.
class HeapTrim final : public LoopPart {
public:
    explicit HeapTrim(SessionTable& sessions) : sessions_(sessions) {}

    int TickMilliseconds() const override;
    void OnTick(Clock::time_point now) override;

private:
    SessionTable& sessions_;
    size_t most_ = 0;        // sessions since the last trim
    size_t latest_ = 0;      // sessions at the last tick
    Clock::time_point due_;  // the epoch: not due
};

}  // namespace TAVO::Transport

#endif
