// SPDX-License-Identifier: Apache-2.0
// Records go out one-way: a watcher that does not read them fills its connection, its next batch is refused, and what
// comes after MAX_WAITING_BYTES is counted instead of kept. Nothing here waits for a watcher, and no lock is held while
// one is sent to.
#include "watch/watchers.h"

#include <algorithm>
#include <utility>

#include "control/control_codes.h"

namespace TAVO::Veltra {

class Watchers::Recipient final : public IRemoteObject::DeathRecipient {
public:
    Recipient(const sptr<Watchers>& owner, uint64_t client) : owner_(owner), client_(client) {}

    void OnRemoteDied(const wptr<IRemoteObject>&) override
    {
        if (const sptr<Watchers> owner = owner_.promote()) {
            owner->ForgetDead(client_, *this);
        }
    }

private:
    const wptr<Watchers> owner_;
    const uint64_t client_;
};

bool Watchers::Add(uint64_t client, WatchFilter filter, const sptr<IVeltraWatcher>& watcher)
{
    const sptr<Recipient> recipient(new Recipient(sptr<Watchers>(this), client));
    auto added = std::make_shared<Watcher>(Watcher{std::move(filter), watcher, recipient, {}, 0});
    {
        MutexLock lock(mutex_);
        // A process that replaces its own watcher is always admitted.
        if (watchers_.size() >= MAX_WATCHERS && watchers_.count(client) == 0) {
            return false;
        }
        std::swap(watchers_[client], added);  // before the notice that it may cause
        CountWanted();
    }
    const bool isAlive = watcher->AsObject()->AddDeathRecipient(recipient);
    if (!isAlive) {
        ForgetDead(client, *recipient);
    }
    if (added != nullptr) {
        added->object->AsObject()->RemoveDeathRecipient(added->recipient);
    }
    return isAlive;
}

bool Watchers::Remove(uint64_t client)
{
    std::shared_ptr<Watcher> removed;
    {
        MutexLock lock(mutex_);
        const auto known = watchers_.find(client);
        if (known == watchers_.end()) {
            return false;
        }
        removed = std::move(known->second);
        watchers_.erase(known);
        CountWanted();
    }
    removed->object->AsObject()->RemoveDeathRecipient(removed->recipient);
    return true;
}

size_t Watchers::Count() const
{
    MutexLock lock(mutex_);
    return watchers_.size();
}

std::vector<std::shared_ptr<Watchers::Watcher>> Watchers::All() const
{
    MutexLock lock(mutex_);
    std::vector<std::shared_ptr<Watcher>> all;
    for (const auto& [client, watcher] : watchers_) {
        all.push_back(watcher);
    }
    return all;
}

void Watchers::Distribute(const std::vector<WatchRecord>& records, const LostRecords& lost)
{
    const std::vector<std::shared_ptr<Watcher>> all = All();
    for (const auto& [about, count] : lost) {
        WatchRecord record;
        std::tie(record.kind, record.name, record.process) = about;
        for (const std::shared_ptr<Watcher>& watcher : all) {
            watcher->dropped += watcher->filter.Lets(record) ? count : 0;
        }
    }
    for (const WatchRecord& record : records) {
        std::string line;
        for (const std::shared_ptr<Watcher>& watcher : all) {
            if (!watcher->filter.Lets(record)) {
                continue;
            }
            // Encoded once for all watchers, and not at all if no filter lets it pass.
            if (line.empty()) {
                line = record.Line();
            }
            if (watcher->waiting.size() + line.size() <= MAX_WAITING_BYTES) {
                watcher->waiting += line;
            } else {
                ++watcher->dropped;
            }
        }
    }
}

void Watchers::Send()
{
    for (const std::shared_ptr<Watcher>& watcher : All()) {
        SendTo(*watcher);
    }
}

void Watchers::SendTo(Watcher& watcher)
{
    size_t sent = 0;
    while (sent < watcher.waiting.size() || watcher.dropped > 0) {
        const std::string_view rest = std::string_view(watcher.waiting).substr(sent);
        // Whole lines only; the limit is larger than the longest line.
        const size_t end =
            rest.size() <= MAX_WATCH_BATCH_BYTES ? rest.size() : rest.rfind('\n', MAX_WATCH_BATCH_BYTES - 1) + 1;
        // A dead watcher is removed by its death notice; until then its records wait, or are counted.
        if (watcher.object->OnRecords(std::string(rest.substr(0, end)), watcher.dropped) != IPC_OK) {
            break;
        }
        // Reported with this batch.
        watcher.dropped = 0;
        sent += end;
    }
    watcher.waiting.erase(0, sent);
}

void Watchers::ForgetDead(uint64_t client, const Recipient& told)
{
    std::shared_ptr<Watcher> dead;  // its references go without the mutex
    MutexLock lock(mutex_);
    const auto known = watchers_.find(client);
    if (known != watchers_.end() && known->second->recipient.Get() == &told) {
        dead = std::move(known->second);
        watchers_.erase(known);
        CountWanted();
    }
}

void Watchers::CountWanted()
{
    unsigned long wanted = 0;
    for (const auto& [client, watcher] : watchers_) {
        wanted |= watcher->filter.kinds.to_ulong();
    }
    // The one atomic that a request reads without a watcher. A request that reads the old value loses or adds one
    // record.
    wanted_.store(static_cast<uint32_t>(wanted), std::memory_order_relaxed);
}

}  // namespace TAVO::Veltra
