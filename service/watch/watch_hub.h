// SPDX-License-Identifier: Apache-2.0
// Collects what happens in the service for its watchers.
#ifndef VELTRA_SERVICE_WATCH_HUB_H
#define VELTRA_SERVICE_WATCH_HUB_H

#include <json/value.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <tavo/mutex.h>

#include "watch/watch_record.h"
#include "watch/watchers.h"

namespace TAVO::Veltra {

enum class PushKind : size_t { GAME_EVENT, GPU, APP_PRIORITIES, RESOURCE_INFOS };
const char* NameOf(PushKind kind);

// Any thread. A record that a request thread adds is queued, nothing more; one thread of the hub makes lines of records
// and sends them, 20 times a second. Beyond MAX_QUEUED records, or MAX_QUEUED_BYTES, the newest are dropped and counted;
// so are those of a game that causes more than STEADY records each time for longer, since lines take processor time.
class WatchHub {
public:
    static constexpr size_t MAX_QUEUED = 4096;
    static constexpr size_t STEADY = 1024;
    static constexpr size_t MAX_QUEUED_BYTES = size_t{16} << 20;  // of their values

    // What the hub looks at once a second while there is a watcher: values of the device, processes that are games.
    struct Looks {
        std::function<std::map<std::string, int64_t>()> device;
        std::function<std::vector<pid_t>()> games;
    };
    explicit WatchHub(Looks looks) : looks_(std::move(looks)) {}
    ~WatchHub();
    WatchHub(const WatchHub&) = delete;
    WatchHub& operator=(const WatchHub&) = delete;

    bool Wants(WatchRecord::Kind kind) const { return watchers_->Want(kind); }
    // Whether there is room for a record. False: it need not get its values, only be counted.
    bool HasRoom() const { return !isFull_.load(std::memory_order_relaxed); }
    void CountLost(const WatchRecord& record) noexcept;
    // Sets the time of the record.
    void Add(WatchRecord record);
    void CountPush(PushKind kind, bool isDone, uint32_t replaced);

    // False when there are too many watchers, the client has ended, or there is no thread.
    bool AddWatcher(uint64_t client, WatchFilter filter, const sptr<IVeltraWatcher>& watcher);
    bool RemoveWatcher(uint64_t client) { return watchers_->Remove(client); }

    size_t Count() const { return watchers_->Count(); }
    Json::Value DescribePushes() const;

private:
    static constexpr size_t PUSH_KINDS = 4;
    struct PushCount {
        std::atomic<uint64_t> sent{0};
        std::atomic<uint64_t> failed{0};
        std::atomic<uint64_t> dropped{0};  // replaced by a newer one
    };

    void Lose(const WatchRecord& record) TAVO_REQUIRES(mutex_);
    void Run();
    void Look();
    void LookAtDevice(WatchRecord::Clock::time_point now);
    void LookAtGames();

    const Looks looks_;
    const sptr<Watchers> watchers_{new Watchers()};
    std::array<PushCount, PUSH_KINDS> pushes_;

    mutable Mutex mutex_;
    std::condition_variable news_;  // a watcher has come, or the end
    std::vector<WatchRecord> queue_ TAVO_GUARDED_BY(mutex_);
    size_t queuedBytes_ TAVO_GUARDED_BY(mutex_) = 0;
    size_t room_ TAVO_GUARDED_BY(mutex_) = MAX_QUEUED;  // records that may still be queued
    std::atomic<bool> isFull_{false};                   // no room is left
    LostRecords lost_ TAVO_GUARDED_BY(mutex_);          // since the queue was taken last
    int64_t lastTime_ TAVO_GUARDED_BY(mutex_) = 0;
    bool hasNewWatcher_ TAVO_GUARDED_BY(mutex_) = false;
    bool isStopping_ TAVO_GUARDED_BY(mutex_) = false;
    std::thread thread_ TAVO_GUARDED_BY(mutex_);

    // Of the hub's thread.
    std::map<std::string, int64_t> device_;
    std::vector<pid_t> games_;
    WatchRecord::Clock::time_point deviceSentAt_;
};

}  // namespace TAVO::Veltra

#endif
