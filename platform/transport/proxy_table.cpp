// SPDX-License-Identifier: Apache-2.0
// A proxy is in the table without a reference of the table's own. While its last reference is being released on another
// thread, it is still found, but no longer given out: a new proxy takes its place, and Forget leaves that one alone.
// Each message that names an object adds a count to its proxy. All counts are returned together by Forget.
#include "transport/proxy_table.h"

#include <utility>

#include "transport/session_host.h"

namespace TAVO::Transport {

sptr<PeerObject> ProxyTable::Find(uint64_t serial)
{
    const auto found = proxies_.find(serial);
    // The entry is a raw pointer. It is valid under the lock, since Forget removes it under the lock before the object
    // is destroyed. TryIncStrongRef fails if the count has already reached 0.
    if (found == proxies_.end() || !found->second->TryIncStrongRef()) {
        return nullptr;
    }
    sptr<PeerObject> proxy(found->second);
    proxy->DecStrongRef();
    return proxy;
}

sptr<PeerObject> ProxyTable::Make(uint64_t serial, const std::u16string& descriptor, bool isAlive)
{
    using Life = PeerObject::Life;
    if (proxies_.size() >= MAX_OBJECTS) {
        return nullptr;
    }
    if (context_.State() == SessionState::DEAD) {
        // Not entered into the table, which Close has emptied for ever. The owner died before the message was read: the
        // handler gets an object that is dead already.
        return context_.host.NewProxy(context_.session.lock(), serial, descriptor, Life::DEAD);
    }
    // The place first: if there is no memory for it, the new proxy would be destroyed here, and take this lock once
    // more.
    const auto place = proxies_.try_emplace(serial, nullptr).first;
    try {
        auto proxy =
            context_.host.NewProxy(context_.session.lock(), serial, descriptor, isAlive ? Life::ALIVE : Life::PENDING);
        place->second = proxy.Get();
        return proxy;
    } catch (...) {
        proxies_.erase(place);
        throw;
    }
}

sptr<PeerObject> ProxyTable::AddReceived(uint64_t serial, const std::u16string& descriptor)
{
    MutexLock lock(mutex_);
    sptr<PeerObject> proxy = Find(serial);
    if (proxy == nullptr) {
        proxy = Make(serial, descriptor, true);
    }
    if (proxy != nullptr) {
        ++proxy->received_;
        // It may have been pending: the owner itself has now sent a reference, and with it a count.
        proxy->MarkAlive();
        settled_.notify_all();
    }
    return proxy;
}

sptr<PeerObject> ProxyTable::Acquire(uint64_t serial, const std::u16string& descriptor,
                                     const std::shared_ptr<PendingAcknowledgement>& message)
{
    sptr<PeerObject> proxy;
    {
        MutexLock lock(mutex_);
        proxy = Find(serial);
        if (proxy == nullptr) {
            proxy = Make(serial, descriptor, false);
        }
        if (proxy == nullptr || proxy->GetLife() != PeerObject::Life::PENDING) {
            return proxy;
        }
        Acquiring& acquiring = acquiring_[serial];
        // Keeps the message unacknowledged until the count is here, also for messages that name the object again
        // meanwhile.
        acquiring.messages.push_back(message);
        // One ACQUIRE is enough for all of them. The table holds the proxy strongly meanwhile: if the user drops it at
        // once, the count must still be received and returned.
        if (acquiring.proxy != nullptr) {
            return proxy;
        }
        acquiring.proxy = proxy;
    }
    control_.Send({RecordType::ACQUIRE, 0, serial, 0});
    return proxy;
}

sptr<PeerObject> ProxyTable::Root()
{
    MutexLock lock(mutex_);
    sptr<PeerObject> proxy = Find(0);
    return proxy != nullptr ? proxy : Make(0, std::u16string(), true);
}

void ProxyTable::Forget(PeerObject* proxy, const MessagePlace& after)
{
    uint64_t received = 0;
    {
        MutexLock lock(mutex_);
        // A new proxy may have taken the place since this one's count of references reached 0; Find did not return this
        // one then.
        const auto found = proxies_.find(proxy->Serial());
        if (found != proxies_.end() && found->second == proxy) {
            proxies_.erase(found);
        }
        // Counts that arrive later go to the new proxy, so each is returned exactly once.
        received = std::exchange(proxy->received_, 0);
    }
    if (received != 0) {
        control_.SendRelease(proxy->Serial(), received, after);
    }
}

void ProxyTable::WaitSettled(const PeerObject& proxy, Deadline deadline)
{
    MutexLock lock(mutex_);
    lock.WaitUntil(settled_, deadline, [&proxy] { return proxy.GetLife() != PeerObject::Life::PENDING; });
}

bool ProxyTable::OnAcquired(uint64_t serial, bool isGone)
{
    Acquiring settled;  // released after the lock
    MutexLock lock(mutex_);
    const auto found = acquiring_.find(serial);
    if (found == acquiring_.end()) {
        // An answer without an ACQUIRE: the peer breaks the protocol.
        return false;
    }
    settled = std::move(found->second);
    acquiring_.erase(found);
    // With a count of its own, received from the owner meanwhile, the object is alive whatever the answer says.
    if (isGone && settled.proxy->received_ == 0) {
        proxies_.erase(serial);
        // Twice: MarkDead locks the object and posts to the delivery thread; the waiting threads below check the life
        // under this lock.
        lock.Unlock();
        settled.proxy->MarkDead();
        lock.Lock();
    } else if (!isGone) {
        ++settled.proxy->received_;
        settled.proxy->MarkAlive();
    }
    lock.Unlock();
    // Under the lock: a thread that has just read PENDING is in its wait by now, and is not missed.
    settled_.notify_all();
    return true;
}

void ProxyTable::Close() noexcept
{
    std::unordered_map<uint64_t, PeerObject*> proxies;  // with a strong reference each, or null
    std::unordered_map<uint64_t, Acquiring> acquiring;  // released after the lock
    {
        MutexLock lock(mutex_);
        acquiring.swap(acquiring_);
        // Swapping allocates nothing. With the strong references no proxy is destroyed while it is marked dead below,
        // outside the lock.
        proxies.swap(proxies_);
        for (auto& [serial, proxy] : proxies) {
            if (!proxy->TryIncStrongRef()) {  // It is being destroyed on another thread.
                proxy = nullptr;
            }
        }
    }
    for (const auto& [serial, proxy] : proxies) {
        if (proxy != nullptr) {
            proxy->MarkDead();
            proxy->DecStrongRef();
        }
    }
    MutexLock lock(mutex_);
    settled_.notify_all();
}

}  // namespace TAVO::Transport
