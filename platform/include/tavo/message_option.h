// SPDX-License-Identifier: Apache-2.0
// How one request is sent: synchronous or one-way, and how long the caller waits.
#ifndef TAVO_MESSAGE_OPTION_H
#define TAVO_MESSAGE_OPTION_H

namespace TAVO {

class MessageOption {
public:
    static constexpr int FLAG_SYNC = 0;
    static constexpr int FLAG_ONE_WAY = 1;  // returns once the request is queued; no reply
    static constexpr int WAIT_TIME_SECONDS = 8;

    // `waitTimeSeconds` bounds connecting, sending and the reply together, on the steady clock; below 1 it counts as 1.
    explicit MessageOption(int flags = FLAG_SYNC, int waitTimeSeconds = WAIT_TIME_SECONDS) noexcept
        : flags_(flags), waitTime_(waitTimeSeconds)
    {
    }

    int GetFlags() const noexcept { return flags_; }
    bool IsOneWay() const noexcept { return (flags_ & FLAG_ONE_WAY) != 0; }
    int GetWaitTime() const noexcept { return waitTime_; }

private:
    int flags_;
    int waitTime_;  // seconds
};

}  // namespace TAVO

#endif
