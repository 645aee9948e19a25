// SPDX-License-Identifier: Apache-2.0
// One round: wait for events and handle them, act on the ends that were noticed in an earlier round, give each part its
// turn. An end is delayed like this so that everything is read first which was there when the end was noticed: what a
// peer sent before its death counts. Where memory runs out, the step at hand is given up or repeated, and the loop goes
// on. What was lost then ends the session that it belongs to, where it is noticed.
#include "transport/event_loop.h"

#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "base/warn_limited.h"
#include "os/threads.h"

namespace TAVO::Transport {
namespace {

constexpr size_t EVENTS_PER_TURN = 64;
constexpr int RETRY_MILLISECONDS = 20;

template <typename Step>
void Contain(const Step& step)
{
    try {
        step();
    } catch (const std::bad_alloc&) {
        WarnLimited("out of memory", "a connection may have been closed");
    }
}

epoll_event EventsOf(uint32_t events, Pollable* pollable)
{
    epoll_event event{};
    event.events = events;
    event.data.ptr = pollable;
    return event;
}

}  // namespace

bool EventLoop::Open()
{
    MutexLock lock(mutex_);
    return OpenLocked();
}

bool EventLoop::OpenLocked()
{
    // The others' too, before there is any connection: a request or a death must not find that no descriptor is left.
    return wait_.Open() && openOthers_();
}

bool EventLoop::Start()
{
    // At the first job, not before: a process that only links the library has no thread.
    isRunning_ = isRunning_ || (OpenLocked() && StartThread(ThreadRole::CONTROL, "tavo-control", [this] { Run(); }));
    return isRunning_;
}

bool EventLoop::Post(std::function<void()> job) noexcept
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
    // After the lock, so that the woken thread does not have to wait for it.
    wait_.Signal();
    return true;
}

bool EventLoop::AddPoll(int fd, uint32_t events, Pollable* pollable)
{
    epoll_event event = EventsOf(events, pollable);
    // First, since it may throw. An event of this pollable can only be handled by this thread, after this function.
    polled_.insert(pollable);
    if (::epoll_ctl(wait_.Epoll(), EPOLL_CTL_ADD, fd, &event) != 0) {
        WarnLimited("epoll cannot watch a connection, which is closed", std::strerror(errno));
        polled_.erase(pollable);
        return false;
    }
    return true;
}

bool EventLoop::ModifyPoll(int fd, uint32_t events, Pollable* pollable) noexcept
{
    epoll_event event = EventsOf(events, pollable);
    return ::epoll_ctl(wait_.Epoll(), EPOLL_CTL_MOD, fd, &event) == 0;
}

void EventLoop::RemovePoll(int fd, Pollable* pollable) noexcept
{
    polled_.erase(pollable);
    ReleaseFd(fd);
}

void EventLoop::ReleaseFd(int fd) noexcept
{
    if (fd >= 0) {
        ::epoll_ctl(wait_.Epoll(), EPOLL_CTL_DEL, fd, nullptr);
    }
}

void EventLoop::Own(std::unique_ptr<Pollable>&& pollable)
{
    // Room for all of them to end at one time: noticing that allocates nothing. First, so that a failure owns nothing.
    const size_t count = owned_.size() + 1;
    for (auto* const list : {&ends_, &due_}) {
        if (list->capacity() < count) {
            list->reserve(2 * count);
        }
    }
    if (disowned_.capacity() < count) {
        disowned_.reserve(2 * count);
    }
    // Two steps: if the map has no memory for the node, the caller still owns the object.
    std::unique_ptr<Pollable>& place = owned_[pollable.get()];
    place = std::move(pollable);
}

void EventLoop::Disown(Pollable* pollable)
{
    if (const auto found = owned_.find(pollable); found != owned_.end()) {
        // Destroyed at the end of the round: the object may be the one whose OnReady is running, or have an event in
        // the array of this round.
        disowned_.push_back(std::move(found->second));
        owned_.erase(found);
    }
}

void EventLoop::EndLater(Pollable* pollable) noexcept
{
    const auto isIn = [pollable](const auto& list) {
        return std::find(list.begin(), list.end(), pollable) != list.end();
    };
    if (!isIn(ends_) && !isIn(due_)) {
        ends_.push_back(pollable);
    }
}

void EventLoop::CancelEnd(Pollable* pollable) noexcept
{
    std::erase(ends_, pollable);
    std::erase(due_, pollable);
}

void EventLoop::Run()
{
    for (LoopPart* part : parts_) {
        Contain([part] { part->OnStart(); });
    }
    for (;;) {
        const int wait = due_.empty() && !ends_.empty() ? 0 : TickMilliseconds();
        // Ends noticed in this round become due in the next one, after a further look at all connections (Turn).
        if (due_.empty()) {
            due_.swap(ends_);
        }
        Turn(wait);
        Contain([this] {
            while (!due_.empty()) {
                Pollable* const ending = due_.front();
                ending->OnEnd();
                std::erase(due_, ending);
            }
        });
        if (!jobsInHand_.empty()) {
            Contain([this] { RunJobs(); });
        }
        for (LoopPart* part : parts_) {
            Contain([part] { part->OnTick(Clock::now()); });
        }
        disowned_.clear();
    }
}

void EventLoop::Turn(int milliseconds)
{
    // With an end to act on, every event that is ready is handled: what was sent before that end is received before it.
    size_t looks = due_.empty() ? 1 : polled_.size() / EVENTS_PER_TURN + 1;
    epoll_event events[EVENTS_PER_TURN];
    // The number of looks is limited: peers that send without a pause must not put off the end.
    for (size_t ready = EVENTS_PER_TURN; looks != 0 && ready == EVENTS_PER_TURN; --looks) {
        const int found = ::epoll_wait(wait_.Epoll(), events, static_cast<int>(EVENTS_PER_TURN), milliseconds);
        ready = static_cast<size_t>(std::max(found, 0));
        for (size_t i = 0; i < ready; ++i) {
            auto* const pollable = static_cast<Pollable*>(events[i].data.ptr);
            if (pollable == nullptr) {
                Contain([this] { RunJobs(); });
            } else if (IsPolled(pollable)) {
                // Not removed by an earlier event of this round; a removed one is only compared, since it may be
                // destroyed at the end of the round.
                Contain([&] { pollable->OnReady(events[i].events); });
            }
        }
    }
}

void EventLoop::RunJobs()
{
    for (;;) {
        if (jobsInHand_.empty()) {
            MutexLock lock(mutex_);
            jobsInHand_.swap(jobs_);
        }
        if (jobsInHand_.empty()) {
            return;
        }
        // A job that throws bad_alloc stays in the list with its index, and is run again after RETRY_MILLISECONDS: jobs
        // are never lost, and keep their order.
        for (; jobsDone_ < jobsInHand_.size(); ++jobsDone_) {
            jobsInHand_[jobsDone_]();
        }
        jobsInHand_.clear();
        jobsDone_ = 0;
    }
}

int EventLoop::TickMilliseconds() const
{
    int shortest = jobsInHand_.empty() && due_.empty() ? -1 : RETRY_MILLISECONDS;
    for (const LoopPart* part : parts_) {
        const int tick = part->TickMilliseconds();
        if (tick >= 0 && (shortest < 0 || tick < shortest)) {
            shortest = tick;
        }
    }
    return shortest;
}

}  // namespace TAVO::Transport
