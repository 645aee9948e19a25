// SPDX-License-Identifier: Apache-2.0
// Control connections that this process opens, and how a session ends, whichever side opened its connection. The calling
// thread connects and sends the hello; the control thread adopts the connection and reads the answer.
#include <poll.h>
#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "base/warn_limited.h"
#include "transport/control_link.h"
#include "transport/control_thread.h"
#include "transport/core.h"
#include "transport/object_gate.h"

namespace TAVO::Transport {
namespace {

constexpr std::chrono::seconds CONNECT_PATIENCE{8};  // for a listener whose queue is full
constexpr std::chrono::seconds EXPECT_PATIENCE{2};   // for a connection that the peer announced

}  // namespace

void ControlThread::Connect(const std::shared_ptr<Session>& session)
{
    Connect(session, Clock::now() + CONNECT_PATIENCE);
}

void ControlThread::Connect(const std::shared_ptr<Session>& session, Clock::time_point giveUp)
try {
    auto dialing = std::make_shared<Dialing>(dialing_);
    Dialed dialed = Dial(session);
    if (dialed.link != nullptr) {
        HandOver(std::move(dialed.link), nullptr, std::move(dialing));
    } else {
        NotDialed(session, dialed.failure, giveUp);
    }
} catch (const std::bad_alloc&) {
    Abandon(session);
}

void ControlThread::ConnectManager(const std::shared_ptr<Session>& session, Deadline deadline)
try {
    {
        MutexLock lock(mutex_);
        if (!Open()) {
            lock.Unlock();
            Abandon(session);
            return;
        }
    }
    auto dialing = std::make_shared<Dialing>(dialing_);
    Dialed dialed = Dial(session);
    if (dialed.link == nullptr) {
        NotDialed(session, dialed.failure, Clock::now() + CONNECT_PATIENCE);
        return;
    }
    std::unique_ptr<ControlLink> link = std::move(dialed.link);
    if (ObjectGate::Exists()) {
        Core::Get().EnsureListening();  // Others will call them; the manager reads the hello meanwhile.
    }
    Hello answer;
    const bool isAccepted = PollUntil(link->Fd(), POLLIN, deadline) && PeekNow(link->Fd(), &answer, sizeof(answer)) &&
                            answer.IsAcceptance() && Core::Get().FindSession(answer.instance) == nullptr;
    HandOver(std::move(link), isAccepted ? &answer : nullptr, std::move(dialing));
} catch (const std::bad_alloc&) {
    Abandon(session);
}

ControlThread::Dialed ControlThread::Dial(const std::shared_ptr<Session>& session)
{
    ConnectionFd fd = ConnectStreamNow(Core::Get().SocketPath(session->Path()));
    if (!fd.IsOpen()) {
        return {nullptr, errno == EAGAIN ? DialFailure::BUSY : DialFailure::REFUSED};
    }
    const PeerIdentity identity = ReadPeerIdentity(fd.Get());
    auto link = std::make_unique<ControlLink>(*this, session, std::move(fd), identity, false);
    switch (session->SendHello(link->Fd())) {
        case ControlChannel::HelloSent::SENT:
            return {std::move(link), DialFailure::REFUSED};
        case ControlChannel::HelloSent::PEER_WAS_FIRST:
            return {nullptr, DialFailure::PEER_WAS_FIRST};
        default:
            return {nullptr, DialFailure::REFUSED};
    }
}

void ControlThread::NotDialed(const std::shared_ptr<Session>& session, DialFailure failure, Clock::time_point giveUp)
{
    if (failure == DialFailure::PEER_WAS_FIRST) {
        return;
    }
    const bool isBusy = failure == DialFailure::BUSY && Clock::now() < giveUp;
    if (!isBusy || !Post([this, session, giveUp] { connecting_.push_back({session, giveUp}); })) {
        Abandon(session);
    }
}

void ControlThread::HandOver(std::unique_ptr<ControlLink> dialed, const Hello* answer, std::shared_ptr<Dialing> dialing)
{
    const std::shared_ptr<Session> session = dialed->GetSession();
    const auto link = std::make_shared<std::unique_ptr<ControlLink>>(std::move(dialed));
    // All that takes memory first: a session that is up has its connection until its end is known.
    std::function<void()> adopt = [this, link, kept = std::move(dialing)] { Adopt(std::move(*link)); };
    if (answer != nullptr) {
        Hello taken;
        ReceiveNow((*link)->Fd(), &taken, sizeof(taken));
        (*link)->BecomeAnswered();
        session->SetPeer(answer->instance);
        Core::Get().AddSession(session);
        session->Establish((*link)->Fd(), wait_.Epoll(), static_cast<Pollable*>(link->get()), (*link)->Identity());
    }
    if (!Post(std::move(adopt))) {
        (*link)->ShutDown();
        Abandon(session);
    }
}

void ControlThread::Adopt(std::unique_ptr<ControlLink> link)
{
    ControlLink& kept = *link;
    const Session::State state = kept.GetSession()->GetState();
    const bool isLate = state == Session::State::DEAD || (state == Session::State::ESTABLISHED && !kept.IsAnswered());
    if (isLate || !AddLink(std::move(link)) || !kept.IsAnswered()) {
        return;
    }
    kept.GetSession()->Control().Flush();
    retriesParked_ = true;
}

void ControlThread::TryConnect(const Retry& retry)
{
    if (retry.session->GetState() == Session::State::CONNECTING && LinkOf(retry.session.get()) == nullptr) {
        Connect(retry.session, retry.giveUp);  // Otherwise the peer was quicker.
    }
}

bool ControlThread::AddLink(std::unique_ptr<ControlLink> link)
{
    const std::shared_ptr<Session> session = link->GetSession();
    ControlLink* const kept = link.get();
    std::unique_ptr<Pollable> owner = std::move(link);
    bool isAdded = false;
    try {
        Own(std::move(owner));
        links_[session.get()] = kept;
        isAdded = AddPoll(kept->Fd(), EPOLLIN | EPOLLRDHUP, kept);
        if (isAdded) {  // Before any answer: a forked child may hold the listening socket of an owner that has died.
            kept->WatchProcess();
        }
    } catch (const std::bad_alloc&) {
        WarnLimited("out of memory", "a connection was closed");
    }
    if (!isAdded) {
        links_.erase(session.get());
        Abandon(session);  // First: it may write to the connection until then.
        owned_.erase(kept);
    }
    return isAdded;
}

void ControlThread::Abandon(const std::shared_ptr<Session>& session)
{
    session->End();
    Core::Get().RemoveSession(session);
}

void ControlThread::OnAnswer(ControlLink& link, const Hello& answer)
{
    const std::shared_ptr<Session> session = link.GetSession();
    const bool isManager = session->Peer() == Instance{};  // the only one that is called by its place, not by its name
    if (!isManager && answer.instance != session->Peer()) {
        return;  // Not whom we called: the link ends, and the session with it.
    }
    const std::shared_ptr<Session> other = Core::Get().FindSession(answer.instance);
    if (answer.lane == Hello::USE_OTHER) {
        session->Control().WithdrawHello();
        links_.erase(session.get());
        if (isManager && other != nullptr) {
            Core::Get().ReplaceManagerSession(other);
        }
        if (isManager || (other != nullptr && other != session)) {
            session->End();  // Whoever waits for it asks for the session again.
        } else {
            expected_.push_back({session, Clock::now() + EXPECT_PATIENCE});
        }
        return;
    }
    if (isManager) {
        if (other != nullptr) {
            return;
        }
        session->SetPeer(answer.instance);
        Core::Get().AddSession(session);
    }
    link.BecomeAnswered();
    session->Establish(link.Fd(), wait_.Epoll(), static_cast<Pollable*>(&link), link.Identity());
    retriesParked_ = true;
}

ControlLink* ControlThread::LinkOf(const Session* session) const
{
    const auto found = links_.find(session);
    return found != links_.end() ? found->second : nullptr;
}

void ControlThread::OnEnd(ControlLink& link)
{
    const auto isIn = [&link](const auto& list) { return std::find(list.begin(), list.end(), &link) != list.end(); };
    if (!isIn(ends_) && !isIn(due_)) {
        ends_.push_back(&link);
    }
    link.StopWatching();
}

void ControlThread::TearDown(ControlLink& link)
{
    const std::shared_ptr<Session> session = link.GetSession();
    if (session->GetState() == Session::State::ESTABLISHED) {
        TakeInWhatWaits();
    }
    link.StopWatching();
    link.ShutDown();  // Before anybody learns of the end, or who calls the peer again is told that he has a session.
    if (LinkOf(session.get()) == &link) {
        links_.erase(session.get());
        Abandon(session);
    }
    Disown(&link);
    std::erase(ends_, &link);
    std::erase(due_, &link);
}

}  // namespace TAVO::Transport
