// SPDX-License-Identifier: Apache-2.0
// Each connection is pending until its hello is complete, for at most 2 s. Then it becomes the control connection of a
// session, or a lane of one (acceptor_hello.cpp), or it waits until its session is established or has room. The end of
// a session is acted on only once the connections that were opened before it are accepted and their hellos are read.
// When no descriptor or memory is left, the listeners rest for a moment, and connections wait in their queues.
#include "transport/acceptor.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <new>
#include <utility>

#include "base/warn_limited.h"

namespace TAVO::Transport {
namespace {

constexpr size_t MAX_PENDING = 1024;  // connections without a complete hello, and lanes that wait
constexpr std::chrono::milliseconds LISTENER_REST{100};

// A flag that is set until its scope ends.
class Raised {
public:
    explicit Raised(bool& flag) : flag_(flag), before_(std::exchange(flag, true)) {}
    ~Raised() { flag_ = before_; }
    Raised(const Raised&) = delete;
    Raised& operator=(const Raised&) = delete;

private:
    bool& flag_;
    const bool before_;
};

}  // namespace

bool Acceptor::Listen(UniqueFd fd, Admission admission)
{
    auto listener = std::make_unique<Listener>(loop_, static_cast<Listener::Owner&>(*this), std::move(fd));
    Listener* const kept = listener.get();
    const auto owner = std::make_shared<std::unique_ptr<Pollable>>(std::move(listener));
    return loop_.Post([this, kept, owner, admission = std::move(admission)] {
        if (admission) {
            admission_ = admission;
        }
        // A job that throws is kept by the loop and repeated, so each step must be safe to run twice.
        if (*owner != nullptr) {  // Otherwise this job ran out of memory after it, and runs again.
            listeners_.reserve(listeners_.size() + 1);
            loop_.Own(std::move(*owner));
            listeners_.push_back(kept);
        }
        Resume(*kept);
        // Starting the thread now saves the first request the start of one.
        services_.workers.EnsureSpare();  // for the first request
    });
}

bool Acceptor::RetryWaitingLanes()
{
    return loop_.Post([this] { hasNews_ = true; });
}

void Acceptor::Resume(Listener& listener)
{
    if (!listener.Resume()) {
        OnShortage(listener);
    }
}

void Acceptor::OnShortage(Listener& listener) noexcept
{
    listener.Rest();
    hasResting_ = true;
    restingUntil_ = Clock::now() + LISTENER_REST;
    WarnLimited("no descriptor or memory left for a new connection",
                "it waits until some are free; raise the limit of open files (ulimit -n)");
}

void Acceptor::OnAccepted(ConnectionFd fd)
{
    // SO_PEERCRED has the uid at the time of connect(), also if the peer has ended since. The mode of the directory
    // already keeps other users out; this is the second check.
    const PeerIdentity identity = ReadPeerIdentity(fd.Get());
    if (!identity.known || identity.uid != ::geteuid()) {
        WarnLimited("a process of another user tried to connect", "refused: a runtime directory serves one user");
        return;
    }
    // The manager keeps descriptors for services: a client is refused before anything is allocated for it.
    if (admission_ && !admission_(identity.pid, fd.Get(), 0)) {
        PendingConnection refused(loop_, static_cast<PendingConnection::Owner&>(*this), std::move(fd), identity);
        RefuseLane(refused);
        return;
    }
    PendingConnection* const connection = AddPending(std::move(fd), identity);
    // Nearly always the hello has arrived. Connections behind this one may belong to it, and are accepted later.
    {
        const Raised accepting(isAccepting_);
        connection->OnReady(0);
    }
    if (!loop_.Owns(connection)) {
        return;
    }
    // A lane that waits for its session is polled for errors only (EPOLLHUP is always reported): its requests stay in
    // the socket for the worker.
    const uint32_t awaited = connection->IsComplete() ? 0U : static_cast<uint32_t>(EPOLLIN | EPOLLRDHUP);
    bool isPolled = false;
    try {
        isPolled = loop_.AddPoll(connection->Fd(), awaited, connection);
    } catch (const std::bad_alloc&) {
        WarnLimited("out of memory", "a connection was refused");
    }
    if (!isPolled) {
        OnSettled(*connection);
    }
}

PendingConnection* Acceptor::AddPending(ConnectionFd fd, const PeerIdentity& identity)
{
    if (pending_.size() >= MAX_PENDING) {
        // The oldest: a peer that opens 1,024 connections and sends nothing must not keep others out.
        OnSettled(*pending_.front());
    }
    auto connection = std::make_unique<PendingConnection>(loop_, static_cast<PendingConnection::Owner&>(*this),
                                                          std::move(fd), identity);
    PendingConnection* const kept = connection.get();
    pending_.reserve(pending_.size() + 1);
    loop_.Own(std::move(connection));
    pending_.push_back(kept);
    return kept;
}

void Acceptor::OnSettled(PendingConnection& connection)
{
    loop_.RemovePoll(connection.Fd(), &connection);
    RefuseLane(connection);
    std::erase(pending_, &connection);
    loop_.Disown(&connection);
}

void Acceptor::AcceptAll()
{
    if (isAccepting_) {  // The connection in hand may itself be what the end was noticed by.
        return;
    }
    const Raised accepting(isAccepting_);
    for (Listener* listener : listeners_) {
        if (listener->GetState() == Listener::State::ACCEPTING) {
            listener->Accept(MAX_PENDING);
        }
    }
    ReadHellos();
}

void Acceptor::ReadHellos()
{
    if (isReadingHellos_) {
        return;
    }
    const Raised readingHellos(isReadingHellos_);
    // A copy, since handling one connection may remove others from the list.
    for (PendingConnection* connection : std::vector<PendingConnection*>(pending_)) {
        if (loop_.IsPolled(connection) && !connection->IsComplete()) {
            connection->OnReady(0);
        }
    }
}

void Acceptor::OfferWaiting()
{
    for (PendingConnection* connection : std::vector<PendingConnection*>(pending_)) {
        if (connection->IsComplete()) {
            connection->Retry();
        }
    }
}

int Acceptor::TickMilliseconds() const
{
    // -1: with nothing pending the loop sleeps until an event.
    return !pending_.empty() || hasResting_ ? 100 : -1;
}

void Acceptor::OnTick(Clock::time_point now)
{
    if (std::exchange(hasNews_, false)) {
        OfferWaiting();
    }
    const auto isLate = [now](const PendingConnection* connection) { return connection->GetDeadline() <= now; };
    for (auto late = std::find_if(pending_.begin(), pending_.end(), isLate); late != pending_.end();
         // Searched anew after each: OnSettled changes the list.
         late = std::find_if(pending_.begin(), pending_.end(), isLate)) {
        OnSettled(**late);
    }
    if (hasResting_ && restingUntil_ <= now) {
        hasResting_ = false;
        for (Listener* listener : listeners_) {
            if (listener->GetState() != Listener::State::ACCEPTING) {
                Resume(*listener);
            }
        }
    }
}

}  // namespace TAVO::Transport
