// SPDX-License-Identifier: Apache-2.0
// The thread of the hub starts with the first watcher and sleeps while there is none. Else it wakes up at each
// interval, takes all records at once, makes lines of them and sends these. Each time it makes room for STEADY more
// records: a burst may fill the queue, but a game that calls without a pause cannot keep this thread busy. Once a second
// it looks at what causes no record by itself: values of the device that have changed, games that have come or
// ended.
#include "watch/watch_hub.h"

#include <pthread.h>

#include <algorithm>
#include <iterator>
#include <system_error>
#include <utility>

#include "base/device_fields.h"
#include "base/service_log.h"

namespace TAVO::Veltra {

namespace {

using Clock = WatchRecord::Clock;

constexpr std::chrono::milliseconds INTERVAL{50};
constexpr std::chrono::seconds LOOK_INTERVAL{1};
constexpr std::chrono::seconds DEVICE_REPEAT{10};
constexpr const char* PUSH_NAMES[] = {"gameEvent", "gpu", "appPriorities", "resourceInfos"};

int64_t MicrosecondsNow()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

}  // namespace

const char* NameOf(PushKind kind)
{
    return PUSH_NAMES[static_cast<size_t>(kind)];
}

WatchHub::~WatchHub()
{
    std::thread thread;
    {
        MutexLock lock(mutex_);
        isStopping_ = true;
        thread.swap(thread_);
    }
    news_.notify_all();
    if (thread.joinable()) {
        thread.join();
    }
}

// Called in the request of a game, so the record is only moved here: the thread of the hub makes lines of records.
void WatchHub::Add(WatchRecord record)
{
    MutexLock lock(mutex_);
    const size_t sizeBytes = record.values.SizeBytes() + record.reply.SizeBytes();
    // Loss is counted and reported to watchers; a game never waits for a tool.
    if (room_ == 0 || queuedBytes_ + sizeBytes > MAX_QUEUED_BYTES) {
        Lose(record);
        return;
    }
    isFull_.store(--room_ == 0, std::memory_order_relaxed);
    queuedBytes_ += sizeBytes;
    lastTime_ = std::max(lastTime_, MicrosecondsNow());  // in order, also when the clock is set back
    record.microseconds = lastTime_;
    queue_.push_back(std::move(record));
}

void WatchHub::CountLost(const WatchRecord& record) noexcept
{
    try {
        MutexLock lock(mutex_);
        Lose(record);
    } catch (...) {  // memory; the request is served
    }
}

void WatchHub::Lose(const WatchRecord& record)
{
    ++lost_[{record.kind, record.name, record.process}];
}

void WatchHub::CountPush(PushKind kind, bool isDone, uint32_t replaced)
{
    PushCount& count = pushes_[static_cast<size_t>(kind)];
    // Counted without a watcher too: these are few, unlike calls.
    (isDone ? count.sent : count.failed).fetch_add(1, std::memory_order_relaxed);
    count.dropped.fetch_add(replaced, std::memory_order_relaxed);
}

bool WatchHub::AddWatcher(uint64_t client, WatchFilter filter, const sptr<IVeltraWatcher>& watcher)
{
    {
        MutexLock lock(mutex_);
        try {
            if (!thread_.joinable()) {
                thread_ = std::thread([this] { Run(); });
            }
        } catch (const std::system_error&) {
            return false;
        }
    }
    // Without the mutex: it adds a death recipient.
    const bool isAdded = watchers_->Add(client, std::move(filter), watcher);
    MutexLock lock(mutex_);  // so that the thread is not between its look at the watchers and its sleep
    hasNewWatcher_ = true;
    news_.notify_all();
    return isAdded;
}

Json::Value WatchHub::DescribePushes() const
{
    Json::Value shown;
    for (size_t i = 0; i < PUSH_KINDS; ++i) {
        Json::Value& item = shown[PUSH_NAMES[i]];
        item["sent"] = Json::UInt64{pushes_[i].sent.load(std::memory_order_relaxed)};
        item["failed"] = Json::UInt64{pushes_[i].failed.load(std::memory_order_relaxed)};
        item["dropped"] = Json::UInt64{pushes_[i].dropped.load(std::memory_order_relaxed)};
    }
    return shown;
}

void WatchHub::Run()
{
    pthread_setname_np(pthread_self(), "veltra-watch");
    Clock::time_point look = Clock::now();
    for (;;) {
        std::vector<WatchRecord> records;
        LostRecords lost;
        {
            MutexLock lock(mutex_);
            if (watchers_->Count() == 0) {
                games_.clear();  // the next watcher gets all of them
                lock.Wait(news_, [this]() TAVO_REQUIRES(mutex_) { return isStopping_ || watchers_->Count() > 0; });
            }
            lock.WaitUntil(news_, Clock::now() + INTERVAL, [this]() TAVO_REQUIRES(mutex_) { return isStopping_; });
            if (isStopping_) {
                return;
            }
            // All at once, so that requests of games wait for the mutex as shortly as possible.
            records.swap(queue_);
            queuedBytes_ = 0;
            // Room for as many as last time, so that the vector rarely grows under the mutex, in a request.
            queue_.reserve(records.size());
            room_ = std::min(room_ + STEADY, MAX_QUEUED);
            isFull_.store(false, std::memory_order_relaxed);
            lost.swap(lost_);
            if (std::exchange(hasNewWatcher_, false)) {
                device_.clear();  // so that it gets all values, though none has changed
            }
        }
        try {
            watchers_->Distribute(records, lost);
            watchers_->Send();
            if (Clock::now() >= look) {
                look = Clock::now() + LOOK_INTERVAL;
                Look();
            }
        } catch (const std::exception& error) {  // memory
            VELTRA_SERVICE_LOGI("records are lost: %s", error.what());
        }
    }
}

void WatchHub::Look()
{
    if (watchers_->Want(WatchRecord::Kind::DEVICE)) {
        LookAtDevice(Clock::now());
    }
    LookAtGames();
}

void WatchHub::LookAtDevice(Clock::time_point now)
{
    std::map<std::string, int64_t> values = looks_.device();
    // Repeated without a change, so that a recording shows that the service was alive.
    if (values == device_ && now < deviceSentAt_ + DEVICE_REPEAT) {
        return;
    }
    device_ = std::move(values);
    deviceSentAt_ = now;
    WatchRecord record;
    record.kind = WatchRecord::Kind::DEVICE;
    for (const auto& [key, value] : device_) {
        record.values.Number(FindDeviceField(key)->key, value);
    }
    Add(std::move(record));
}

void WatchHub::LookAtGames()
{
    std::vector<pid_t> games = looks_.games();
    std::sort(games.begin(), games.end());
    const auto report = [this](const std::vector<pid_t>& some, const std::vector<pid_t>& others, const char* event) {
        std::vector<pid_t> difference;
        std::set_difference(some.begin(), some.end(), others.begin(), others.end(), std::back_inserter(difference));
        for (const pid_t process : difference) {
            WatchRecord record;
            record.kind = WatchRecord::Kind::GAME;
            record.process = process;
            record.name = event;
            Add(std::move(record));
        }
    };
    // Both lists are sorted, as set_difference requires.
    report(games, games_, "connected");
    report(games_, games, "ended");
    games_ = std::move(games);
}

}  // namespace TAVO::Veltra
