// SPDX-License-Identifier: Apache-2.0
// Accepts, connects and tears down; keeps the few time-outs of the transport.
#include "transport/control_thread.h"

#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "transport/control_link.h"
#include "transport/core.h"
#include "transport/in_lane.h"
#include "transport/threads.h"

namespace TAVO::Transport {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int EVENTS_PER_TURN = 64;
constexpr size_t MAX_PENDING = 1024;    // connections that have not said what they are
constexpr seconds CONNECT_PATIENCE{8};  // for a listener whose queue is full
constexpr seconds EXPECT_PATIENCE{2};   // for a connection that the peer said is on its way
constexpr milliseconds LISTENER_REST{100};
constexpr seconds IDLE_LANE_LIFE{10};
constexpr seconds IDLE_SWEEP_PERIOD{2};

}  // namespace

ControlThread::ControlThread() = default;
ControlThread::~ControlThread() = default;

bool ControlThread::Start()
{
    // The others' too, before there is any connection: a request or a death must not find that no descriptor is left.
    isRunning_ = isRunning_ || (wait_.Open() && Core::Get().Workers().Open() && Core::Get().Delivery().Open() &&
                                StartThread(ThreadRole::CONTROL, "tavo-control", [this] { Run(); }));
    return isRunning_;
}

bool ControlThread::Post(std::function<void()> job)
{
    {
        MutexLock lock(mutex_);
        if (!Start()) {
            return false;
        }
        jobs_.push_back(std::move(job));
    }
    wait_.Signal();
    return true;
}

void ControlThread::Connect(const std::shared_ptr<Session>& session)
{
    if (!Post([this, session] { TryConnect(session, Clock::now() + CONNECT_PATIENCE); })) {
        session->Die();
    }
}

bool ControlThread::Listen(UniqueFd fd)
{
    const auto shared = std::make_shared<UniqueFd>(std::move(fd));
    return Post([this, shared] {
        auto listener = std::make_unique<Listener>(*this, std::move(*shared));
        AddPoll(listener->Fd(), EPOLLIN, listener.get());
        listeners_.push_back(listener.get());
        Own(std::move(listener));
    });
}

bool ControlThread::WatchManager(int dirFd, std::function<void()> appeared)
{
    UniqueFd fd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    const std::string path = "/proc/self/fd/" + std::to_string(dirFd);
    if (!fd.IsOpen() || ::inotify_add_watch(fd.Get(), path.c_str(), IN_MOVED_TO | IN_CREATE) < 0) {
        return false;
    }
    const auto watch = std::make_shared<std::unique_ptr<ManagerWatch>>(
        std::make_unique<ManagerWatch>(std::move(fd), std::move(appeared)));
    return Post([this, watch] {
        AddPoll((*watch)->Fd(), EPOLLIN, watch->get());
        Own(std::move(*watch));
    });
}

void ControlThread::RetryLater(const std::shared_ptr<InLane>& lane)
{
    Post([this, lane] { stalled_.push_back(lane); });
}

void ControlThread::WatchPatience(const std::shared_ptr<InLane>& lane)
{
    Post([this, lane] { impatient_.push_back(lane); });
}

void ControlThread::FlushLater(const std::shared_ptr<Session>& session, ConnectionKind kind)
{
    Post([this, session, kind] { flushing_.emplace_back(session, kind); });
}

void ControlThread::ExpectIdleLanes()
{
    if (!expectsIdleLanes_.load(std::memory_order_relaxed) && !expectsIdleLanes_.exchange(true)) {
        Post([this] { nextIdleSweep_ = Clock::now() + IDLE_SWEEP_PERIOD; });
    }
}

void ControlThread::Own(std::unique_ptr<Pollable> pollable)
{
    const Pollable* const key = pollable.get();
    owned_.emplace(key, std::move(pollable));
}

void ControlThread::Disown(Pollable* pollable)
{
    if (const auto found = owned_.find(pollable); found != owned_.end()) {
        disowned_.push_back(std::move(found->second));
        owned_.erase(found);
    }
}

void ControlThread::AddPoll(int fd, uint32_t events, Pollable* pollable)
{
    epoll_event event{};
    event.events = events;
    event.data.ptr = pollable;
    polled_.insert(pollable);
    ::epoll_ctl(wait_.Epoll(), EPOLL_CTL_ADD, fd, &event);
}

void ControlThread::RemovePoll(int fd, Pollable* pollable)
{
    polled_.erase(pollable);
    ::epoll_ctl(wait_.Epoll(), EPOLL_CTL_DEL, fd, nullptr);
}

