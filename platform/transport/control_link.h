// SPDX-License-Identifier: Apache-2.0
// A control connection and the life of the process at its other end.
#ifndef TAVO_TRANSPORT_CONTROL_LINK_H
#define TAVO_TRANSPORT_CONTROL_LINK_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "os/fd.h"
#include "transport/event_loop.h"
#include "transport/session.h"

namespace TAVO::Transport {

// Reads records for its session. Control thread, except for ShutDown.
class ControlLink final : public Pollable {
public:
    class Owner {
    public:
        virtual ~Owner() = default;
        // The answer to our hello. The session is not established after it if the answer was no acceptance.
        virtual void OnAnswer(ControlLink& link, const Hello& answer) = 0;
        // The connection or the process at its other end has ended, and all that had arrived before is read.
        virtual void OnLinkEnd(ControlLink& link) = 0;
    };

    // `isAnswered`: the hellos are exchanged. Otherwise the answer is awaited.
    ControlLink(EventLoop& loop, Owner& owner, std::shared_ptr<Session> session, ConnectionFd fd,
                const PeerIdentity& identity, bool isAnswered);
    ~ControlLink() override;
    ControlLink(const ControlLink&) = delete;
    ControlLink& operator=(const ControlLink&) = delete;

    void OnReady(uint32_t events) override;
    void OnEnd() override { owner_.OnLinkEnd(*this); }

    const std::shared_ptr<Session>& GetSession() const { return session_; }
    int Fd() const { return fd_.Get(); }
    const PeerIdentity& Identity() const { return identity_; }
    bool IsAnswered() const { return isAnswered_; }
    // The answer was read: records follow.
    void BecomeAnswered() { isAnswered_ = true; }
    // Ends the session when the peer's process has ended, whichever process may still hold its sockets.
    void WatchProcess();
    // Any thread: lets the peer see the end.
    void ShutDown() noexcept;
    void StopWatching() noexcept;

private:
    class Process final : public Pollable {
    public:
        Process(ControlLink& link, UniqueFd fd) : link_(link), fd_(std::move(fd)) {}
        void OnReady(uint32_t) override { link_.OnProcessEnd(); }
        int Fd() const { return fd_.Get(); }

    private:
        ControlLink& link_;
        UniqueFd fd_;
    };

    void OnProcessEnd();
    // Has the session ended once everything that is readable now is read.
    void EndLater();
    // False at the end of the connection or for what breaks the protocol.
    bool ReadAll();
    bool TakeAnswer();
    bool TakeRecords();
    void Consume(size_t bytes);

    EventLoop& loop_;
    Owner& owner_;
    const std::shared_ptr<Session> session_;
    const ConnectionFd fd_;
    const PeerIdentity identity_;
    bool isAnswered_;
    std::array<uint8_t, 4096> buffer_;
    size_t filled_ = 0;
    std::unique_ptr<Process> process_;
};

}  // namespace TAVO::Transport

#endif
