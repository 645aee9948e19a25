// SPDX-License-Identifier: Apache-2.0
// The loop, what other threads ask of it, and the few time-outs of the transport.
#include "transport/control_thread.h"

#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "base/warn_limited.h"
#include "os/threads.h"
#include "transport/control_link.h"
#include "transport/core.h"
#include "transport/in_lane.h"

namespace TAVO::Transport {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr size_t EVENTS_PER_TURN = 64;
constexpr milliseconds LISTENER_REST{100};
constexpr seconds IDLE_LANE_LIFE{10};
constexpr seconds IDLE_SWEEP_PERIOD{2};

// Memory may come again. What was lost for want of it ends the session that it belongs to, where it is noticed.
template <typename Step>
void Contain(const Step& step)
{
    try {
        step();
    } catch (const std::bad_alloc&) {
        WarnLimited("out of memory", "a connection may have been closed");
    }
}

// Work came while every worker had some.
class WaitingWork final : public Pollable {
public:
    void OnReady(uint32_t) override { Core::Get().Workers().EnsureSpare(); }
};

}  // namespace

ControlThread::ControlThread() : waitingWork_(std::make_unique<WaitingWork>()) {}
ControlThread::~ControlThread() = default;

bool ControlThread::Open()
{
    // The others' too, before there is any connection: a request or a death must not find that no descriptor is left.
    return wait_.Open() && Core::Get().Workers().Open() && Core::Get().Delivery().Open();
}

bool ControlThread::Start()
{
    isRunning_ = isRunning_ || (Open() && StartThread(ThreadRole::CONTROL, "tavo-control", [this] { Run(); }));
    return isRunning_;
}

bool ControlThread::Post(std::function<void()> job) noexcept
{
    try {
        MutexLock lock(mutex_);
        if (!Start()) {
            return false;
        }
        jobs_.push_back(std::move(job));
    } catch (const std::bad_alloc&) {
        return false;
    }
    wait_.Signal();
    return true;
}

bool ControlThread::Listen(UniqueFd fd, Admission admission)
{
    auto listener = std::make_unique<Listener>(*this, std::move(fd));
    Listener* const kept = listener.get();
    const auto owner = std::make_shared<std::unique_ptr<Pollable>>(std::move(listener));
    return Post([this, kept, owner, admission = std::move(admission)] {
        if (admission) {
            admission_ = admission;
        }
        if (*owner != nullptr) {
            listeners_.reserve(listeners_.size() + 1);
            Own(std::move(*owner));
            listeners_.push_back(kept);
        }
        ResumeListener(*kept);
        Core::Get().Workers().EnsureSpare();  // for the first request
    });
}

void ControlThread::RetryLater(const std::shared_ptr<PeerLane>& lane)
{
    Post([this, lane] { stalled_.push_back(lane); });
}

void ControlThread::WatchDeadline(const std::shared_ptr<PeerLane>& lane)
{
    Post([this, lane] { watched_.push_back(lane); });
}

bool ControlThread::FlushLater(const std::shared_ptr<Session>& session, ConnectionKind kind)
{
    return Post([this, session, kind] { flushing_.emplace_back(session, kind); });
}

bool ControlThread::RetryWaitingLanes()
{
    return Post([this] { retriesParked_ = true; });
}

void ControlThread::ExpectIdleLanes()
{
    if (!expectsIdleLanes_.load(std::memory_order_relaxed) && !expectsIdleLanes_.exchange(true) &&
        !Post([this] { nextIdleSweep_ = Clock::now() + IDLE_SWEEP_PERIOD; })) {
        expectsIdleLanes_.store(false);  // The next lane that becomes idle says so again.
    }
}

void ControlThread::Own(std::unique_ptr<Pollable>&& pollable)
{
    // Room for all of them to end at one time: noticing that takes no memory. First, so that a failure owns nothing.
    const size_t count = owned_.size() + 1;
    for (auto* const list : {&ends_, &due_}) {
        if (list->capacity() < count) {
            list->reserve(2 * count);
        }
    }
    if (disowned_.capacity() < count) {
        disowned_.reserve(2 * count);
    }
    std::unique_ptr<Pollable>& place = owned_[pollable.get()];
    place = std::move(pollable);
}

void ControlThread::Disown(Pollable* pollable)
{
    if (const auto found = owned_.find(pollable); found != owned_.end()) {
        disowned_.push_back(std::move(found->second));
        owned_.erase(found);
    }
}

bool ControlThread::AddPoll(int fd, uint32_t events, Pollable* pollable)
{
    epoll_event event{};
    event.events = events;
    event.data.ptr = pollable;
    polled_.insert(pollable);
    if (::epoll_ctl(wait_.Epoll(), EPOLL_CTL_ADD, fd, &event) != 0) {
        WarnLimited("epoll cannot watch a connection, which is closed", std::strerror(errno));
        polled_.erase(pollable);
        return false;
    }
    return true;
}

void ControlThread::RemovePoll(int fd, Pollable* pollable)
{
    polled_.erase(pollable);
    ::epoll_ctl(wait_.Epoll(), EPOLL_CTL_DEL, fd, nullptr);
}

bool ControlThread::WatchWorkers() noexcept
{
    epoll_event event{};
    event.events = EPOLLIN | EPOLLONESHOT;
    event.data.ptr = waitingWork_.get();
    return ::epoll_ctl(wait_.Epoll(), EPOLL_CTL_MOD, Core::Get().Workers().Epoll(), &event) == 0;
}

