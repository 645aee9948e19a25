// SPDX-License-Identifier: Apache-2.0
// The sending side of a session's control connection: hello, records, and what the socket did not accept yet.
#ifndef TAVO_TRANSPORT_CONTROL_CHANNEL_H
#define TAVO_TRANSPORT_CONTROL_CHANNEL_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "tavo/mutex.h"
#include "transport/lane_key.h"
#include "wire/wire.h"

namespace TAVO::Transport {

// Any thread. Sending never waits: records are queued, at most MAX_UNSENT_BYTES. The control thread
// owns the connection, and detaches it before it is closed.
class ControlChannel {
public:
    static constexpr size_t MAX_UNSENT_BYTES = size_t{1} << 20;

    enum class HelloSent {
        SENT,
        PEER_WAS_FIRST,  // the peer's connection is used instead; nothing was sent
        FAILED,
    };

    // Sends a hello on a new connection, and behind it the records that are queued.
    HelloSent SendHello(int fd, const Instance& self);
    bool HasSentHello() const noexcept { return hasSentHello_.load(); }
    // The peer has connected, too. Whether its connection is to be used: not if our hello was sent and `ownPrevails`.
    // If so, our hello has no effect, also one that would be sent now.
    bool YieldToPeer(bool ownPrevails);
    // The peer refused our hello: it has connected, or is about to.
    void WithdrawHello();
    // The connection is about to be closed.
    void Detach(int fd);
    // Both hellos are exchanged on `fd`. Sends what is queued. `epoll` reports with `tag` when `fd` has room again.
    void Establish(int fd, int epoll, void* tag);
    // Nothing is sent from now on.
    void Close() noexcept;

    void Send(const ControlRecord& record);
    // Returns `count` counts of the peer's object, which take effect after the one-way message at `after`, if any.
    void SendRelease(uint64_t serial, uint64_t count, const MessagePlace& after);
    // Sends what is queued; false when the connection is broken.
    bool Flush();
    // Whether the kernel says that the connection has ended, noticed or not.
    bool HasHungUp();

private:
    void DetachLocked() TAVO_REQUIRES(mutex_);
    void SendLocked(const ControlRecord& record) TAVO_REQUIRES(mutex_);
    bool FlushLocked() TAVO_REQUIRES(mutex_);
    // Ends the session, through the control thread; one that is not established yet ends as soon as it is.
    void BreakLocked() TAVO_REQUIRES(mutex_);

    std::atomic<bool> hasSentHello_{false};  // written under mutex_

    Mutex mutex_;                                  // held during a send, which never waits
    int fd_ TAVO_GUARDED_BY(mutex_) = -1;          // -1: no hello was sent or answered yet, or the session is dead
    int epoll_ TAVO_GUARDED_BY(mutex_) = -1;       // -1: not established
    void* tag_ TAVO_GUARDED_BY(mutex_) = nullptr;  // of the connection in epoll_
    std::vector<uint8_t> unsent_ TAVO_GUARDED_BY(mutex_);
    size_t sentEarly_ TAVO_GUARDED_BY(mutex_) = 0;     // of unsent_: sent behind our hello, before its answer
    bool awaitsRoom_ TAVO_GUARDED_BY(mutex_) = false;  // epoll_ is to report when the socket has room
    bool isBroken_ TAVO_GUARDED_BY(mutex_) = false;    // a record was lost
    bool hasYielded_ TAVO_GUARDED_BY(mutex_) = false;  // the peer's connection is used
    bool isClosed_ TAVO_GUARDED_BY(mutex_) = false;
};

}  // namespace TAVO::Transport

#endif
