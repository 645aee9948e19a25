// SPDX-License-Identifier: Apache-2.0
// What this process remembers of the manager's answers, and the object through which the manager corrects it.
#ifndef TAVO_MANAGER_ABILITY_CACHE_H
#define TAVO_MANAGER_ABILITY_CACHE_H

#include <cstdint>
#include <map>

#include "tavo/ipc_object_stub.h"
#include "tavo/iremote_object.h"
#include "tavo/mutex.h"

namespace TAVO::Manager {

// Living services by id, for one session with the manager. The manager numbers the changes of each id; an answer that
// is older than a notice since then is not kept. "Not running" is never remembered. Any thread.
class AbilityCache : public virtual RefBase {
public:
    // Ids beyond this many are asked for each time.
    static constexpr size_t MAX_IDS = 4096;

    // The remembered object if it still lives, else null. On the path of every call to a service: no allocation.
    sptr<IRemoteObject> FindLiving(int32_t systemAbilityId);
    // To be called before a question about the id is sent: changes of it are noted from now on.
    void BeginQuestion(int32_t systemAbilityId);
    // The answer to a question: the number of the id's last change and the object, null when not running.
    void KeepAnswer(int32_t systemAbilityId, int64_t number, const sptr<IRemoteObject>& object);
    // The manager has sent a notice of change `number` of the id: an older answer is forgotten.
    void Forget(int32_t systemAbilityId, int64_t number);

private:
    struct Entry {
        int64_t number = 0;          // the highest one received
        sptr<IRemoteObject> object;  // as of that number; null: not known to run
    };

    Mutex mutex_;
    std::map<int32_t, Entry> entries_ TAVO_GUARDED_BY(mutex_);
};

// The object that goes with every question; the manager notifies it of changes, in order, on the delivery thread.
class AbilityObserver : public IPCObjectStub {
public:
    static constexpr uint32_t ABILITY_CHANGED = 1;  // one-way: Int32 id, Int64 change number
    static const std::u16string& Token();

    explicit AbilityObserver(const sptr<AbilityCache>& cache) : IPCObjectStub(Token()), cache_(cache) {}

    int OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;
    bool RunsOnDeliveryThread() const noexcept override { return true; }

private:
    const sptr<AbilityCache> cache_;
};

}  // namespace TAVO::Manager

#endif
