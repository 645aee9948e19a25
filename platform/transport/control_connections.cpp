// SPDX-License-Identifier: Apache-2.0
// How connections become sessions and lanes on the control thread, whichever side began, and how a session ends.
#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>

#include "transport/control_link.h"
#include "transport/control_thread.h"
#include "transport/core.h"
#include "transport/in_lane.h"
#include "transport/threads.h"

namespace TAVO::Transport {
namespace {

constexpr size_t MAX_PENDING = 1024;                // connections that have not said what they are
constexpr std::chrono::seconds EXPECT_PATIENCE{2};  // for a connection that the peer said is on its way

}  // namespace

void ControlThread::TryConnect(const std::shared_ptr<Session>& session, Clock::time_point giveUp)
{
    if (session->GetState() != Session::State::CONNECTING || LinkOf(session.get()) != nullptr) {
        return;  // The peer was quicker.
    }
    UniqueFd fd = ConnectStreamNow(Core::Get().SocketPath(session->Path()));
    Hello hello;
    hello.instance = Core::Get().Self();
    if (!fd.IsOpen() && errno == EAGAIN && Clock::now() < giveUp) {
        connecting_.push_back({session, giveUp});
        return;
    }
    if (!fd.IsOpen() || SendNow(fd.Get(), &hello, sizeof(hello)).status != IoStatus::OK) {
        Abandon(session);
        return;
    }
    const PeerIdentity identity = ReadPeerIdentity(fd.Get());
    AddLink(std::make_unique<ControlLink>(*this, session, std::move(fd), identity, false));
}

bool ControlThread::AddLink(std::unique_ptr<ControlLink> link)
{
    if (!AddPoll(link->Fd(), EPOLLIN | EPOLLRDHUP, link.get())) {
        Abandon(link->GetSession());
        return false;
    }
    links_[link->GetSession().get()] = link.get();
    Own(std::move(link));
    return true;
}

void ControlThread::Abandon(const std::shared_ptr<Session>& session)
{
    session->Die();
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
        links_.erase(session.get());
        if (isManager && other != nullptr) {
            Core::Get().ReplaceManagerSession(other);
        }
        if (isManager || (other != nullptr && other != session)) {
            session->Die();  // Whoever waits for it asks for the session again.
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
    session->ComeUp(link.Fd(), wait_.Epoll(), static_cast<Pollable*>(&link), link.Identity());
    retriesParked_ = true;
}

void ControlThread::OnAccepted(UniqueFd fd)
{
    const PeerIdentity identity = ReadPeerIdentity(fd.Get());
    if (!identity.known || identity.uid != ::geteuid()) {
        WarnLimited("a connection of another user", "refused");
        return;
    }
    if (pending_.size() >= MAX_PENDING) {
        OnConnectionSettled(pending_.front());
    }
    auto connection = std::make_unique<PendingConnection>(*this, std::move(fd), identity);
    if (AddPoll(connection->Fd(), EPOLLIN | EPOLLRDHUP, connection.get())) {
        pending_.push_back(connection.get());
        Own(std::move(connection));
    }
}

void ControlThread::OnConnectionSettled(PendingConnection* connection)
{
    if (connection->Fd() >= 0) {
        RemovePoll(connection->Fd(), connection);
    }
    polled_.erase(connection);
    std::erase(pending_, connection);
    Disown(connection);
}

bool ControlThread::OnHello(UniqueFd& fd, const Hello& hello, const PeerIdentity& identity)
{
    if (hello.kind == ConnectionKind::CONTROL) {
        ::epoll_ctl(wait_.Epoll(), EPOLL_CTL_DEL, fd.Get(), nullptr);
        AcceptControl(fd, hello, identity);
        return true;
    }
    const std::shared_ptr<Session> session = Core::Get().FindSession(hello.instance);
    if (session == nullptr || session->GetState() != Session::State::UP) {
        // The answer to our hello may be about to be read: the peer was up before we are.
        const bool mayComeUp =
            std::any_of(links_.begin(), links_.end(), [](const auto& entry) { return !entry.second->IsAnswered(); });
        return !mayComeUp;
    }
    ::epoll_ctl(wait_.Epoll(), EPOLL_CTL_DEL, fd.Get(), nullptr);
    const auto lane = std::make_shared<InLane>(std::move(fd), hello.kind, hello.lane, session);
    if (!session->AddInLane(lane)) {
        return true;
    }
    const bool isServed = hello.kind == ConnectionKind::NOTICE_LANE ? Core::Get().Delivery().AddLane(lane)
                                                                    : Core::Get().Workers().AddLane(lane);
    if (!isServed) {
        session->RemoveInLane(lane, 0);  // The peer learns at once that nobody is there to answer.
    }
    return true;
}

void ControlThread::AcceptControl(UniqueFd& fd, const Hello& hello, const PeerIdentity& identity)
{
    const Instance& self = Core::Get().Self();
    if (hello.instance == self || hello.instance == Instance{}) {
        fd.Reset();
        return;
    }
    bool isNew = false;
    std::shared_ptr<Session> session = Core::Get().EnsureSession(hello.instance, isNew);
    ControlLink* link = LinkOf(session.get());
    if (session->GetState() == Session::State::UP && link != nullptr && session->HasHungUp()) {
        TearDown(*link);
        link = nullptr;
        session = Core::Get().EnsureSession(hello.instance, isNew);
    }
    const bool isUp = session->GetState() == Session::State::UP;
    const bool oursStays = link != nullptr && self < hello.instance;
    Hello answer;
    answer.instance = self;
    answer.lane = isUp || oursStays ? Hello::USE_OTHER : Hello::ACCEPTED;
    if (SendNow(fd.Get(), &answer, sizeof(answer)).status != IoStatus::OK || answer.lane == Hello::USE_OTHER) {
        fd.Reset();
        if (isNew) {  // The peer is gone again; somebody may have found the session meanwhile.
            Abandon(session);
        }
        return;
    }
    if (link != nullptr) {  // Ours was on its way too: the lower instance's stays.
        links_.erase(session.get());
        TearDown(*link);
    }
    Establish(session, std::move(fd), identity);
}

void ControlThread::Establish(const std::shared_ptr<Session>& session, UniqueFd fd, const PeerIdentity& identity)
{
    auto link = std::make_unique<ControlLink>(*this, session, std::move(fd), identity, true);
    ControlLink& kept = *link;
    if (!AddLink(std::move(link))) {
        return;
    }
    kept.BecomeAnswered();
    session->ComeUp(kept.Fd(), wait_.Epoll(), static_cast<Pollable*>(&kept), identity);
    retriesParked_ = true;
}

ControlLink* ControlThread::LinkOf(const Session* session) const
{
    const auto found = links_.find(session);
    return found != links_.end() ? found->second : nullptr;
}

void ControlThread::TearDown(ControlLink& link)
{
    const std::shared_ptr<Session> session = link.GetSession();
    if (session->GetState() == Session::State::UP) {
        TakeInWhatWaits();
    }
    link.StopPolling();
    if (LinkOf(session.get()) == &link) {
        links_.erase(session.get());
        Abandon(session);
    }
    Disown(&link);
}

void ControlThread::TakeInWhatWaits()
{
    if (std::exchange(isTakingIn_, true)) {  // A connection that is taken in may be a sign of an end itself.
        return;
    }
    for (Listener* listener : listeners_) {
        if (polled_.count(listener) != 0) {
            listener->Accept(MAX_PENDING);
        }
    }
    for (PendingConnection* connection : std::vector<PendingConnection*>(pending_)) {
        if (polled_.count(connection) != 0 && !connection->IsComplete()) {
            connection->OnReady(0);
        }
    }
    isTakingIn_ = false;
}

void ControlThread::RetryParked()
{
    for (PendingConnection* connection : std::vector<PendingConnection*>(pending_)) {
        if (connection->IsComplete()) {
            connection->Retry();
        }
    }
}

}  // namespace TAVO::Transport
