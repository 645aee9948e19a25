// SPDX-License-Identifier: Apache-2.0
// The loop owns the links, this table finds them by their session. A session is in the table of sessions from its
// creation until Abandon, which comes last, and after which a new session with the same process may be made.
#include "transport/session_links.h"

#include <sys/epoll.h>

#include <algorithm>
#include <new>
#include <utility>

#include "base/warn_limited.h"

namespace TAVO::Transport {

std::unique_ptr<ControlLink> SessionLinks::Make(const std::shared_ptr<Session>& session, ConnectionFd fd,
                                                const PeerIdentity& identity, bool isAnswered)
{
    return std::make_unique<ControlLink>(loop_, *this, session, std::move(fd), identity, isAnswered);
}

bool SessionLinks::Add(std::unique_ptr<ControlLink> link)
{
    const std::shared_ptr<Session> session = link->GetSession();
    ControlLink* const kept = link.get();
    std::unique_ptr<Pollable> owner = std::move(link);
    bool isAdded = false;
    try {
        // Each of the three steps may run out of memory; the cleanup below is right after any of them.
        loop_.Own(std::move(owner));
        links_[session.get()] = kept;
        isAdded = loop_.AddPoll(kept->Fd(), EPOLLIN | EPOLLRDHUP, kept);
        if (isAdded) {  // Before any answer: a forked child may hold the listening socket of an owner that has died.
            kept->WatchProcess();
        }
    } catch (const std::bad_alloc&) {
        WarnLimited("out of memory", "a connection was closed");
    }
    if (!isAdded) {
        links_.erase(session.get());
        Abandon(session);  // First: it may write to the connection until then.
        loop_.Disown(kept);
    }
    return isAdded;
}

ControlLink* SessionLinks::Find(const Session* session) const
{
    const auto found = links_.find(session);
    return found != links_.end() ? found->second : nullptr;
}

bool SessionLinks::HasUnanswered() const
{
    return std::any_of(links_.begin(), links_.end(), [](const auto& entry) { return !entry.second->IsAnswered(); });
}

void SessionLinks::Establish(ControlLink& link)
{
    // First: from Establish on, records of the peer may be read by this link.
    link.BecomeAnswered();
    link.GetSession()->Establish(link.Fd(), loop_.Epoll(), static_cast<Pollable*>(&link), link.Identity());
}

void SessionLinks::TearDown(ControlLink& link)
{
    const std::shared_ptr<Session> session = link.GetSession();
    if (session->GetState() == Session::State::ESTABLISHED) {
        // The acceptor reads the hellos that arrived before the end: a lane opened before the death still has requests
        // to run.
        events_.OnEnding();
    }
    link.StopWatching();
    link.ShutDown();  // First: a process that notices the end and connects again must not be refused as connected.
    if (Find(session.get()) == &link) {
        links_.erase(session.get());
        Abandon(session);
    }
    loop_.Disown(&link);
    loop_.CancelEnd(&link);
}

void SessionLinks::Abandon(const std::shared_ptr<Session>& session)
{
    // Before the removal: a thread that finds the session in the table finds it dead, and creates the next one.
    session->End();
    sessions_.Remove(session);
}

}  // namespace TAVO::Transport
