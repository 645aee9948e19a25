// SPDX-License-Identifier: Apache-2.0
// Connections that peers open, on the control thread. Each is pending until its hello is complete. Then it becomes the
// control connection of a session, or a lane of one, or it waits until its session is established or has room. An end of
// a session is acted on only once the connections that were opened before it are read.
#include <sys/epoll.h>

#include <algorithm>
#include <new>

#include "base/warn_limited.h"
#include "transport/control_link.h"
#include "transport/control_thread.h"
#include "transport/core.h"
#include "transport/in_lane.h"

namespace TAVO::Transport {
namespace {

constexpr size_t MAX_PENDING = 1024;  // connections without a complete hello, and lanes that wait

// Whether two pids that the kernel named are of one process. 0 is a process of another pid namespace, which cannot be told.
bool IsSameProcess(int pid, int other)
{
    return pid == other || pid == 0 || other == 0;
}

}  // namespace

void ControlThread::OnAccepted(ConnectionFd fd)
{
    const PeerIdentity identity = ReadPeerIdentity(fd.Get());
    if (!identity.known || identity.uid != ::geteuid()) {
        WarnLimited("a process of another user tried to connect", "refused: a runtime directory serves one user");
        return;
    }
    if (admission_ && !admission_(identity.pid, fd.Get(), 0)) {
        return;
    }
    if (pending_.size() >= MAX_PENDING) {
        OnConnectionSettled(pending_.front());
    }
    auto connection = std::make_unique<PendingConnection>(*this, std::move(fd), identity);
    PendingConnection& kept = *connection;
    pending_.reserve(pending_.size() + 1);
    Own(std::move(connection));
    pending_.push_back(&kept);
    // Nearly always the hello is there. Who comes behind it may belong to it, and waits.
    {
        const Raised takingIn(isTakingIn_);
        kept.OnReady(0);
    }
    if (owned_.count(&kept) == 0) {
        return;
    }
    const uint32_t awaited = kept.IsComplete() ? 0U : static_cast<uint32_t>(EPOLLIN | EPOLLRDHUP);
    bool isAwaited = false;
    try {
        isAwaited = AddPoll(kept.Fd(), awaited, &kept);
    } catch (const std::bad_alloc&) {
        WarnLimited("out of memory", "a connection was refused");
    }
    if (!isAwaited) {
        OnConnectionSettled(&kept);
    }
}

void ControlThread::OnConnectionSettled(PendingConnection* connection)
{
    if (connection->Fd() >= 0) {
        RemovePoll(connection->Fd(), connection);
        if (connection->IsComplete()) {
            RefuseLane(connection->GetHello(), connection->Identity());
        }
    }
    polled_.erase(connection);
    std::erase(pending_, connection);
    Disown(connection);
}

HelloResult ControlThread::OnHello(ConnectionFd& fd, const Hello& hello, const PeerIdentity& identity)
{
    if (hello.kind == ConnectionKind::CONTROL) {
        ::epoll_ctl(wait_.Epoll(), EPOLL_CTL_DEL, fd.Get(), nullptr);
        AcceptControl(fd, hello, identity);
        return HelloResult::SETTLED;
    }
    return AcceptLane(fd, hello, identity);
}

HelloResult ControlThread::AcceptLane(ConnectionFd& fd, const Hello& hello, const PeerIdentity& identity)
{
    const auto isUp = [](const std::shared_ptr<Session>& of) {
        return of != nullptr && of->GetState() == Session::State::ESTABLISHED;
    };
    std::shared_ptr<Session> session = Core::Get().FindSession(hello.instance);
    if (!isUp(session)) {
        ReadHellos();  // The sender's own may have come since its connection was accepted.
        session = Core::Get().FindSession(hello.instance);
    }
    if (!isUp(session)) {
        // The answer to our hello may be about to be read: the peer was up before we are.
        const auto isOpen = [](const auto& entry) { return !entry.second->IsAnswered(); };
        const bool mayFollow = dialing_ != 0 || std::any_of(links_.begin(), links_.end(), isOpen);
        return mayFollow ? HelloResult::AWAITS_SESSION : HelloResult::SETTLED;
    }
    if (!IsSameProcess(session->Identity().pid, identity.pid)) {
        WarnLimited("a process opened a lane in the name of another one", "the lane was refused");
        return HelloResult::SETTLED;
    }
    if (hello.kind == ConnectionKind::CALL_LANE && !session->InLanes().HasRoomForCallLane()) {
        // Workers may not have closed the lanes yet whose callers have given up. This one waits until they have, or until
        // its own caller gives up.
        const bool mayWait = !HasHungUp(fd.Get()) && CountWaitingLanes(hello.instance) <= InLaneTable::MAX_CALL_LANES;
        return mayWait ? HelloResult::AWAITS_ROOM : HelloResult::SETTLED;
    }
    ::epoll_ctl(wait_.Epoll(), EPOLL_CTL_DEL, fd.Get(), nullptr);
    const auto lane = std::make_shared<InLane>(std::move(fd), hello.kind, hello.lane, session);
    if (!session->InLanes().Add(lane)) {
        return HelloResult::SETTLED;
    }
    const bool isServed = hello.kind == ConnectionKind::NOTICE_LANE ? Core::Get().Delivery().AddLane(lane)
                                                                    : Core::Get().Workers().AddLane(lane);
    if (!isServed) {
        session->InLanes().Remove(*lane);  // The peer learns at once that nobody is there to answer.
    }
    return HelloResult::SETTLED;
}

size_t ControlThread::CountWaitingLanes(const Instance& peer) const
{
    return static_cast<size_t>(std::count_if(pending_.begin(), pending_.end(), [&peer](const auto* connection) {
        return connection->IsComplete() && connection->GetHello().instance == peer && !HasHungUp(connection->Fd());
    }));
}

void ControlThread::RefuseLane(const Hello& hello, const PeerIdentity& identity)
{
    const std::shared_ptr<Session> session = hello.IsValid() ? Core::Get().FindSession(hello.instance) : nullptr;
    if (hello.kind != ConnectionKind::CONTROL && session != nullptr &&
        session->GetState() == Session::State::ESTABLISHED && IsSameProcess(session->Identity().pid, identity.pid)) {
        session->InLanes().Refuse(hello.lane);
    }
}

void ControlThread::AcceptControl(ConnectionFd& fd, const Hello& hello, const PeerIdentity& identity)
{
    const Instance& self = Core::Get().Self();
    if (hello.instance == self || hello.instance == Instance{}) {
        fd.Close();
        return;
    }
    if (admission_ && Core::Get().FindSession(hello.instance) == nullptr &&
        !admission_(identity.pid, fd.Get(), Core::Get().CountSessions() + 1)) {
        fd.Close();
        return;
    }
    bool isNew = false;
    std::shared_ptr<Session> session = Core::Get().EnsureSession(hello.instance, isNew);
    ControlLink* link = LinkOf(session.get());
    if (session->GetState() == Session::State::ESTABLISHED && link != nullptr && session->Control().HasHungUp()) {
        TearDown(*link);
        link = nullptr;
        session = Core::Get().EnsureSession(hello.instance, isNew);
    }
    const bool isAccepted =
        session->GetState() != Session::State::ESTABLISHED && session->Control().YieldToPeer(self < hello.instance);
    Hello answer;
    answer.instance = self;
    answer.lane = isAccepted ? Hello::ACCEPTED : Hello::USE_OTHER;
    const bool isSaid = SendNow(fd.Get(), &answer, sizeof(answer)).status == IoStatus::OK;
    if (!isSaid || !isAccepted) {
        fd.Close();
        if (isAccepted && link == nullptr) {  // The peer is gone again, and whoever found the session waits for nobody.
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

void ControlThread::Establish(const std::shared_ptr<Session>& session, ConnectionFd fd, const PeerIdentity& identity)
{
    auto link = std::make_unique<ControlLink>(*this, session, std::move(fd), identity, true);
    ControlLink& kept = *link;
    if (!AddLink(std::move(link))) {
        return;
    }
    session->Establish(kept.Fd(), wait_.Epoll(), static_cast<Pollable*>(&kept), identity);
    retriesParked_ = true;
    kept.OnReady(EPOLLIN);  // What follows the hello was said before any end of others that is still to be acted on.
}

void ControlThread::TakeInWhatWaits()
{
    if (isTakingIn_) {  // A connection that is taken in may be a sign of an end itself.
        return;
    }
    const Raised takingIn(isTakingIn_);
    for (Listener* listener : listeners_) {
        if (listener->state == Listener::State::ACCEPTING) {
            listener->Accept(MAX_PENDING);
        }
    }
    ReadHellos();
}

void ControlThread::ReadHellos()
{
    if (isReadingHellos_) {
        return;
    }
    const Raised readingHellos(isReadingHellos_);
    for (PendingConnection* connection : std::vector<PendingConnection*>(pending_)) {
        if (polled_.count(connection) != 0 && !connection->IsComplete()) {
            connection->OnReady(0);
        }
    }
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
