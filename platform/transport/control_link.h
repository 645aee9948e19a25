// SPDX-License-Identifier: Apache-2.0
// What the control thread waits for: control connections, connections that have not said what they are, listeners.
#ifndef TAVO_TRANSPORT_CONTROL_LINK_H
#define TAVO_TRANSPORT_CONTROL_LINK_H

#include <array>
#include <functional>
#include <memory>
#include <utility>

#include "transport/control_thread.h"

namespace TAVO::Transport {

// A control connection and the life of the process at its other end.
class ControlLink final : public Pollable {
public:
    // `answered`: the hellos are exchanged. Otherwise the answer is awaited.
    ControlLink(ControlThread& control, std::shared_ptr<Session> session, ConnectionFd fd, const PeerIdentity& identity,
                bool answered);
    ~ControlLink() override;
    ControlLink(const ControlLink&) = delete;
    ControlLink& operator=(const ControlLink&) = delete;

    void OnReady(uint32_t events) override;
    // Reads what lies there, then ends the session: the peer's process is gone.
    void OnProcessEnd();
    const std::shared_ptr<Session>& GetSession() const { return session_; }
    int Fd() const { return fd_.Get(); }
    const PeerIdentity& Identity() const { return identity_; }
    bool IsAnswered() const { return answered_; }
    // The answer came: records follow.
    void BecomeAnswered() { answered_ = true; }
    // Ends the session when the peer's process has ended, whoever may still hold its sockets.
    void WatchProcess();
    // Any thread: lets the peer see the end.
    void ShutDown() noexcept;
    // Nothing is awaited any more.
    void StopWatching();

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

    // False at the end of the connection or for what breaks the protocol.
    bool ReadAll();
    bool TakeRecords();

    ControlThread& control_;
    const std::shared_ptr<Session> session_;
    const ConnectionFd fd_;
    const PeerIdentity identity_;
    bool answered_;
    std::array<uint8_t, 4096> buffer_;
    size_t filled_ = 0;
    std::unique_ptr<Process> process_;
};

// An accepted connection before its hello is complete, or a lane that waits for its session or for room in it.
class PendingConnection final : public Pollable {
public:
    static constexpr std::chrono::seconds PATIENCE{2};

    PendingConnection(ControlThread& control, ConnectionFd fd, const PeerIdentity& identity)
        : control_(control), fd_(std::move(fd)), identity_(identity), deadline_(Clock::now() + PATIENCE)
    {
    }

    void OnReady(uint32_t events) override;
    // Offers a complete hello to the control thread again.
    void Retry();
    int Fd() const { return fd_.Get(); }
    bool IsComplete() const { return got_ == sizeof(Hello); }
    // Once it is complete.
    const Hello& GetHello() const { return hello_; }
    const PeerIdentity& Identity() const { return identity_; }
    Clock::time_point GetDeadline() const { return deadline_; }

private:
    ControlThread& control_;
    ConnectionFd fd_;
    const PeerIdentity identity_;
    Clock::time_point deadline_;
    Hello hello_;
    size_t got_ = 0;
};

class Listener final : public Pollable {
public:
    enum class State { NEW, ACCEPTING, RESTING };  // NEW: the control thread does not poll it yet

    Listener(ControlThread& control, UniqueFd fd) : control_(control), fd_(std::move(fd)) {}
    void OnReady(uint32_t events) override;
    // Takes connections that wait, at most so many.
    void Accept(size_t most);
    int Fd() const { return fd_.Get(); }

    State state = State::NEW;  // for the control thread

private:
    ControlThread& control_;
    const UniqueFd fd_;
};

}  // namespace TAVO::Transport

#endif