void ControlThread::Run()
{
    epoll_event events[EVENTS_PER_TURN];
    for (;;) {
        const int ready = ::epoll_wait(wait_.Epoll(), events, EVENTS_PER_TURN, TickMilliseconds());
        for (int i = 0; i < ready; ++i) {
            auto* const pollable = static_cast<Pollable*>(events[i].data.ptr);
            if (pollable == nullptr) {
                RunJobs();
            } else if (polled_.count(pollable) != 0) {  // not removed by an earlier event of this turn
                pollable->OnReady(events[i].events);
            }
        }
        OnTick(Clock::now());
        disowned_.clear();
    }
}

void ControlThread::RunJobs()
{
    wait_.Take();
    std::deque<std::function<void()>> jobs;
    {
        MutexLock lock(mutex_);
        jobs.swap(jobs_);
    }
    for (const auto& job : jobs) {
        job();
    }
}

int ControlThread::TickMilliseconds() const
{
    if (!flushing_.empty()) {
        return 5;
    }
    if (!stalled_.empty() || !connecting_.empty()) {
        return 20;
    }
    if (!pending_.empty() || !impatient_.empty() || !resting_.empty() || !expected_.empty()) {
        return 100;
    }
    return expectsIdleLanes_.load(std::memory_order_relaxed) ? 1000 : -1;
}

void ControlThread::OnTick(Clock::time_point now)
{
    if (std::exchange(retriesParked_, false)) {
        RetryParked();
    }
    std::erase_if(flushing_, [](const auto& entry) {
        const std::shared_ptr<Session> session = entry.first.lock();
        return session == nullptr || session->FlushOneWay(entry.second);
    });
    for (const auto& lane : std::exchange(stalled_, {})) {
        lane->Rearm();
    }
    for (const Retry& retry : std::exchange(connecting_, {})) {
        TryConnect(retry.session, retry.giveUp);
    }
    while (!pending_.empty() && pending_.front()->GetDeadline() <= now) {
        OnConnectionSettled(pending_.front());
    }
    std::erase_if(impatient_, [now](const std::weak_ptr<InLane>& entry) {
        const std::shared_ptr<InLane> lane = entry.lock();
        return lane == nullptr || !lane->CheckPatience(now);
    });
    std::erase_if(expected_, [now](const Retry& entry) {
        const bool isSettled = entry.session->GetState() != Session::State::CONNECTING;
        if (!isSettled && entry.giveUp <= now) {
            entry.session->Die();
            Core::Get().RemoveSession(entry.session);
        }
        return isSettled || entry.giveUp <= now;
    });
    if (!resting_.empty() && restingUntil_ <= now) {
        for (const auto& [fd, listener] : std::exchange(resting_, {})) {
            AddPoll(fd, EPOLLIN, listener);
        }
    }
    if (expectsIdleLanes_.load(std::memory_order_relaxed) && nextIdleSweep_ <= now) {
        expectsIdleLanes_.store(false);  // first, so that a lane that becomes idle meanwhile is not missed
        nextIdleSweep_ = now + IDLE_SWEEP_PERIOD;
        if (Core::Get().CloseIdleLanes(now - IDLE_LANE_LIFE)) {
            expectsIdleLanes_.store(true);
        }
    }
}

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
        session->Die();
        Core::Get().RemoveSession(session);
        return;
    }
    const PeerIdentity identity = ReadPeerIdentity(fd.Get());
    auto link = std::make_unique<ControlLink>(*this, session, std::move(fd), identity, false);
    links_[session.get()] = link.get();
    AddPoll(link->Fd(), EPOLLIN | EPOLLRDHUP, link.get());
    Own(std::move(link));
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
    pending_.push_back(connection.get());
    AddPoll(connection->Fd(), EPOLLIN | EPOLLRDHUP, connection.get());
    Own(std::move(connection));
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
    if (hello.kind == ConnectionKind::NOTICE_LANE) {
        Core::Get().Delivery().AddLane(lane);
    } else {
        Core::Get().Workers().AddLane(lane);
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
            session->Die();
            Core::Get().RemoveSession(session);
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
    links_[session.get()] = &kept;
    AddPoll(kept.Fd(), EPOLLIN | EPOLLRDHUP, &kept);
    Own(std::move(link));
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
        session->Die();
        Core::Get().RemoveSession(session);
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

void ControlThread::RestListener(int fd, Pollable* listener)
{
    RemovePoll(fd, listener);
    resting_.emplace_back(fd, listener);
    restingUntil_ = Clock::now() + LISTENER_REST;
    WarnLimited("no descriptor left for a new connection", "accepting again in a moment");
}

}  // namespace TAVO::Transport
