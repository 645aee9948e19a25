// SPDX-License-Identifier: Apache-2.0
// The control connections of all sessions: how a session is established on one, and ends with it.
#ifndef TAVO_TRANSPORT_SESSION_LINKS_H
#define TAVO_TRANSPORT_SESSION_LINKS_H

#include <memory>
#include <unordered_map>

#include "transport/control_link.h"
#include "transport/event_loop.h"
#include "transport/session_table.h"

namespace TAVO::Transport {

// Control thread, except where a method says otherwise.
class SessionLinks final : public ControlLink::Owner {
public:
    // Those who open and accept connections.
    class Events {
    public:
        virtual ~Events() = default;
        // The answer to the hello of a link that this process opened.
        virtual void OnAnswer(ControlLink& link, const Hello& answer) = 0;
        virtual void OnEstablished() = 0;
        // An established session is about to end: what its peer sent before, on connections that are not accepted yet,
        // is to be read first.
        virtual void OnEnding() = 0;
    };

    SessionLinks(EventLoop& loop, SessionTable& sessions, Events& events)
        : loop_(loop), sessions_(sessions), events_(events)
    {
    }

    // Any thread.
    std::unique_ptr<ControlLink> Make(const std::shared_ptr<Session>& session, ConnectionFd fd,
                                      const PeerIdentity& identity, bool isAnswered);
    // Watches the link. False, and its session is dead, when that cannot be.
    bool Add(std::unique_ptr<ControlLink> link);
    // Null when there is none.
    ControlLink* Find(const Session* session) const;
    // The link is no longer the one of its session: its end does not end the session.
    void Unbind(const Session* session) { links_.erase(session); }
    // Whether there is a hello of ours whose answer is awaited.
    bool HasUnanswered() const;

    // Any thread: the hellos are exchanged on the link. NotifyEstablished follows once the link is added.
    void Establish(ControlLink& link);
    void NotifyEstablished() { events_.OnEstablished(); }
    // Ends the link, and the session if it is the session's own.
    void TearDown(ControlLink& link);
    // Any thread: ends a session that has no connection, or none any more.
    void Abandon(const std::shared_ptr<Session>& session);

    void OnAnswer(ControlLink& link, const Hello& answer) override { events_.OnAnswer(link, answer); }
    void OnLinkEnd(ControlLink& link) override { TearDown(link); }

private:
    EventLoop& loop_;
    SessionTable& sessions_;
    Events& events_;
    std::unordered_map<const Session*, ControlLink*> links_;
};

}  // namespace TAVO::Transport

#endif
