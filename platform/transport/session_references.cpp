// SPDX-License-Identifier: Apache-2.0
// Who holds what across a session: counts are raised before a message leaves and given back exactly.
#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "base/parcel_access.h"
#include "transport/core.h"
#include "transport/in_lane.h"
#include "transport/proxy_object.h"
#include "transport/session.h"
#include "transport/taken_ticket.h"
#include "wire/reference_table.h"

namespace TAVO::Transport {

sptr<IPCObjectStub> Session::FindHeld(uint64_t serial)
{
    MutexLock lock(mutex_);
    const auto found = held_.find(serial);
    return found != held_.end() ? found->second.object : nullptr;
}

sptr<IPCObjectStub> Session::FindOneWayTarget(InLane& lane, uint64_t number, uint64_t serial)
{
    Leftovers leftovers;
    sptr<IPCObjectStub> target;
    MutexLock lock(mutex_);
    if (const auto found = held_.find(serial); found != held_.end()) {
        target = found->second.object;
    }
    lane.SetLastTaken(number);
    if (!deferred_.empty()) {
        ApplyDeferred(lane.Number(), number, leftovers);
    }
    lock.Unlock();
    return target;
}

int Session::PassReferences(LaneKey lane, uint64_t number, MessageParcel& data, FrameHeader& header, Deadline deadline)
try {
    ReferenceTableWriter writer(data);
    std::vector<std::pair<uint64_t, sptr<IPCObjectStub>>> own;
    Passed passed;
    for (const auto& reference : ParcelAccess::References(data)) {
        TableEntry entry;
        entry.offset = reference.offset;
        if (auto* proxy = dynamic_cast<ProxyObject*>(reference.object.Get()); proxy != nullptr) {
            if (proxy->Owner().get() == this && proxy->Ready(deadline) == IPC_TIMED_OUT) {
                return IPC_TIMED_OUT;  // The message would be there before the peer knows that we have its object.
            }
            entry.instance = proxy->Owner()->Peer();
            entry.serial = proxy->Serial();
            passed.borrowed.push_back(reference.object);
        } else if (auto* stub = dynamic_cast<IPCObjectStub*>(reference.object.Get()); stub != nullptr) {
            if (!Core::Get().EnsureListening()) {
                return IPC_NO_RESOURCES;
            }
            entry.instance = Core::Get().Self();
            entry.serial = Core::Get().Export(sptr<IPCObjectStub>(stub));
            passed.raised.push_back(entry.serial);
            own.emplace_back(entry.serial, stub);
        }
        if (entry.serial == 0 || !writer.Add(entry, reference.object->Descriptor())) {
            return IPC_BAD_MESSAGE;  // Neither ours nor a proxy, or a root object: nobody could call it.
        }
    }
    MutexLock lock(mutex_);
    if (GetState() == State::DEAD) {
        return IPC_DEAD_OBJECT;
    }
    if (!IsLaneOpen(lane)) {
        return IPC_BROKEN;
    }
    if (held_.size() + own.size() > MAX_OBJECTS) {
        return IPC_NO_RESOURCES;
    }
    if (passed_.size() >= MAX_PASSED) {  // For instance because the owner of a passed object does not answer the peer.
        return IPC_QUEUE_FULL;
    }
    for (auto& [serial, stub] : own) {
        Held& held = held_[serial];
        held.object = stub;
        ++held.count;
    }
    passed_.emplace(std::make_pair(lane, number), std::move(passed));
    lock.Unlock();
    return writer.Finish(header) ? IPC_OK : IPC_NO_RESOURCES;
} catch (const std::bad_alloc&) {
    return IPC_NO_RESOURCES;
}

bool Session::TakeReferences(LaneKey lane, const FrameHeader& header, MessageParcel& data)
try {
    if (header.references == 0) {
        return true;  // Then the header allows no table either.
    }
    std::vector<ReferenceTableEntry> entries;
    if (!ReadReferenceTable(header, data, entries)) {
        return false;
    }
    ParcelAccess::Truncate(data, header.dataBytes);
    const Instance& self = Core::Get().Self();
    std::vector<sptr<IRemoteObject>> objects(entries.size());
    const auto ticket = std::make_shared<TakenTicket>(shared_from_this(), lane, header.number);
    bool isWhole = openTickets_ <= MAX_PASSED;  // This one included. A correct sender has stopped before that.
    for (size_t i = 0; i < entries.size() && isWhole; ++i) {  // first what can be refused, then what makes something
        if (entries[i].fixed.instance == self) {
            objects[i] = FindHeld(entries[i].fixed.serial);
            isWhole = objects[i] != nullptr;
        }
    }
    for (size_t i = 0; i < entries.size() && isWhole; ++i) {
        const TableEntry& entry = entries[i].fixed;
        if (entry.instance == peer_) {
            objects[i] = AddReceived(entry.serial, entries[i].descriptor);
        } else if (entry.instance != self) {
            objects[i] = Core::Get().SessionTo(entry.instance)->Acquire(entry.serial, entries[i].descriptor, ticket);
        }
        isWhole = objects[i] != nullptr;
    }
    if (!isWhole) {  // The sender has counted them: what became no proxy is given back here.
        for (size_t i = 0; i < entries.size(); ++i) {
            if (objects[i] == nullptr && entries[i].fixed.instance == peer_) {
                PostRelease(entries[i].fixed.serial, 1, {});
            }
        }
        return false;
    }
    auto& references = ParcelAccess::References(data);
    for (size_t i = 0; i < entries.size(); ++i) {
        references.push_back({entries[i].fixed.offset, std::move(objects[i])});
    }
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

sptr<ProxyObject> Session::FindProxy(uint64_t serial)
{
    const auto found = proxies_.find(serial);
    if (found == proxies_.end() || !found->second->TryIncStrongRef()) {
        return nullptr;  // Being destroyed: Forget, which waits for our lock, will leave a successor alone.
    }
    sptr<ProxyObject> proxy(found->second);
    proxy->DecStrongRef();
    return proxy;
}

sptr<ProxyObject> Session::MakeProxy(uint64_t serial, const std::u16string& descriptor, bool alive)
{
    if (proxies_.size() >= MAX_OBJECTS) {
        return nullptr;
    }
    const auto life = GetState() == State::DEAD ? ProxyObject::Life::DEAD
                      : alive                   ? ProxyObject::Life::ALIVE
                                                : ProxyObject::Life::PENDING;
    if (life == ProxyObject::Life::DEAD) {
        return MakeRef<ProxyObject>(shared_from_this(), serial, descriptor, life);
    }
    // The place first: a proxy that went again for want of memory would take our lock once more.
    const auto place = proxies_.try_emplace(serial, nullptr).first;
    try {
        auto proxy = MakeRef<ProxyObject>(shared_from_this(), serial, descriptor, life);
        place->second = proxy.Get();
        return proxy;
    } catch (...) {
        proxies_.erase(place);
        throw;
    }
}

sptr<ProxyObject> Session::AddReceived(uint64_t serial, const std::u16string& descriptor)
{
    MutexLock lock(mutex_);
    sptr<ProxyObject> proxy = FindProxy(serial);
    if (proxy == nullptr) {
        proxy = MakeProxy(serial, descriptor, true);
    }
    if (proxy != nullptr) {
        ++proxy->received;
        proxy->MarkAlive();
        changed_.notify_all();
    }
    return proxy;
}

sptr<ProxyObject> Session::Acquire(uint64_t serial, const std::u16string& descriptor,
                                   const std::shared_ptr<TakenTicket>& ticket)
{
    sptr<ProxyObject> proxy;
    {
        MutexLock lock(mutex_);
        proxy = FindProxy(serial);
        if (proxy != nullptr && proxy->GetLife() != ProxyObject::Life::PENDING) {
            return proxy;  // Held already, or known dead.
        }
        if (proxy == nullptr) {
            proxy = MakeProxy(serial, descriptor, false);
        }
        if (proxy == nullptr || proxy->GetLife() == ProxyObject::Life::DEAD) {
            return proxy;
        }
        Acquiring& acquiring = acquiring_[serial];
        acquiring.tickets.push_back(ticket);
        if (acquiring.proxy != nullptr) {
            return proxy;
        }
        acquiring.proxy = proxy;
    }
    Post({RecordType::ACQUIRE, 0, serial, 0});
    return proxy;
}

sptr<ProxyObject> Session::RootProxy()
{
    MutexLock lock(mutex_);
    sptr<ProxyObject> proxy = FindProxy(0);
    return proxy != nullptr ? proxy : MakeProxy(0, std::u16string(), true);
}

void Session::Forget(ProxyObject* proxy, uint64_t serial)
{
    uint64_t received = 0;
    {
        MutexLock lock(mutex_);
        const auto found = proxies_.find(serial);
        if (found != proxies_.end() && found->second == proxy) {
            proxies_.erase(found);
        }
        received = std::exchange(proxy->received, 0);
    }
    if (received != 0) {
        PostRelease(serial, received, proxy->lastOneWay);
    }
}

void Session::PostRelease(uint64_t serial, uint64_t received, const LanePlace& lastOneWay)
{
    // Both under one lock: no other thread's RELEASE may come between.
    MutexLock lock(controlMutex_);
    if (lastOneWay.lane != 0) {
        PostLocked({RecordType::AFTER, ControlRecord::OWN_LANE, lastOneWay.lane, lastOneWay.number});
    }
    PostLocked({RecordType::RELEASE, 0, serial, received});
}

void Session::Withdraw(LaneKey lane, uint64_t number)
{
    Leftovers leftovers;
    MutexLock lock(mutex_);
    const auto found = passed_.find({lane, number});
    if (found != passed_.end()) {
        TakeBack(found->second, leftovers);
        passed_.erase(found);
    }
    lock.Unlock();
}

void Session::TakeBack(Passed& passed, Leftovers& leftovers)
{
    for (uint64_t serial : passed.raised) {
        LowerHeld(serial, 1, leftovers);
    }
    for (auto& borrowed : passed.borrowed) {
        leftovers.Add(std::move(borrowed));
    }
}

bool Session::LowerHeld(uint64_t serial, uint64_t count, Leftovers& leftovers)
{
    const auto found = held_.find(serial);
    if (found == held_.end() || found->second.count < count) {
        return false;
    }
    found->second.count -= count;
    if (found->second.count == 0) {
        leftovers.Add(std::move(found->second.object));
        held_.erase(found);
    }
    return true;
}

bool Session::OnRelease(uint64_t serial, uint64_t count)
{
    Leftovers leftovers;
    MutexLock lock(mutex_);
    const uint64_t after = std::exchange(releaseAfterNumber_, uint64_t{0});
    const uint64_t lane = releaseAfterLane_.number;
    const auto open = inLanes_.find(lane);
    const bool isTaken = open != inLanes_.end() ? open->second.lane->LastTaken() >= after : lane <= lastEndedLane_;
    const auto found = held_.find(serial);
    const bool isHeld = found != held_.end() && found->second.deferred <= found->second.count &&
                        count <= found->second.count - found->second.deferred;
    if (count == 0 || !isHeld) {
        return false;
    }
    if (after == 0 || isTaken) {
        LowerHeld(serial, count, leftovers);
    } else {
        found->second.deferred += count;
        deferred_[lane].push_back({after, serial, count});
    }
    lock.Unlock();
    return true;
}

void Session::ApplyDeferred(uint64_t lane, uint64_t lastTaken, Leftovers& leftovers)
{
    const auto found = deferred_.find(lane);
    if (found == deferred_.end()) {
        return;
    }
    std::erase_if(found->second, [&](const Deferred& release) TAVO_REQUIRES(mutex_) {
        if (release.number > lastTaken) {
            return false;
        }
        if (const auto held = held_.find(release.serial); held != held_.end()) {
            held->second.deferred -= std::min(held->second.deferred, release.count);
            LowerHeld(release.serial, release.count, leftovers);
        }
        return true;
    });
    if (found->second.empty()) {
        deferred_.erase(found);
    }
}

void Session::OnAcquire(uint64_t serial)
{
    const sptr<IPCObjectStub> object = Core::Get().FindExported(serial);
    bool raised = false;
    if (object != nullptr) {
        MutexLock lock(mutex_);
        if (GetState() == State::UP && held_.size() < MAX_OBJECTS) {
            Held& held = held_[serial];
            held.object = object;
            ++held.count;
            raised = true;
        }
    }
    Post({RecordType::ACQUIRED, 0, serial, raised ? 0U : 1U});
}

bool Session::OnAcquired(uint64_t serial, bool gone)
{
    Acquiring settled;
    MutexLock lock(mutex_);
    const auto found = acquiring_.find(serial);
    if (found == acquiring_.end()) {
        return false;
    }
    settled = std::move(found->second);
    acquiring_.erase(found);
    if (gone && settled.proxy->received == 0) {
        proxies_.erase(serial);
        lock.Unlock();
        settled.proxy->MarkDead();
        lock.Lock();
    } else if (!gone) {
        ++settled.proxy->received;
        settled.proxy->MarkAlive();
    }
    lock.Unlock();
    changed_.notify_all();
    return true;
}

void Session::OnTaken(LaneKey lane, uint64_t number)
{
    Passed taken;
    MutexLock lock(mutex_);
    const auto found = passed_.find({lane, number});
    if (found != passed_.end()) {
        taken = std::move(found->second);
        passed_.erase(found);
    }
    lock.Unlock();
}

}  // namespace TAVO::Transport
