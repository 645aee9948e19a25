// SPDX-License-Identifier: Apache-2.0
// One lock guards all queues. Threads of the platform and of the game put something in and return; the session's thread
// waits in WaitForWork until there is something for it. Every queue has a limit: a full queue of reports refuses, since
// the game can react to that; full queues of events and batches drop their oldest, since the newest state matters.
#include "mailbox.h"

#include <algorithm>
#include <utility>

#include "utils/veltra_log.h"
#include "veltra_result.h"

namespace TAVO::Veltra {
namespace {

constexpr std::chrono::milliseconds LEAST_REFRESH{10};
constexpr size_t MOST_SAMPLES = 524288;

SessionOptions Sane(SessionOptions options)
{
    options.refreshInterval = std::max(options.refreshInterval, LEAST_REFRESH);
    for (size_t* capacity : {&options.eventCapacity, &options.batchCapacity, &options.reportCapacity}) {
        *capacity = std::max<size_t>(*capacity, 1);
    }
    // The handler has a field of its own, which Stop clears; the copy in the options would keep it alive.
    options.handler = nullptr;
    return options;
}

}  // namespace

Mailbox::Mailbox(SessionOptions given)
    : options(Sane(given)), hasHandler(given.handler != nullptr), handler_(std::move(given.handler))
{
}

bool Mailbox::PostReport(Report report)
{
    const MutexLock lock(mutex_);
    // The game learns at once that the report is lost, and may report less often.
    if (news_.isStopping || reports_.size() >= options.reportCapacity) {
        ++status_.reportsRefused;
        return false;
    }
    reports_.push_back(std::move(report));
    workArrived_.notify_one();
    return true;
}

std::optional<SessionEvent> Mailbox::PopEvent()
{
    // Events first: they are few and small, and batches may be many.
    std::deque<SessionEvent>& queue = events_.empty() ? batches_ : events_;
    if (queue.empty()) {
        return std::nullopt;
    }
    SessionEvent event = std::move(queue.front());
    queue.pop_front();
    samples_ -= event.samples.size();
    return event;
}

std::optional<SessionEvent> Mailbox::TakeEvent(SteadyTime deadline)
{
    MutexLock lock(mutex_);
    if (!IsEventWaiting() && deadline != SteadyTime()) {
        lock.WaitUntil(eventsArrived_, deadline,
                       // A Dispatch that waits must not delay the destruction of the session.
                       [this]() TAVO_REQUIRES(mutex_) { return IsEventWaiting() || news_.isStopping; });
    }
    return PopEvent();
}

size_t Mailbox::CountEvents() const
{
    const MutexLock lock(mutex_);
    return events_.size() + batches_.size();
}

SessionStatus Mailbox::Status() const
{
    const MutexLock lock(mutex_);
    return status_;
}

DeviceDetails Mailbox::Details() const
{
    const MutexLock lock(mutex_);
    return details_;
}

void Mailbox::Stop()
{
    const MutexLock lock(mutex_);
    news_.isStopping = true;
    workArrived_.notify_one();
    eventsArrived_.notify_all();
}

bool Mailbox::WaitForEnd(SteadyTime deadline)
{
    MutexLock lock(mutex_);
    // The thread may be in a call to a service that hangs (8 s). After the deadline it is left to end by itself.
    lock.WaitUntil(hasChanged_, deadline, [this]() TAVO_REQUIRES(mutex_) { return hasEnded_; });
    // Without a deadline: code of the game is running, and uses objects that the game destroys after this returns.
    lock.Wait(hasChanged_, [this]() TAVO_REQUIRES(mutex_) { return hasEnded_ || !isInHandler_; });
    const bool hasEnded = hasEnded_;
    isAbandoned_ = !hasEnded;
    // From here on the thread calls no handler, even if it runs on for seconds.
    const SessionHandler ended = std::exchange(handler_, nullptr);
    lock.Unlock();  // what the handler owns is destroyed now
    return hasEnded;
}

void Mailbox::PostEvent(SessionEvent event)
{
    if (news_.isStopping) {
        return;
    }
    if (events_.size() >= options.eventCapacity) {
        // The oldest: an event says what changed, and the newest state matters most.
        events_.pop_front();
        ++status_.eventsDropped;
    }
    event.state = status_.state;
    events_.push_back(std::move(event));
    eventsArrived_.notify_all();
}

void Mailbox::PostGameEvent(const GameCallbackEventInfo& info)
{
    SessionEvent event;
    event.info = info;
    const MutexLock lock(mutex_);
    PostEvent(std::move(event));
    // The device is read at once: the event's record has fewer values than the document.
    news_.isEventReceived = true;
    workArrived_.notify_one();
}

void Mailbox::PostGpuBatch(std::vector<GpuPerfInfo>&& samples)
{
    SessionEvent event;
    event.kind = SessionEvent::Kind::GPU;
    event.samples = std::move(samples);
    const MutexLock lock(mutex_);
    if (news_.isStopping) {
        return;
    }
    while (!batches_.empty() &&
           (batches_.size() >= options.batchCapacity || samples_ + event.samples.size() > MOST_SAMPLES)) {
        // Counted in samples too, because a single batch may have 524,288 of them (44 MiB).
        samples_ -= batches_.front().samples.size();
        batches_.pop_front();
        ++status_.batchesDropped;
    }
    const size_t count = event.samples.size();
    event.state = status_.state;
    batches_.push_back(std::move(event));
    samples_ += count;
    eventsArrived_.notify_all();
    workArrived_.notify_one();
}

void Mailbox::PostDeath(uint64_t connection)
{
    const MutexLock lock(mutex_);
    if (connection == connection_) {  // else of a connection that was given up before
        news_.isServiceDead = true;
        workArrived_.notify_one();
    }
}

void Mailbox::PostLoadAnswer(const sptr<IRemoteObject>& loaded)
{
    const MutexLock lock(mutex_);
    news_.isLoadAnswered = true;
    news_.loaded = loaded;
    workArrived_.notify_one();
}

Work Mailbox::WaitForWork(bool canSend, SteadyTime due)
{
    MutexLock lock(mutex_);
    lock.WaitUntil(workArrived_, due, [this, canSend]() TAVO_REQUIRES(mutex_) {
        // Reports do not wake the thread while there is no service: it could do nothing with them.
        return news_.isStopping || news_.isServiceDead || news_.isLoadAnswered || news_.isEventReceived ||
               (canSend && !reports_.empty()) || (hasHandler && IsEventWaiting());
    });
    Work work = std::exchange(news_, Work());
    // The only news that stays.
    news_.isStopping = work.isStopping;
    if (canSend && !work.isServiceDead && !reports_.empty()) {
        // One for each turn, so that between two reports a death, an event or the end is noticed. A report that was
        // taken is not sent twice, whatever becomes of it.
        work.report = std::move(reports_.front());
        reports_.pop_front();
    }
    return work;
}

void Mailbox::NoteReport(int32_t result)
{
    const MutexLock lock(mutex_);
    ++status_.reportsSent;
    status_.reportsFailed += result != RESULT_OK ? 1 : 0;
}

void Mailbox::SetState(ServiceState state, int32_t result)
{
    const MutexLock lock(mutex_);
    status_.result = result;
    // One event for each change, not for each failed attempt.
    if (std::exchange(status_.state, state) != state) {
        SessionEvent event;
        event.kind = SessionEvent::Kind::SERVICE;
        PostEvent(std::move(event));
    }
}

void Mailbox::SetSubscriptions(int32_t eventsResult, int32_t gpuResult)
{
    const MutexLock lock(mutex_);
    status_.eventsResult = eventsResult;
    status_.gpuResult = gpuResult;
}

uint64_t Mailbox::BeginConnection()
{
    const MutexLock lock(mutex_);
    // A notice of the connection before: the number below makes later ones recognisable.
    news_.isServiceDead = false;
    return ++connection_;
}

void Mailbox::NoteConnection()
{
    const MutexLock lock(mutex_);
    ++status_.connections;
}

void Mailbox::SetDetails(DeviceDetails details)
{
    const MutexLock lock(mutex_);
    details_ = std::move(details);
}

void Mailbox::Deliver()
{
    MutexLock lock(mutex_);
    // As many as wait now: a handler that is slower than the events come must not stop readings and reports.
    for (size_t left = events_.size() + batches_.size(); left > 0 && handler_ && IsEventWaiting() && !news_.isStopping;
         --left) {
        // Without the lock during the handler, which may call the session.
        const std::optional<SessionEvent> event = PopEvent();
        const SessionHandler* const handler = &handler_;  // stays while isInHandler_ is set
        isInHandler_ = true;
        lock.Unlock();
        try {
            (*handler)(*event);
        } catch (...) {
            VELTRA_LOGW("a session's handler threw an exception");
        }
        lock.Lock();
        isInHandler_ = false;
        hasChanged_.notify_all();
    }
}

bool Mailbox::IsStopping() const
{
    const MutexLock lock(mutex_);
    return news_.isStopping;
}

bool Mailbox::IsAbandoned() const
{
    const MutexLock lock(mutex_);
    return isAbandoned_;
}

void Mailbox::NoteEnd()
{
    const MutexLock lock(mutex_);
    hasEnded_ = true;
    hasChanged_.notify_all();
}

}  // namespace TAVO::Veltra
