// SPDX-License-Identifier: Apache-2.0
// A push goes into the line of its callback object, the line into the ready list, and a worker takes the oldest line
// that its client's limits allow. A worker sends without the mutex and blocks there, for at most the timeout of the
// request. A timeout makes the client silent: its queued deliveries are dropped, and new ones too, until it calls
// again. From then on it is slow, until a delivery ends without a timeout. A line whose delivery runs is never in the
// ready list, which keeps one delivery per object in flight and their order intact.
#include "push/delivery_pool.h"

#include <pthread.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "base/service_log.h"

namespace TAVO::Veltra {

DeliveryPool::~DeliveryPool()
{
    std::vector<std::thread> threads;
    {
        MutexLock lock(mutex_);
        isStopping_ = true;
        // Joined without the mutex, which the ending threads need. A delivery that runs ends within its timeout.
        threads.swap(threads_);
    }
    changed_.notify_all();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

void DeliveryPool::PushLatest(uint64_t client, const sptr<IRemoteObject>& object, Delivery delivery, bool isReplaceable)
{
    // A delivery holds references to objects of the client; the last one sends a record, under locks of the transport.
    Delivery older;  // destroyed without the mutex
    MutexLock lock(mutex_);
    Line* line = OpenLine(client, object);
    if (line == nullptr) {
        return;
    }
    // One may be running: it is not in the queue any more and is never replaced.
    if (line->waiting.empty() || (!line->waiting.back().isReplaceable && line->waiting.size() < MAX_WAITING_EVENTS)) {
        Enqueue(object, *line, {std::move(delivery), isReplaceable});
        return;
    }
    // In place: the line keeps its turn in the ready list.
    Waiting& last = line->waiting.back();
    older = std::exchange(last.send, std::move(delivery));
    last.isReplaceable = isReplaceable;
    ++last.replaced;
    ++counts_.replaced;
}

bool DeliveryPool::PushAnswer(uint64_t client, const sptr<IRemoteObject>& object, Delivery delivery)
{
    MutexLock lock(mutex_);
    const auto known = clients_.find(client);
    // Answers are never replaced, so their number must be limited. The caller refuses the query.
    if (known != clients_.end() && known->second.answers >= MAX_WAITING_ANSWERS) {
        return false;
    }
    Line* line = OpenLine(client, object);
    if (line != nullptr) {
        line->holdsAnswers = true;
        ++clients_[line->client].answers;
        Enqueue(object, *line, {std::move(delivery)});
    }
    // Also for a silent client, whose answer is dropped: it has called just now, so it is silent only if it was marked
    // in this moment.
    return true;
}

void DeliveryPool::Drop(const sptr<IRemoteObject>& object)
{
    MutexLock lock(mutex_);
    const auto line = lines_.find(object);
    if (line != lines_.end()) {
        ForgetWaiting(line->second, object);
        CloseIfIdle(object);
    }
}

DeliveryPool::Counts DeliveryPool::Count() const
{
    MutexLock lock(mutex_);
    return counts_;
}

bool DeliveryPool::IsIdle() const
{
    MutexLock lock(mutex_);
    return lines_.empty();
}

// The line of the object, a new one if need be; null, and the delivery counted as dropped, for a silent client.
DeliveryPool::Line* DeliveryPool::OpenLine(uint64_t client, const sptr<IRemoteObject>& object)
{
    const auto known = clients_.find(client);
    if (known != clients_.end() && known->second.isSilent) {
        ++counts_.dropped;
        return nullptr;
    }
    const auto [line, isNew] = lines_.try_emplace(object);
    if (isNew) {
        line->second.client = client;
        ++clients_[client].lines;
    }
    return &line->second;
}

void DeliveryPool::Enqueue(const sptr<IRemoteObject>& object, Line& line, Waiting delivery)
{
    line.waiting.push_back(std::move(delivery));
    // Otherwise the line is in the ready list already, or returns to it when its delivery ends.
    if (line.waiting.size() == 1 && !line.isRunning) {
        ready_.push_back(object);
        StartThreadIfNeeded();
        changed_.notify_one();
    }
}

void DeliveryPool::ForgetWaiting(Line& line, const sptr<IRemoteObject>& object)
{
    if (!line.waiting.empty() && !line.isRunning) {
        ready_.erase(std::find(ready_.begin(), ready_.end(), object));
    }
    if (line.holdsAnswers) {
        // A line holds either answers or replaceable pushes: the callback objects of the two are of different
        // interfaces.
        clients_[line.client].answers -= line.waiting.size();
    }
    line.waiting.clear();
}

void DeliveryPool::CloseIfIdle(const sptr<IRemoteObject>& object)
{
    const auto line = lines_.find(object);
    if (line != lines_.end() && !line->second.isRunning && line->second.waiting.empty()) {
        const uint64_t client = line->second.client;
        lines_.erase(line);
        --clients_[client].lines;
        CloseIfUnused(client);
    }
}

void DeliveryPool::CloseIfUnused(uint64_t client)
{
    const auto known = clients_.find(client);
    // A slow client is remembered without lines, since its next push must count as slow.
    if (known->second.lines == 0 && !known->second.isSlow) {
        clients_.erase(known);
    }
}

void DeliveryPool::StartThreadIfNeeded()
{
    // A waiting thread for each ready line is enough. Threads are kept: pushes come in bursts.
    if (ready_.size() <= idle_ || threads_.size() >= MAX_THREADS) {
        return;
    }
    try {
        threads_.emplace_back([this] { Work(); });
    } catch (const std::system_error&) {  // what is queued waits for a thread that is there, or for the next push
        VELTRA_SERVICE_LOGI("no thread for a delivery, %zu are there", threads_.size());
    }
}

// Slow clients get one thread each, and few together; no client gets many.
std::deque<sptr<IRemoteObject>>::iterator DeliveryPool::NextEligible()
{
    // The oldest that may run; lines of clients at their limit are passed over, not waited for.
    return std::find_if(ready_.begin(), ready_.end(), [this](const auto& object) TAVO_REQUIRES(mutex_) {
        const Client& client = clients_[lines_[object].client];
        return client.isSlow ? client.running == 0 && runningSlow_ < MAX_RUNNING_SLOW
                             : client.running < MAX_RUNNING_PER_CLIENT;
    });
}

void DeliveryPool::Work()
{
    pthread_setname_np(pthread_self(), "veltra-push");
    MutexLock lock(mutex_);
    for (;;) {
        ++idle_;
        lock.Wait(changed_, [this]() TAVO_REQUIRES(mutex_) { return isStopping_ || NextEligible() != ready_.end(); });
        --idle_;
        if (isStopping_) {
            return;
        }
        const auto next = NextEligible();
        const sptr<IRemoteObject> object = *next;
        ready_.erase(next);
        Line& line = lines_[object];
        Begin(line);
        Waiting delivery = std::move(line.waiting.front());
        line.waiting.pop_front();
        // The send may block for 8 s.
        lock.Unlock();
        int32_t status = IPC_EXCEPTION;
        try {
            status = delivery.send(delivery.replaced);
        } catch (...) {  // memory; the delivery is lost
        }
        // Destroyed without the mutex as well.
        delivery.send = nullptr;
        lock.Lock();
        Finish(object, status);
    }
}

void DeliveryPool::Begin(Line& line)
{
    Client& client = clients_[line.client];
    ++client.running;
    // A running delivery does not count as waiting.
    client.answers -= line.holdsAnswers ? 1 : 0;
    line.isRunning = true;
    // Noted, since the client may become slow or recover while it runs; the count is lowered by what was added.
    line.runsAsSlow = client.isSlow;
    runningSlow_ += line.runsAsSlow ? 1 : 0;
}

void DeliveryPool::Finish(const sptr<IRemoteObject>& object, int32_t status)
{
    Line& line = lines_[object];
    const uint64_t id = line.client;
    Client& client = clients_[id];
    runningSlow_ -= line.runsAsSlow ? 1 : 0;
    line.isRunning = false;
    --client.running;
    if (!line.waiting.empty()) {
        ready_.push_back(object);
    }
    if (status == IPC_TIMED_OUT) {
        Silence(client, object, id);
        // A success of another delivery that ran at the same time does not end the silence: only a call does.
    } else if (!client.isSilent) {
        client.isSlow = false;
        client.blocked = nullptr;
    }
    CloseIfIdle(object);
    if (!ready_.empty()) {
        // More than one line may have become eligible: this one, and others of the same client.
        changed_.notify_all();
    }
}

void DeliveryPool::Silence(Client& client, const sptr<IRemoteObject>& object, uint64_t id)
{
    ++counts_.timedOut;
    // Several deliveries of the same client may time out one after the other.
    silent_ += client.isSilent ? 0 : 1;
    client.isSilent = true;
    client.isSlow = true;
    client.blocked = object;
    VELTRA_SERVICE_LOGI("a push timed out: connection %llu gets no more until it calls (time-outs %llu, replaced %llu)",
                        static_cast<unsigned long long>(id), static_cast<unsigned long long>(counts_.timedOut),
                        static_cast<unsigned long long>(counts_.replaced));
    for (auto& [other, line] : lines_) {
        if (line.client == id) {
            counts_.dropped += line.waiting.size();
            ForgetWaiting(line, other);
        }
    }
    for (auto line = lines_.begin(); line != lines_.end();) {
        // Advanced first, because CloseIfIdle erases the entry.
        const sptr<IRemoteObject> other = (line++)->first;
        CloseIfIdle(other);
    }
    ForgetEnded();
}

// Processes that ended while they were slow: nothing else tells their end. Called where silence begins, so that there
// are hardly more of them than living ones, and where it may end, so that the others do not wait long for one that
// never calls.
void DeliveryPool::ForgetEnded()
{
    for (auto known = clients_.begin(); known != clients_.end();) {
        const bool isGone = known->second.lines == 0 && known->second.isSlow && !known->second.blocked->IsAlive();
        silent_ -= isGone && known->second.isSilent ? 1 : 0;
        known = isGone ? clients_.erase(known) : std::next(known);
    }
}

void DeliveryPool::EndSilence(uint64_t client)
{
    MutexLock lock(mutex_);
    const auto known = clients_.find(client);
    if (known != clients_.end() && known->second.isSilent) {
        known->second.isSilent = false;
        --silent_;
    }
    ForgetEnded();
}

}  // namespace TAVO::Veltra
