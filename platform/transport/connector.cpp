// SPDX-License-Identifier: Apache-2.0
// The calling thread connects and sends the hello; the control thread adopts the connection and reads the answer. From
// the hello on the session may be used: lanes follow it. If two processes connect to each other at the same time, the
// connection of the lower instance stays, and the other end gets the answer USE_OTHER. If the queue of the peer's
// listener is full, the control thread dials again.
#include "transport/connector.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <new>
#include <utility>

namespace TAVO::Transport {
namespace {

constexpr std::chrono::seconds BUSY_TIMEOUT{8};      // for a listener whose queue is full
constexpr std::chrono::seconds EXPECTED_TIMEOUT{2};  // for a connection that the peer announced

}  // namespace

void Connector::Connect(const std::shared_ptr<Session>& session)
{
    Connect(session, Clock::now() + BUSY_TIMEOUT);
}

void Connector::Connect(const std::shared_ptr<Session>& session, Clock::time_point deadline)
try {
    auto dialing = std::make_shared<Dialing>(dialing_);
    Dialed dialed = Dial(session);
    if (dialed.link != nullptr) {
        HandOver(std::move(dialed.link), nullptr, std::move(dialing));
    } else {
        RetryOrAbandon(session, dialed.failure, deadline);
    }
} catch (const std::bad_alloc&) {
    links_.Abandon(session);
}

void Connector::ConnectManager(const std::shared_ptr<Session>& session, Deadline deadline,
                               const std::function<void()>& meanwhile)
try {
    // The descriptors of the loop are opened before the connection: a session without a loop could not end.
    if (!loop_.Open()) {
        links_.Abandon(session);
        return;
    }
    auto dialing = std::make_shared<Dialing>(dialing_);
    Dialed dialed = Dial(session);
    if (dialed.link == nullptr) {
        RetryOrAbandon(session, dialed.failure, Clock::now() + BUSY_TIMEOUT);
        return;
    }
    // Between the hello and its answer, while the manager works: opening the own socket costs no time of its own here.
    meanwhile();
    Hello answer;
    const int fd = dialed.link->Fd();
    // Peeked, not read: if the answer is anything else, the control thread reads and handles it as usual.
    const bool isAccepted = PollUntil(fd, POLLIN, deadline) && PeekNow(fd, &answer, sizeof(answer)) &&
                            answer.IsAcceptance() && sessions_.Find(answer.instance) == nullptr;
    HandOver(std::move(dialed.link), isAccepted ? &answer : nullptr, std::move(dialing));
} catch (const std::bad_alloc&) {
    links_.Abandon(session);
}

Connector::Dialed Connector::Dial(const std::shared_ptr<Session>& session)
{
    ConnectionFd fd = ConnectStreamNow(host_.SocketPath(session->Path()));
    if (!fd.IsOpen()) {
        // The socket is non-blocking: a full backlog gives EAGAIN at once. The control thread dials again, so that no
        // caller of another object waits here.
        return {nullptr, errno == EAGAIN ? Failure::BUSY : Failure::REFUSED};
    }
    const PeerIdentity identity = ReadPeerIdentity(fd.Get());
    auto link = links_.Make(session, std::move(fd), identity, false);
    switch (session->SendHello(link->Fd())) {
        case ControlChannel::HelloSent::SENT:
            return {std::move(link), Failure::REFUSED};
        case ControlChannel::HelloSent::PEER_WAS_FIRST:
            return {nullptr, Failure::PEER_WAS_FIRST};
        default:
            return {nullptr, Failure::REFUSED};
    }
}

void Connector::RetryOrAbandon(const std::shared_ptr<Session>& session, Failure failure, Clock::time_point deadline)
{
    // The session is established by the acceptor.
    if (failure == Failure::PEER_WAS_FIRST) {
        return;
    }
    const bool mayRetry = failure == Failure::BUSY && Clock::now() < deadline;
    if (!mayRetry || !loop_.Post([this, session, deadline] { busy_.push_back({session, deadline}); })) {
        links_.Abandon(session);
    }
}

void Connector::HandOver(std::unique_ptr<ControlLink> dialed, const Hello* answer, std::shared_ptr<Dialing> dialing)
{
    const std::shared_ptr<Session> session = dialed->GetSession();
    const auto link = std::make_shared<std::unique_ptr<ControlLink>>(std::move(dialed));
    // Everything that allocates first: an established session has its connection until its end is known.
    // The link is shared, since a std::function must be copyable. `kept` lets IsDialing() return true until the link is
    // adopted: a lane of the peer that arrives meanwhile waits instead of being refused.
    std::function<void()> adopt = [this, link, kept = std::move(dialing)] { Adopt(std::move(*link)); };
    if (answer != nullptr) {
        Hello taken;
        ReceiveNow((*link)->Fd(), &taken, sizeof(taken));
        session->SetPeer(answer->instance);
        sessions_.Add(session);
        links_.Establish(**link);
    }
    if (!loop_.Post(std::move(adopt))) {
        (*link)->ShutDown();
        links_.Abandon(session);
    }
}

void Connector::Adopt(std::unique_ptr<ControlLink> link)
{
    ControlLink& kept = *link;
    const Session::State state = kept.GetSession()->GetState();
    // The session ended, or the peer's own connection was accepted, before the control thread came to this job.
    const bool isLate = state == Session::State::DEAD || (state == Session::State::ESTABLISHED && !kept.IsAnswered());
    if (isLate || !links_.Add(std::move(link)) || !kept.IsAnswered()) {
        return;
    }
    // Records that were queued between Establish on the calling thread and this point.
    kept.GetSession()->Control().Flush();
    links_.NotifyEstablished();
}

void Connector::OnAnswer(ControlLink& link, const Hello& answer)
{
    const std::shared_ptr<Session> session = link.GetSession();
    const bool isManager = session->Peer() == Instance{};  // the only one that is called by its place, not by its name
    if (!isManager && answer.instance != session->Peer()) {
        return;  // Another process answered: the link ends, and the session with it.
    }
    const std::shared_ptr<Session> other = sessions_.Find(answer.instance);
    if (answer.lane == Hello::USE_OTHER) {
        OnRefused(link, other);
        return;
    }
    if (!answer.IsAcceptance() || (isManager && other != nullptr)) {
        return;
    }
    if (isManager) {
        session->SetPeer(answer.instance);
        sessions_.Add(session);
    }
    links_.Establish(link);
    links_.NotifyEstablished();
}

void Connector::OnRefused(ControlLink& link, const std::shared_ptr<Session>& other)
{
    const std::shared_ptr<Session>& session = link.GetSession();
    const bool isManager = session->Peer() == Instance{};
    // What was sent behind the refused hello had no effect. It stays in the queue for the connection that is used.
    session->Control().WithdrawHello();
    links_.Unbind(session.get());
    if (isManager && other != nullptr) {
        sessions_.ReplaceManager(other);
    }
    if (isManager || (other != nullptr && other != session)) {
        session->End();  // Callers that wait for it ask for the session again.
    } else {
        // The peer's connection may still be in the queue of this process's listener.
        expected_.push_back({session, Clock::now() + EXPECTED_TIMEOUT});
    }
}

int Connector::TickMilliseconds() const
{
    return !busy_.empty() ? 20 : !expected_.empty() ? 100 : -1;
}

void Connector::OnTick(Clock::time_point now)
{
    for (const Retry& retry : std::exchange(busy_, {})) {
        const Session* const session = retry.session.get();
        if (session->GetState() == Session::State::CONNECTING && links_.Find(session) == nullptr) {
            Connect(retry.session, retry.deadline);  // Otherwise the peer was first.
        }
    }
    std::erase_if(expected_, [this, now](const Retry& entry) {
        const bool isSettled = entry.session->GetState() != Session::State::CONNECTING;
        if (!isSettled && entry.deadline <= now) {
            links_.Abandon(entry.session);
        }
        return isSettled || entry.deadline <= now;
    });
}

}  // namespace TAVO::Transport
