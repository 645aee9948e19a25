// SPDX-License-Identifier: Apache-2.0
#include "support/raw_page.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

namespace TestSupport {

void RawBox::Set(uint32_t state)
{
    State() = state;
    ::syscall(SYS_futex, memory_.At(at_), FUTEX_WAKE, INT_MAX);
}

bool RawBox::Put(const Bytes& frame, uint32_t size, uint32_t state)
{
    uint32_t before = State();
    if (before != AWAKE && before != ASLEEP) {
        return false;
    }
    memory_.AtomicAt<uint32_t>(at_ + 4) = size;
    std::copy(frame.begin(), frame.end(), memory_.At(at_ + 8));
    while (!State().compare_exchange_strong(before, state)) {
        if (before != AWAKE && before != ASLEEP) {
            return false;
        }
    }
    ::syscall(SYS_futex, memory_.At(at_), FUTEX_WAKE, INT_MAX);
    return true;
}

std::optional<Bytes> RawBox::Take()
{
    if (!WaitFor([this] { return State() == FULL; })) {
        return std::nullopt;
    }
    const size_t size = std::min<size_t>(memory_.AtomicAt<uint32_t>(at_ + 4), MOST_BYTES);
    Bytes frame(memory_.At(at_ + 8), memory_.At(at_ + 8) + size);
    State() = ABSENT;
    return frame;
}

}  // namespace TestSupport
