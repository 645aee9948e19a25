// SPDX-License-Identifier: Apache-2.0
// Control connections that this process opens.
#ifndef TAVO_TRANSPORT_CONNECTOR_H
#define TAVO_TRANSPORT_CONNECTOR_H

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

#include "transport/event_loop.h"
#include "transport/session_host.h"
#include "transport/session_links.h"
#include "transport/session_table.h"

namespace TAVO::Transport {

class Connector final : public LoopPart {
public:
    Connector(EventLoop& loop, SessionLinks& links, SessionTable& sessions, SessionHost& host)
        : loop_(loop), links_(links), sessions_(sessions), host_(host)
    {
    }

    // ---- Any thread
    // Connects a session that is CONNECTING: it is established, or ends. Does not wait.
    void Connect(const std::shared_ptr<Session>& session);
    // The same with the manager, but waits for the answer until `deadline`, so that the first use of the platform waits
    // for nothing else, in particular not for the start of a thread. `meanwhile` is called while the manager reads the
    // hello.
    void ConnectManager(const std::shared_ptr<Session>& session, Deadline deadline,
                        const std::function<void()>& meanwhile);

    // ---- Control thread
    // Whether a session may be about to be established by this process.
    bool IsDialing() const { return dialing_ != 0; }
    void OnAnswer(ControlLink& link, const Hello& answer);
    int TickMilliseconds() const override;
    void OnTick(Clock::time_point now) override;

private:
    enum class Failure {
        BUSY,            // the queue of the peer's listener is full
        PEER_WAS_FIRST,  // the connection that the peer opened is used
        REFUSED,
    };
    struct Dialed {
        std::unique_ptr<ControlLink> link;  // the hello is sent; null: `failure` is the reason
        Failure failure;
    };
    struct Retry {
        std::shared_ptr<Session> session;
        Clock::time_point deadline;
    };
    // Counts a connection from before it is dialed until it is adopted.
    class Dialing {
    public:
        explicit Dialing(std::atomic<int>& count) : count_(count) { ++count_; }
        ~Dialing() { --count_; }
        Dialing(const Dialing&) = delete;
        Dialing& operator=(const Dialing&) = delete;

    private:
        std::atomic<int>& count_;
    };

    void Connect(const std::shared_ptr<Session>& session, Clock::time_point deadline);
    Dialed Dial(const std::shared_ptr<Session>& session);
    void RetryOrAbandon(const std::shared_ptr<Session>& session, Failure failure, Clock::time_point deadline);
    // Gives a link to the control thread. With the `answer`, which is not read yet, the session is established now.
    void HandOver(std::unique_ptr<ControlLink> dialed, const Hello* answer, std::shared_ptr<Dialing> dialing);
    void Adopt(std::unique_ptr<ControlLink> link);
    void OnRefused(ControlLink& link, const std::shared_ptr<Session>& other);

    EventLoop& loop_;
    SessionLinks& links_;
    SessionTable& sessions_;
    SessionHost& host_;
    std::atomic<int> dialing_{0};

    // The control thread:
    std::vector<Retry> busy_;      // to be dialed again
    std::vector<Retry> expected_;  // the peer has announced a connection of its own
};

}  // namespace TAVO::Transport

#endif
