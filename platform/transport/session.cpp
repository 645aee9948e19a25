// SPDX-License-Identifier: Apache-2.0
// The life of a session, and its control records.
#include "transport/session.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "transport/core.h"
#include "transport/in_lane.h"
#include "transport/proxy_object.h"

namespace TAVO::Transport {
namespace {

std::atomic<uint64_t> g_nextSession{1};

LaneKey KeyOf(const ControlRecord& record)
{
    return {(record.flags & ControlRecord::OWN_LANE) == 0, record.a};
}

}  // namespace

Session::Session(std::string path)
    : id_(g_nextSession.fetch_add(1)), path_(std::move(path)), budget_(ByteBudget::PEER_LIMIT, &Core::Get().Budget())
{
}

Session::~Session() = default;

bool Session::SayHello(int fd)
{
    Hello hello;
    hello.instance = Core::Get().Self();
    {
        MutexLock lock(controlMutex_);
        if (hasGivenWay_ || GetState() != State::CONNECTING) {
            errno = EALREADY;
            return false;
        }
        if (SendNow(fd, &hello, sizeof(hello)).status != IoStatus::OK) {
            errno = ECONNRESET;
            return false;
        }
        hasSaidHello_ = true;
        controlFd_ = fd;
        FlushControlLocked();
    }
    {
        MutexLock lock(mutex_);  // Whoever is about to wait has not looked yet.
    }
    changed_.notify_all();
    return true;
}

bool Session::GiveWay(bool prevails)
{
    MutexLock lock(controlMutex_);
    hasGivenWay_ = hasGivenWay_ || !(hasSaidHello_ && prevails);
    if (hasGivenWay_) {
        ForgetConnectionLocked();
    }
    return hasGivenWay_;
}

void Session::TakeHelloBack()
{
    MutexLock lock(controlMutex_);
    hasSaidHello_ = false;
    ForgetConnectionLocked();
}

void Session::ForgetConnection(int fd)
{
    MutexLock lock(controlMutex_);
    if (controlFd_ == fd) {
        ForgetConnectionLocked();
    }
}

void Session::ForgetConnectionLocked()
{
    controlFd_ = -1;
    saidEarly_ = 0;
}

void Session::ComeUp(int controlFd, int controlEpoll, void* tag, const PeerIdentity& identity)
{
    identity_ = {identity.pid, identity.uid, id_};
    {
        MutexLock lock(controlMutex_);
        controlFd_ = controlFd;
        controlEpoll_ = controlEpoll;
        controlTag_ = tag;
        unsent_.erase(unsent_.begin(), unsent_.begin() + static_cast<std::ptrdiff_t>(saidEarly_));
        saidEarly_ = 0;
        if (isBroken_) {
            EndControlLocked();
        }
        FlushControlLocked();
    }
    suspect_.store(false, std::memory_order_relaxed);
    {
        MutexLock lock(mutex_);
        if (state_ == State::CONNECTING) {
            state_.store(State::UP, std::memory_order_release);
        }
    }
    changed_.notify_all();
}

void Session::Die() noexcept
{
    {
        MutexLock lock(controlMutex_);
        ForgetConnectionLocked();
        unsent_.clear();
    }
    // Nothing here takes memory: without any, too, everybody learns of the end.
    std::vector<std::shared_ptr<CallLane>> callLanes;
    std::unordered_map<uint64_t, Held> held;
    std::unordered_map<uint64_t, Acquiring> acquiring;
    std::map<std::pair<LaneKey, uint64_t>, Passed> passed;
    std::unordered_map<uint64_t, ProxyObject*> proxies;  // with a strong reference each, or null
    {
        MutexLock lock(mutex_);
        if (state_ == State::DEAD) {
            return;
        }
        state_.store(State::DEAD, std::memory_order_release);
        callLanes.swap(callLanes_);
        idleLanes_.clear();
        ownLanes_.clear();
        for (const auto& [number, lane] : inLanes_) {
            lane.lane->ShutDown();  // Its worker notices, and takes it out.
        }
        if (!HasOneWayInLane()) {  // What was sent one-way before the death is still run, and needs its targets.
            held.swap(held_);
        }
        acquiring.swap(acquiring_);
        passed.swap(passed_);
        proxies.swap(proxies_);
        for (auto& [serial, proxy] : proxies) {
            if (!proxy->TryIncStrongRef()) {  // It is being destroyed on another thread.
                proxy = nullptr;
            }
        }
        changed_.notify_all();
    }
    // Shut down, not closed: that wakes whoever waits there, and what has arrived can still be read.
    for (const auto& lane : callLanes) {
        lane->fd.ShutDown();
    }
    for (OneWayLane* lane : {&oneWay_, &notice_}) {
        MutexLock lock(lane->mutex);
        if (lane->fd.IsOpen()) {
            CloseOneWay(*lane);
        }
    }
    for (const auto& [serial, proxy] : proxies) {
        if (proxy != nullptr) {
            proxy->MarkDead();
            proxy->DecStrongRef();
        }
    }
    MutexLock lock(mutex_);
    changed_.notify_all();  // for those who wait to learn about a pending proxy
}

void Session::WaitSettled(const ProxyObject& proxy, Deadline deadline)
{
    MutexLock lock(mutex_);
    lock.WaitUntil(changed_, deadline, [&proxy] { return proxy.GetLife() != ProxyObject::Life::PENDING; });
}

Session::State Session::WaitUp(Deadline deadline)
{
    if (GetState() == State::CONNECTING) {
        MutexLock lock(mutex_);
        lock.WaitUntil(changed_, deadline, [this] { return GetState() != State::CONNECTING; });
    }
    return GetState();
}

bool Session::WaitForLanes(Deadline deadline)
{
    const auto mayOpen = [this] { return hasSaidHello_ || GetState() != State::CONNECTING; };
    if (mayOpen()) {
        return true;
    }
    MutexLock lock(mutex_);
    return lock.WaitUntil(changed_, deadline, mayOpen);
}

bool Session::HasHungUp()
{
    MutexLock lock(controlMutex_);
    return controlFd_ < 0 || Transport::HasHungUp(controlFd_);
}

void Session::SuspectPeer()
{
    if (!suspect_.exchange(true)) {
        Post({RecordType::PING, 0, id_, 0});
    }
}

void Session::Post(const ControlRecord& record)
{
    MutexLock lock(controlMutex_);
    PostLocked(record);
}

// Ends the session, by way of the control thread; one that is not up yet as soon as it is.
void Session::EndControlLocked()
{
    isBroken_ = true;
    if (controlFd_ >= 0) {
        ::shutdown(controlFd_, SHUT_RDWR);
    }
}

void Session::PostLocked(const ControlRecord& record)
{
    if (GetState() == State::DEAD) {
        return;
    }
    if (unsent_.size() > MAX_UNSENT_BYTES) {  // A peer that has read nothing for so long.
        EndControlLocked();
        return;
    }
    const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
    try {
        unsent_.insert(unsent_.end(), bytes, bytes + sizeof(record));
    } catch (const std::bad_alloc&) {  // What is not said would be missed for ever.
        EndControlLocked();
        return;
    }
    FlushControlLocked();
}

bool Session::FlushControl()
{
    MutexLock lock(controlMutex_);
    return FlushControlLocked();
}

bool Session::FlushControlLocked()
{
    if (controlFd_ < 0) {
        return true;
    }
    if (controlEpoll_ < 0) {  // They count only if the hello is accepted, so they stay until then.
        saidEarly_ += SendNow(controlFd_, unsent_.data() + saidEarly_, unsent_.size() - saidEarly_).bytes;
        return true;
    }
    if (unsent_.empty() && !asksForRoom_) {
        return true;
    }
    bool alive = true;
    if (!unsent_.empty()) {
        const IoResult sent = SendNow(controlFd_, unsent_.data(), unsent_.size());
        unsent_.erase(unsent_.begin(), unsent_.begin() + static_cast<std::ptrdiff_t>(sent.bytes));
        if (sent.status == IoStatus::OK) {
            return true;
        }
        alive = sent.status != IoStatus::CLOSED;
    }
    asksForRoom_ = !unsent_.empty();
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP | (asksForRoom_ ? static_cast<uint32_t>(EPOLLOUT) : 0U);
    event.data.ptr = controlTag_;
    ::epoll_ctl(controlEpoll_, EPOLL_CTL_MOD, controlFd_, &event);
    return alive;
}

bool Session::OnRecord(const ControlRecord& record)
{
    if ((record.flags & ~ControlRecord::OWN_LANE) != 0) {
        return false;
    }
    switch (record.type) {
        case RecordType::RELEASE:
            return OnRelease(record.a, record.b);
        case RecordType::ACQUIRE:
            OnAcquire(record.a);
            return true;
        case RecordType::ACQUIRED:
            return OnAcquired(record.a, record.b != 0);
        case RecordType::TAKEN:
            OnTaken(KeyOf(record), record.b);
            return true;
        case RecordType::LANE_CLOSED:
            OnLaneClosed(KeyOf(record), record.b);
            return true;
        case RecordType::AFTER:
            releaseAfterLane_ = KeyOf(record);
            releaseAfterNumber_ = record.b;
            return !releaseAfterLane_.own && record.b != 0;
        case RecordType::RING:
            return OnRing(KeyOf(record), record.b);
        case RecordType::PING:
            Post({RecordType::PONG, 0, record.a, 0});
            return true;
        case RecordType::PONG:
            suspect_.store(false, std::memory_order_relaxed);
            return true;
    }
    return false;
}

}  // namespace TAVO::Transport
