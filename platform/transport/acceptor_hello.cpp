// SPDX-License-Identifier: Apache-2.0
// What becomes of a connection whose hello is complete. A control connection is accepted unless the session has one
// already, or has sent a hello that prevails. A lane is accepted if it was opened by the process of its session and the
// session has room. If the session is not established yet, the lane waits while it may still be; if the peer has as
// many lanes as it may have, the lane waits as long as its caller does.
#include <sys/epoll.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "base/warn_limited.h"
#include "transport/acceptor.h"
#include "transport/session_host.h"

namespace TAVO::Transport {
namespace {

// Whether two pids that the kernel named may be of one process. 0 is any process of another pid namespace.
bool IsSameProcess(int pid, int other)
{
    return pid == other || pid == 0 || other == 0;
}

bool IsEstablished(const std::shared_ptr<Session>& session)
{
    return session != nullptr && session->GetState() == Session::State::ESTABLISHED;
}

}  // namespace

HelloResult Acceptor::OnHello(ConnectionFd& fd, const Hello& hello, const PeerIdentity& identity)
{
    if (hello.kind != ConnectionKind::CONTROL) {
        return AcceptLane(fd, hello, identity);
    }
    loop_.ReleaseFd(fd.Get());
    AcceptControl(fd, hello, identity);
    return HelloResult::SETTLED;
}

std::shared_ptr<Session> Acceptor::FindEstablished(const Instance& peer)
{
    std::shared_ptr<Session> session = sessions_.Find(peer);
    if (!IsEstablished(session)) {
        ReadHellos();  // The sender's own may have arrived since its connection was accepted.
        session = sessions_.Find(peer);
    }
    return IsEstablished(session) ? session : nullptr;
}

HelloResult Acceptor::AcceptLane(ConnectionFd& fd, const Hello& hello, const PeerIdentity& identity)
{
    const std::shared_ptr<Session> session = FindEstablished(hello.instance);
    if (session == nullptr) {
        // The answer to our hello may be about to be read: the peer was established before we are.
        const bool mayFollow = connector_.IsDialing() || links_.HasUnanswered();
        return mayFollow ? HelloResult::AWAITS_SESSION : HelloResult::SETTLED;
    }
    if (!IsSameProcess(session->Identity().pid, identity.pid)) {
        WarnLimited("a process opened a lane in the name of another one", "the lane was refused");
        return HelloResult::SETTLED;
    }
    if (hello.kind == ConnectionKind::CALL_LANE && !session->InLanes().HasRoomForCallLane()) {
        // Workers may not have closed the lanes yet whose callers have given up. This one waits until they have, or
        // until its own caller gives up.
        const bool mayWait = !HasHungUp(fd.Get()) && CountWaitingLanes(hello.instance) <= InLaneTable::MAX_CALL_LANES;
        return mayWait ? HelloResult::AWAITS_ROOM : HelloResult::SETTLED;
    }
    loop_.ReleaseFd(fd.Get());
    ServeLane(fd, hello, session);
    return HelloResult::SETTLED;
}

void Acceptor::ServeLane(ConnectionFd& fd, const Hello& hello, const std::shared_ptr<Session>& session)
{
    const auto lane = std::make_shared<InLane>(std::move(fd), hello.kind, hello.lane, session, services_);
    if (!session->InLanes().Add(lane)) {
        return;
    }
    const bool isServed =
        hello.kind == ConnectionKind::NOTICE_LANE ? delivery_.AddLane(lane) : services_.workers.AddLane(lane);
    if (!isServed) {
        session->InLanes().Remove(*lane);  // The peer learns at once that there is no thread to answer.
    }
}

size_t Acceptor::CountWaitingLanes(const Instance& peer) const
{
    return static_cast<size_t>(std::count_if(pending_.begin(), pending_.end(), [&peer](const auto* connection) {
        return connection->IsComplete() && connection->GetHello().instance == peer && !HasHungUp(connection->Fd());
    }));
}

void Acceptor::RefuseLane(PendingConnection& connection)
{
    // Not open: a link or a lane has the descriptor.
    if (connection.Fd() < 0 || !connection.EndInput()) {
        return;
    }
    const Hello& hello = connection.GetHello();
    const std::shared_ptr<Session> session = hello.IsValid() ? sessions_.Find(hello.instance) : nullptr;
    if (hello.kind != ConnectionKind::CONTROL && IsEstablished(session) &&
        IsSameProcess(session->Identity().pid, connection.Identity().pid)) {
        session->InLanes().Refuse(hello.lane);
    }
}

bool Acceptor::IsAdmitted(ConnectionFd& fd, const Hello& hello, const PeerIdentity& identity)
{
    // No process has a session with itself, and zeros are the place of a manager whose name is not known yet.
    if (hello.instance == services_.host.Self() || hello.instance == Instance{}) {
        return false;
    }
    // A process that has a session already costs no further session, so it is not counted again.
    return !admission_ || sessions_.Find(hello.instance) != nullptr ||
           admission_(identity.pid, fd.Get(), sessions_.Count() + 1);
}

void Acceptor::AcceptControl(ConnectionFd& fd, const Hello& hello, const PeerIdentity& identity)
{
    if (!IsAdmitted(fd, hello, identity)) {
        fd.Close();
        return;
    }
    std::shared_ptr<Session> session = sessions_.Ensure(hello.instance).session;
    ControlLink* link = links_.Find(session.get());
    // The peer has closed its old connection and connects again, but the epoll has not reported the end yet. Refusing
    // it as connected already would make it wait for nothing.
    if (IsEstablished(session) && link != nullptr && session->Control().HasHungUp()) {
        links_.TearDown(*link);
        link = nullptr;
        session = sessions_.Ensure(hello.instance).session;
    }
    const Instance& self = services_.host.Self();
    // If both have connected, both evaluate the same comparison, so exactly one of the two connections is refused.
    const bool isAccepted = !IsEstablished(session) && session->Control().YieldToPeer(self < hello.instance);
    Hello answer;
    answer.instance = self;
    answer.lane = isAccepted ? Hello::ACCEPTED : Hello::USE_OTHER;
    // 32 bytes into an empty socket: sent as a whole, or the peer has closed.
    const bool isSent = SendNow(fd.Get(), &answer, sizeof(answer)).status == IoStatus::OK;
    if (!isSent || !isAccepted) {
        fd.Close();
        if (isAccepted && link == nullptr) {  // The peer has ended: callers must not wait for it.
            links_.Abandon(session);
        }
        return;
    }
    if (link != nullptr) {  // The two crossed: the connection of the lower instance stays.
        // First, so that the end of the unused link does not end the session.
        links_.Unbind(session.get());
        links_.TearDown(*link);
    }
    Establish(session, std::move(fd), identity);
}

void Acceptor::Establish(const std::shared_ptr<Session>& session, ConnectionFd fd, const PeerIdentity& identity)
{
    auto link = links_.Make(session, std::move(fd), identity, true);
    ControlLink& kept = *link;
    if (!links_.Add(std::move(link))) {
        return;
    }
    links_.Establish(kept);
    links_.NotifyEstablished();
    kept.OnReady(EPOLLIN);  // What follows the hello was sent before any end of others that is still to be acted on.
}

}  // namespace TAVO::Transport
