// SPDX-License-Identifier: Apache-2.0
// How connections become sessions and lanes on the control thread, whichever side began, and how a session ends.
#include <poll.h>
#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "base/warn_limited.h"
#include "transport/control_link.h"
#include "transport/control_thread.h"
#include "transport/core.h"
#include "transport/in_lane.h"
#include "transport/object_gate.h"

namespace TAVO::Transport {
namespace {

constexpr size_t MAX_PENDING = 1024;                 // connections that have not said what they are
constexpr std::chrono::seconds CONNECT_PATIENCE{8};  // for a listener whose queue is full
constexpr std::chrono::seconds EXPECT_PATIENCE{2};   // for a connection that the peer said is on its way

// Whether two pids that the kernel named are of one process. 0 is a process of another pid namespace, which cannot be told.
bool IsSameProcess(int pid, int other)
{
    return pid == other || pid == 0 || other == 0;
}

}  // namespace

void ControlThread::Connect(const std::shared_ptr<Session>& session)
{
    Connect(session, Clock::now() + CONNECT_PATIENCE);
}

void ControlThread::Connect(const std::shared_ptr<Session>& session, Clock::time_point giveUp)
try {
    auto dialing = std::make_shared<Dialing>(dialing_);
    std::unique_ptr<ControlLink> link = Dial(session);
    if (link != nullptr) {
        HandOver(std::move(link), nullptr, std::move(dialing));
    } else {
        NotDialed(session, giveUp);
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
    std::unique_ptr<ControlLink> link = Dial(session);
    if (link == nullptr) {
        NotDialed(session, Clock::now() + CONNECT_PATIENCE);
        return;
    }
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

std::unique_ptr<ControlLink> ControlThread::Dial(const std::shared_ptr<Session>& session)
{
    ConnectionFd fd = ConnectStreamNow(Core::Get().SocketPath(session->Path()));
    if (!fd.IsOpen()) {
        return nullptr;
    }
    const PeerIdentity identity = ReadPeerIdentity(fd.Get());
    auto link = std::make_unique<ControlLink>(*this, session, std::move(fd), identity, false);
    if (!session->SayHello(link->Fd())) {
        const int reason = errno;
        link.reset();
        errno = reason;
    }
    return link;
}

void ControlThread::NotDialed(const std::shared_ptr<Session>& session, Clock::time_point giveUp)
{
    if (errno == EALREADY) {
        return;
    }
    const bool isBusy = errno == EAGAIN && Clock::now() < giveUp;
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
        session->ComeUp((*link)->Fd(), wait_.Epoll(), static_cast<Pollable*>(link->get()), (*link)->Identity());
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
    const bool isLate = state == Session::State::DEAD || (state == Session::State::UP && !kept.IsAnswered());
    if (isLate || !AddLink(std::move(link)) || !kept.IsAnswered()) {
        return;
    }
    kept.GetSession()->FlushControl();
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
        session->TakeHelloBack();
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
        return of != nullptr && of->GetState() == Session::State::UP;
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
    if (hello.kind == ConnectionKind::CALL_LANE && !session->HasRoomForCallLane()) {
        // Workers may not have closed the lanes yet whose callers have given up. This one waits until they have, or until
        // its own caller gives up.
        const bool mayWait = !HasHungUp(fd.Get()) && CountWaitingLanes(hello.instance) <= Session::MAX_LANES;
        return mayWait ? HelloResult::AWAITS_ROOM : HelloResult::SETTLED;
    }
    ::epoll_ctl(wait_.Epoll(), EPOLL_CTL_DEL, fd.Get(), nullptr);
    const auto lane = std::make_shared<InLane>(std::move(fd), hello.kind, hello.lane, session);
    if (!session->AddInLane(lane)) {
        return HelloResult::SETTLED;
    }
    const bool isServed = hello.kind == ConnectionKind::NOTICE_LANE ? Core::Get().Delivery().AddLane(lane)
                                                                    : Core::Get().Workers().AddLane(lane);
    if (!isServed) {
        session->RemoveInLane(lane, 0);  // The peer learns at once that nobody is there to answer.
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
    if (hello.kind != ConnectionKind::CONTROL && session != nullptr && session->GetState() == Session::State::UP &&
        IsSameProcess(session->Identity().pid, identity.pid)) {
        session->RefuseLane(hello.lane);
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
    if (session->GetState() == Session::State::UP && link != nullptr && session->HasHungUp()) {
        TearDown(*link);
        link = nullptr;
        session = Core::Get().EnsureSession(hello.instance, isNew);
    }
    const bool isAccepted = session->GetState() != Session::State::UP && session->GiveWay(self < hello.instance);
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
    session->ComeUp(kept.Fd(), wait_.Epoll(), static_cast<Pollable*>(&kept), identity);
    retriesParked_ = true;
    kept.OnReady(EPOLLIN);  // What follows the hello was said before any end of others that is still to be acted on.
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
    if (session->GetState() == Session::State::UP) {
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