void ControlThread::Run()
{
    Contain([this] { AddPoll(Core::Get().Workers().Epoll(), EPOLLONESHOT, waitingWork_.get()); });
    for (;;) {
        const int wait = due_.empty() && !ends_.empty() ? 0 : TickMilliseconds();
        if (due_.empty()) {
            due_.swap(ends_);
        }
        Turn(wait);
        Contain([this] {
            while (!due_.empty()) {
                TearDown(*due_.front());
            }
        });
        Contain([this] { OnTick(Clock::now()); });
        disowned_.clear();
    }
}

void ControlThread::Turn(int milliseconds)
{
    // With an end to act on, all that is ready is seen: what was said before that end is heard before it.
    size_t looks = due_.empty() ? 1 : polled_.size() / EVENTS_PER_TURN + 1;
    epoll_event events[EVENTS_PER_TURN];
    for (size_t ready = EVENTS_PER_TURN; looks != 0 && ready == EVENTS_PER_TURN; --looks) {
        const int found = ::epoll_wait(wait_.Epoll(), events, static_cast<int>(EVENTS_PER_TURN), milliseconds);
        ready = static_cast<size_t>(std::max(found, 0));
        for (size_t i = 0; i < ready; ++i) {
            auto* const pollable = static_cast<Pollable*>(events[i].data.ptr);
            if (pollable == nullptr) {
                Contain([this] { RunJobs(); });
            } else if (polled_.count(pollable) != 0) {  // not removed by an earlier event
                Contain([&] { pollable->OnReady(events[i].events); });
            }
        }
    }
}

void ControlThread::RunJobs()
{
    wait_.Take();
    for (;;) {
        if (jobsInHand_.empty()) {
            MutexLock lock(mutex_);
            jobsInHand_.swap(jobs_);
        }
        if (jobsInHand_.empty()) {
            return;
        }
        for (; jobsDone_ < jobsInHand_.size(); ++jobsDone_) {
            jobsInHand_[jobsDone_]();
        }
        jobsInHand_.clear();
        jobsDone_ = 0;
    }
}

int ControlThread::TickMilliseconds() const
{
    if (!flushing_.empty()) {
        return 5;
    }
    if (!stalled_.empty() || !connecting_.empty() || !jobsInHand_.empty() || !due_.empty()) {
        return 20;
    }
    if (!pending_.empty() || !watched_.empty() || hasResting_ || !expected_.empty() ||
        Core::Get().Delivery().IsStarved()) {
        return 100;
    }
    return expectsIdleLanes_.load(std::memory_order_relaxed) ? 1000 : -1;
}

void ControlThread::OnTick(Clock::time_point now)
{
    if (!jobsInHand_.empty()) {
        RunJobs();
    }
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
        TryConnect(retry);
    }
    const auto isLate = [now](const PendingConnection* connection) { return connection->GetDeadline() <= now; };
    for (auto late = std::find_if(pending_.begin(), pending_.end(), isLate); late != pending_.end();
         late = std::find_if(pending_.begin(), pending_.end(), isLate)) {
        OnConnectionSettled(*late);
    }
    std::erase_if(watched_, [now](const std::weak_ptr<PeerLane>& entry) {
        const std::shared_ptr<PeerLane> lane = entry.lock();
        return lane == nullptr || !lane->CheckDeadline(now);
    });
    std::erase_if(expected_, [this, now](const Retry& entry) {
        const bool isSettled = entry.session->GetState() != Session::State::CONNECTING;
        if (!isSettled && entry.giveUp <= now) {
            Abandon(entry.session);
        }
        return isSettled || entry.giveUp <= now;
    });
    if (Core::Get().Delivery().IsStarved()) {
        Core::Get().Delivery().Retry();
    }
    if (hasResting_ && restingUntil_ <= now) {
        hasResting_ = false;
        for (Listener* listener : listeners_) {
            if (listener->state != Listener::State::ACCEPTING) {
                ResumeListener(*listener);
            }
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

void ControlThread::ResumeListener(Listener& listener)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = static_cast<Pollable*>(&listener);
    bool isPolled = false;
    try {
        isPolled = listener.state == Listener::State::NEW
                       ? AddPoll(listener.Fd(), EPOLLIN, &listener)
                       : ::epoll_ctl(wait_.Epoll(), EPOLL_CTL_MOD, listener.Fd(), &event) == 0;
    } catch (const std::bad_alloc&) {
        // Tried again in a moment.
    }
    if (isPolled) {
        listener.state = Listener::State::ACCEPTING;
    } else {
        RestListener(listener);
    }
}

void ControlThread::RestListener(Listener& listener) noexcept
{
    if (listener.state == Listener::State::ACCEPTING) {
        epoll_event quiet{};
        quiet.data.ptr = static_cast<Pollable*>(&listener);
        ::epoll_ctl(wait_.Epoll(), EPOLL_CTL_MOD, listener.Fd(), &quiet);
        listener.state = Listener::State::RESTING;
    }
    hasResting_ = true;
    restingUntil_ = Clock::now() + LISTENER_REST;
    WarnLimited("no descriptor or memory left for a new connection",
                "it waits until some are free; raise the limit of open files (ulimit -n)");
}

}  // namespace TAVO::Transport
