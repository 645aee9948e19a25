// SPDX-License-Identifier: Apache-2.0
// Which client receives what: at most one subscription of each kind for each client process.
#ifndef VELTRA_SERVICE_SUBSCRIPTIONS_H
#define VELTRA_SERVICE_SUBSCRIPTIONS_H

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include <tavo/iremote_object.h>
#include <tavo/mutex.h>

namespace TAVO::Veltra {

enum class Subject : size_t { EVENTS, GPU_COUNTERS };

struct Subscription {
    uint64_t client = 0;  // the session of its process
    sptr<IRemoteObject> object;
    double interval = 0;       // GPU_COUNTERS: seconds of service time between batches
    double due = 0;            // service time of the next push; a past one means now
    uint64_t sent = 0;         // GPU_COUNTERS: samples so far
    pid_t process = 0;         // for what the service looks up about it
    int32_t milliseconds = 0;  // GPU_COUNTERS: the interval that the client requested; a scenario may have its own
    uint64_t earlier = 0;      // GPU_COUNTERS: samples before the scenario that plays
};

// Any thread. Holds nothing of a process that has ended: its death notice removes what it had. Sends nothing itself.
class Subscriptions : public RefBase {
public:
    // Takes the place of the process's earlier one of this subject, which is returned in `replaced`. False, and nothing
    // kept, when the object's process has ended.
    bool Add(Subject subject, const Subscription& subscription, sptr<IRemoteObject>& replaced);
    // What was removed; null when there was none.
    sptr<IRemoteObject> Remove(Subject subject, uint64_t client);

    std::vector<Subscription> All(Subject subject) const;

    // Stores what has changed in the subscription, unless it was removed or replaced meanwhile.
    void Advance(Subject subject, const Subscription& subscription);

private:
    class Recipient;
    struct Entry {
        Subscription subscription;
        sptr<IRemoteObject::DeathRecipient> recipient;
    };
    using Entries = std::map<uint64_t, Entry>;

    Entries& Of(Subject subject) TAVO_REQUIRES(mutex_) { return entries_[static_cast<size_t>(subject)]; }
    void ForgetDead(Subject subject, uint64_t client, const Recipient& told);

    mutable Mutex mutex_;
    std::array<Entries, 2> entries_ TAVO_GUARDED_BY(mutex_);  // by subject, then by client
};

}  // namespace TAVO::Veltra

#endif
