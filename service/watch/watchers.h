// SPDX-License-Identifier: Apache-2.0
// The processes that watch the service: their filters, records queued for each, how many it has lost.
#ifndef VELTRA_SERVICE_WATCHERS_H
#define VELTRA_SERVICE_WATCHERS_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include <tavo/mutex.h>

#include "control/iveltra_watcher.h"
#include "watch/watch_filter.h"
#include "watch/watch_record.h"

namespace TAVO::Veltra {

// How many records were lost before they reached a filter, by all that a filter looks at: kind, name, process.
using LostRecords = std::map<std::tuple<WatchRecord::Kind, const char*, pid_t>, uint64_t>;

// Add, Remove and the counts: any thread. The others: one thread, that of the hub. Holds nothing of a process that has
// ended: its death notice removes its watcher.
class Watchers : public RefBase {
public:
    static constexpr size_t MAX_WATCHERS = 16;
    static constexpr size_t MAX_WAITING_BYTES = size_t{256} << 10;  // of one watcher; records beyond it are dropped

    // In place of the client's earlier one. False when there are MAX_WATCHERS, or the client has ended.
    bool Add(uint64_t client, WatchFilter filter, const sptr<IVeltraWatcher>& watcher);
    bool Remove(uint64_t client);  // false: there was none
    size_t Count() const;
    // One relaxed load.
    bool Want(WatchRecord::Kind kind) const
    {
        return (wanted_.load(std::memory_order_relaxed) & 1U << static_cast<size_t>(kind)) != 0;
    }

    // Queues the records for each watcher whose filter lets them pass, and counts the lost ones that it would let pass.
    void Distribute(const std::vector<WatchRecord>& records, const LostRecords& lost);
    // Sends queued records until a watcher's connection is full.
    void Send();

private:
    class Recipient;
    struct Watcher {
        const WatchFilter filter;
        const sptr<IVeltraWatcher> object;
        sptr<IRemoteObject::DeathRecipient> recipient;
        std::string waiting;   // whole lines; this and the next: the hub's thread only
        uint64_t dropped = 0;  // since the last batch that was sent
    };
    using Table = std::map<uint64_t, std::shared_ptr<Watcher>>;

    std::vector<std::shared_ptr<Watcher>> All() const;
    void ForgetDead(uint64_t client, const Recipient& told);
    void CountWanted() TAVO_REQUIRES(mutex_);
    static void SendTo(Watcher& watcher);

    mutable Mutex mutex_;
    Table watchers_ TAVO_GUARDED_BY(mutex_);  // by session
    std::atomic<uint32_t> wanted_{0};         // a bit for each kind; changed under the mutex
};

}  // namespace TAVO::Veltra

#endif
