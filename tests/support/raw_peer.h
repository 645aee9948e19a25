// SPDX-License-Identifier: Apache-2.0
// A peer that follows docs/wire.md by hand, or breaks it as a test needs; it shares no code with the transport.
#ifndef VELTRA_TESTS_SUPPORT_RAW_PEER_H
#define VELTRA_TESTS_SUPPORT_RAW_PEER_H

#include <optional>
#include <string>

#include "support/raw_message.h"
#include "support/raw_socket.h"

namespace TestSupport {

// One process's worth of identity: an instance, what it listens on, and its session with one target.
class RawPeer {
public:
    explicit RawPeer(const std::string& runtimeDir);
    ~RawPeer();
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    const RawInstance& Instance() const { return instance_; }
    void SetInstance(const RawInstance& instance) { instance_ = instance; }
    const RawInstance& Target() const { return target_; }
    RawSocket& Control() { return control_; }

    // Listens as p/<instance>, or as "manager".
    void Listen(bool asManager = false);
    // The next connection, its hello read into `hello`; not open if none arrived in time.
    RawSocket Accept(RawHello& hello, Clock::duration timeout = TIMEOUT);

    // A bare connection to "manager" or "p/<instance>".
    RawSocket Connect(const std::string& name) const;
    // Connects and exchanges hellos; from then on lanes go to the same name. False when it is refused.
    bool OpenSession(const std::string& name = "manager");
    RawSocket OpenLane(uint16_t kind = RawHello::CALL);
    // The number that the last opened lane was given.
    uint64_t LastLane() const { return lastLane_; }
    // Sends a request on a lane of its own and takes its answer.
    std::optional<RawFrame> CallOnce(const RawFrame& request);
    // Whether the session is alive: the control thread of the peer answers.
    bool Ping();
    // Skips other records until one of that type comes.
    std::optional<RawRecord> AwaitRecord(uint32_t type, Clock::duration timeout = TIMEOUT);

private:
    std::string Address(const std::string& name) const;

    RawInstance instance_;
    RawInstance target_{};
    std::string targetName_;
    std::string listenName_;  // empty: does not listen
    int dirFd_ = -1;
    RawSocket listener_;
    RawSocket control_;
    uint64_t lastLane_ = 0;
    uint64_t lastPing_ = 0;
};

}  // namespace TestSupport

#endif
