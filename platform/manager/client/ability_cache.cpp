// SPDX-License-Identifier: Apache-2.0
// Remembers which services are running, so that a check costs no round trip. The manager numbers the changes of each
// ability. An answer and a notice travel on different connections and may arrive in either order: the higher number
// counts. An entry exists from the question on, so that a notice that overtakes the answer leaves its number there.
// References are released after the lock, since the last one sends a record.
#include "manager/client/ability_cache.h"

#include <utility>

namespace TAVO::Manager {

sptr<IRemoteObject> AbilityCache::FindLiving(int32_t systemAbilityId)
{
    MutexLock lock(mutex_);
    const auto found = entries_.find(systemAbilityId);
    // IsAlive is one atomic load. "Not running" is never remembered: the next check asks the manager.
    if (found == entries_.end() || found->second.object == nullptr || !found->second.object->IsAlive()) {
        return nullptr;
    }
    return found->second.object;
}

void AbilityCache::BeginQuestion(int32_t systemAbilityId)
{
    MutexLock lock(mutex_);
    // Beyond that the answer is used once and not remembered.
    if (entries_.size() < MAX_IDS) {
        entries_.try_emplace(systemAbilityId);
    }
}

void AbilityCache::KeepAnswer(int32_t systemAbilityId, int64_t number, const sptr<IRemoteObject>& object)
{
    sptr<IRemoteObject> replaced;  // released when the lock is free
    MutexLock lock(mutex_);
    const auto found = entries_.find(systemAbilityId);
    // A notice of a later change was faster than this answer.
    if (found == entries_.end() || number < found->second.number) {
        return;
    }
    found->second.number = number;
    replaced = std::exchange(found->second.object, object);
}

void AbilityCache::Forget(int32_t systemAbilityId, int64_t number)
{
    sptr<IRemoteObject> forgotten;  // released when the lock is free
    MutexLock lock(mutex_);
    const auto found = entries_.find(systemAbilityId);
    // The answer was given after this change, and is right.
    if (found == entries_.end() || number <= found->second.number) {
        return;
    }
    found->second.number = number;
    forgotten = std::exchange(found->second.object, nullptr);
}

const std::u16string& AbilityObserver::Token()
{
    // Deliberate: never destroyed. Notices may still arrive while the process exits.
    static const std::u16string* token = new std::u16string(u"tavo.IAbilityObserver");
    return *token;
}

int AbilityObserver::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option)
{
    if (code != ABILITY_CHANGED) {
        return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
    }
    int32_t systemAbilityId = 0;
    int64_t number = 0;
    if (!data.MatchInterfaceToken(Token()) || !data.ReadInt32(systemAbilityId) || !data.ReadInt64(number)) {
        return IPC_BAD_MESSAGE;
    }
    cache_->Forget(systemAbilityId, number);
    return IPC_OK;
}

}  // namespace TAVO::Manager
