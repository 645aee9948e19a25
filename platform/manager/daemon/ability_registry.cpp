// SPDX-License-Identifier: Apache-2.0
// Registrations, and the requests of clients about them. Each operation follows one scheme: under the lock it changes
// the state and collects messages and starts in an Aftermath; Finish does these after the lock, since sending may take
// locks of the transport and a start may run for a millisecond. Three independent signs show that a service has died:
// its death notice, its free lock, and the pidfd of its process. Whichever comes first ends the registration; the
// change number makes the later ones harmless.
#include "manager/daemon/ability_registry.h"

#include <algorithm>
#include <utility>

#include "manager/client/ability_lock.h"
#include "manager/client/manager_log.h"
#include "manager/daemon/start_record.h"
#include "os/process_lock.h"
#include "transport/transport.h"

namespace TAVO::Manager {
namespace {

// Callbacks of one client that may wait for one ability; more are refused.
constexpr int MAX_WAITERS_PER_CLIENT = 256;
// How long a registration waits for the start of a program to return, which takes a millisecond.
constexpr std::chrono::seconds SPAWN_TIME{1};
// Between two attempts to notify observers that could not be reached, for instance because they are stopped.
constexpr std::chrono::milliseconds RESEND_INTERVAL{500};

// Carries the change number of its registration: a notice that arrives late does not end a newer registration.
class ServiceEnd : public IRemoteObject::DeathRecipient {
public:
    ServiceEnd(AbilityRegistry& registry, int32_t systemAbilityId, int64_t number)
        : registry_(registry), systemAbilityId_(systemAbilityId), number_(number)
    {
    }
    void OnRemoteDied(const wptr<IRemoteObject>&) override { registry_.ServiceGone(systemAbilityId_, number_); }

private:
    AbilityRegistry& registry_;
    const int32_t systemAbilityId_;
    const int64_t number_;
};

class ClientEnd : public IRemoteObject::DeathRecipient {
public:
    ClientEnd(AbilityRegistry& registry, uint64_t session) : registry_(registry), session_(session) {}
    void OnRemoteDied(const wptr<IRemoteObject>&) override { registry_.ClientGone(session_); }

private:
    AbilityRegistry& registry_;
    const uint64_t session_;
};

}  // namespace

// NOLINTNEXTLINE(performance-unnecessary-value-param): taken apart
AbilityRegistry::AbilityRegistry(const Transport::RuntimeDir& dir, AbilityFiles files) : dir_(dir)
{
    for (auto& [id, file] : files) {
        abilities_[id].file = std::move(file);
    }
}

AbilityRegistry::Ability* AbilityRegistry::Find(int32_t systemAbilityId)
{
    const auto found = abilities_.find(systemAbilityId);
    return found == abilities_.end() ? nullptr : &found->second;
}

// As Find, once ends whose notice is still under way have been acted on. A start whose process has ended has failed for
// those who waited for it, and not for who asks now; a client that saw a service end first is not given it once more. A
// process that ends releases its locks first and then closes its sockets one by one, the one to here perhaps last:
// a peer that saw any of them close finds the lock free.
AbilityRegistry::Ability* AbilityRegistry::FindLiving(int32_t systemAbilityId, Aftermath& after)
{
    Ability* ability = Find(systemAbilityId);
    if (ability != nullptr && ability->object != nullptr &&
        (!Transport::IsStillThere(ability->object, Clock::time_point()) ||
         Transport::ProcessLock::IsFree(dir_.Fd(), AbilityLockName(systemAbilityId)))) {
        // The death notice has not been delivered yet. When it comes, ServiceGone finds another number and does
        // nothing.
        Unregister(*ability, after);
    }
    if (ability != nullptr && processes_.count(ability->serial) != 0 && watch_.IsOver(ability->serial)) {
        AwaitedProcessEnded(*ability, watch_.HowItEnded(ability->serial), after);
    }
    return ability;
}

void AbilityRegistry::Finish(Aftermath& after)
{
    // The stopped client below does not read: its socket is full and a notice cannot be queued.
    if (const std::vector<Outbox::Change> unsent = after.outbox.Send(); !unsent.empty()) {
        ResendLater(unsent);
    }
    // After the messages: clients learn of a change before the next start delays them.
    for (const auto& [id, serial] : after.starts) {
        after.isSpawned = Start(id, serial) || after.isSpawned;
    }
    if (watchHasNews_.exchange(false)) {
        watch_.Wake();
    }
}

void AbilityRegistry::ResendLater(const std::vector<Outbox::Change>& changes)
{
    MutexLock lock(mutex_);
    for (const Outbox::Change& change : changes) {
        const auto isSame = [&change](const Outbox::Change& other) {
            return other.observer == change.observer && other.id == change.id;
        };
        const auto known = std::find_if(unsentChanges_.begin(), unsentChanges_.end(), isSame);
        if (known == unsentChanges_.end()) {
            unsentChanges_.push_back(change);
        } else {
            // Only the latest number counts: the client discards everything older than it.
            known->number = std::max(known->number, change.number);
        }
    }
    nextResend_ = std::min(nextResend_, Clock::now() + RESEND_INTERVAL);
    watchHasNews_ = true;
}

AbilityRegistry::Found AbilityRegistry::Check(int32_t systemAbilityId, const sptr<IRemoteObject>& observer,
                                              uint64_t session)
{
    Aftermath after;
    Found found;
    bool isNewClient = false;
    {
        MutexLock lock(mutex_);
        if (const Ability* ability = FindLiving(systemAbilityId, after)) {
            found = {ability->number, ability->object};
            // "Not running" is never remembered by clients, so they need no notice later.
            // In the same critical section as the lookup, so that no change falls between the answer and the
            // observation.
            isNewClient = found.object != nullptr && observers_.Remember(session, observer, systemAbilityId);
        }
    }
    if (isNewClient && !observer->AddDeathRecipient(new ClientEnd(*this, session))) {
        // The client died before the recipient was added, and no notice will come.
        ClientGone(session);
    }
    Finish(after);
    return found;
}

int32_t AbilityRegistry::Load(int32_t systemAbilityId, const sptr<IRemoteObject>& callback, uint64_t session)
{
    std::optional<int32_t> status;
    // At most two rounds: the first may start the program in Finish, the second answers by the outcome.
    for (bool hasStarted = false; !status;) {
        Aftermath after;
        {
            MutexLock lock(mutex_);
            Ability* const ability = FindLiving(systemAbilityId, after);
            status =
                ability != nullptr ? AnswerOrWait(*ability, {callback, session}, hasStarted, after) : ABILITY_UNKNOWN;
        }
        Finish(after);
        hasStarted = after.isFirstStart && after.isSpawned;
    }
    return *status;
}

// No value when the service has to be started first, without the lock: a program that cannot be executed refuses the
// load that caused the start. While starts fail, every load is refused, since its caller would wait for nothing. The
// load that has caused the first start (`hasStarted`) is accepted, however quickly that process has ended.
std::optional<int32_t> AbilityRegistry::AnswerOrWait(Ability& ability, const Waiter& waiter, bool hasStarted,
                                                     Aftermath& after)
{
    const auto isOfClient = [&waiter](const Waiter& other) { return other.session == waiter.session; };
    if (isStopping_ ||
        std::count_if(ability.waiters.begin(), ability.waiters.end(), isOfClient) >= MAX_WAITERS_PER_CLIENT) {
        // A client that requests the same ability without end must not fill the manager's memory.
        return ABILITY_REFUSED;
    }
    if (ability.object != nullptr) {
        // By the callback, not in the answer: a load is always answered on the client's delivery thread.
        after.outbox.NotifyLoaded(waiter.callback, ability.file.id, ability.object);
        return ABILITY_OK;
    }
    if (!ability.file.fault.empty() || ability.file.program.empty()) {
        return ABILITY_CANNOT_START;
    }
    // Keeps the retries going for another minute.
    ability.backoff.Requested(Clock::now());
    if (ability.phase == Phase::IDLE) {
        after.isFirstStart = !ability.backoff.IsFailing();
        BeginStart(ability, after);
        return std::nullopt;
    }
    if (ability.backoff.IsFailing() && hasStarted) {
        after.outbox.NotifyFailed(waiter.callback, ability.file.id);
        return ABILITY_OK;
    }
    if (ability.backoff.IsFailing()) {
        return ABILITY_CANNOT_START;
    }
    ability.waiters.push_back(waiter);
    return ABILITY_OK;
}

int32_t AbilityRegistry::Add(int32_t systemAbilityId, const sptr<IRemoteObject>& object, const CallingPeer& peer)
{
    Aftermath after;
    int32_t status = ABILITY_REFUSED;
    {
        MutexLock lock(mutex_);
        if (Ability* ability = FindLiving(systemAbilityId, after)) {
            // The process that is being started may be faster than the return of its start.
            lock.WaitUntil(spawned_, Clock::now() + SPAWN_TIME, [ability] { return ability->spawning == 0; });
            status = Register(*ability, object, peer, after);
        }
    }
    Finish(after);
    if (status == ABILITY_OK) {
        Log(SCRIVO_INFO, "ability %{public}d registered by process %{public}d", systemAbilityId, peer.pid);
    } else if (status == ABILITY_REFUSED) {
        Log(SCRIVO_WARN,
            "process %{public}d may not register ability %{public}d: the manager did not start it. Add an ability "
            "file for this id with \"external\": true to allow it",
            peer.pid, systemAbilityId);
    } else {
        Log(SCRIVO_WARN, "process %{public}d cannot register ability %{public}d now: %{public}s. It should try again",
            peer.pid, systemAbilityId,
            status == ABILITY_UNREACHABLE ? "the manager is ending or cannot read the lock of the ability"
                                          : "the object that it sent is not alive");
    }
    return status;
}

int32_t AbilityRegistry::Register(Ability& ability, const sptr<IRemoteObject>& object, const CallingPeer& peer,
                                  Aftermath& after)
{
    // The kernel names the process that holds the lock, so no process can claim an ability by its word alone.
    // UNKNOWN_HOLDER is a process of another pid namespace.
    const pid_t holder = Transport::ProcessLock::Holder(dir_.Fd(), AbilityLockName(ability.file.id));
    if (isStopping_ || holder == Transport::ProcessLock::CANNOT_TELL) {
        return ABILITY_UNREACHABLE;  // Not refused, which would be final: the process tries again, or the next manager.
    }
    // A process of another pid namespace has the pid 0, which is also the value of NOBODY.
    const bool isHolder = holder != Transport::ProcessLock::NOBODY &&
                          (holder == peer.pid || holder == Transport::ProcessLock::UNKNOWN_HOLDER);
    if (!MayServe(ability, peer.pid) || !isHolder) {
        OwnerRefused(ability, peer.pid);
        return ABILITY_REFUSED;
    }
    if (ability.object != nullptr) {
        Unregister(ability, after);  // An earlier one of the same process: no other process can hold the lock.
    }
    // The number rises with each registration and each end. An answer with a lower number than a notice is outdated.
    const sptr<IRemoteObject::DeathRecipient> end(new ServiceEnd(*this, ability.file.id, ++ability.number));
    if (!object->AddDeathRecipient(end)) {
        // The process died, or its session ended, after it had sent the request.
        return ABILITY_BAD_REQUEST;
    }
    ability.object = object;
    ability.end = end;
    ability.pid = peer.pid;
    ability.session = peer.session;
    ability.backoff.Registered();
    ability.failure.clear();
    for (const Waiter& waiter : ability.waiters) {
        after.outbox.NotifyLoaded(waiter.callback, ability.file.id, object);
    }
    ability.waiters.clear();
    ability.phase = Phase::IDLE;
    return ABILITY_OK;
}

void AbilityRegistry::Unregister(Ability& ability, Aftermath& after)
{
    // A notice may be running already. It waits for the lock that is held here, and then finds another number.
    ability.object->RemoveDeathRecipient(ability.end);
    ability.end = nullptr;
    // The last reference is released with the Aftermath, after the lock.
    after.outbox.Drop(ability.object);
    ability.object = nullptr;
    ability.pid = 0;
    ability.session = 0;
    ++ability.number;
    // Each client is notified once for each answer that it has remembered.
    for (const sptr<IRemoteObject>& observer : observers_.TakeObserversOf(ability.file.id)) {
        after.outbox.NotifyChanged(observer, ability.file.id, ability.number);
    }
}

// The process that was started for the id, by this manager or an earlier one; any other only if the file allows it.
bool AbilityRegistry::MayServe(const Ability& ability, pid_t pid)
{
    for (const auto& [serial, process] : processes_) {
        if (process.id == ability.file.id && process.pid == pid && process.isStarted) {
            return !process.isGivenUp;
        }
    }
    const bool isRecorded = pid > 0 && RecordedProcess(dir_, ability.file.id) == pid;
    return (isRecorded && Adopt(ability.file.id, pid, true) != 0) || ability.file.external;
}

int32_t AbilityRegistry::Remove(int32_t systemAbilityId, uint64_t session)
{
    Aftermath after;
    int32_t status = ABILITY_NOT_RUNNING;
    {
        MutexLock lock(mutex_);
        Ability* ability = FindLiving(systemAbilityId, after);
        if (ability != nullptr && ability->object != nullptr && ability->session == session) {
            Unregister(*ability, after);
            status = ABILITY_OK;
        }
    }
    Finish(after);
    return status;
}

std::vector<AbilityDescription> AbilityRegistry::Describe()
{
    std::vector<AbilityDescription> descriptions;
    MutexLock lock(mutex_);
    for (const auto& [id, ability] : abilities_) {
        // Deliberate: no FindLiving. To look at the state must not change it.
        const bool isRunning = ability.object != nullptr && ability.object->IsAlive();
        const int64_t startedAt = std::chrono::nanoseconds(ability.startedAt.time_since_epoch()).count();
        descriptions.push_back({id, isRunning, ability.file.fault.empty(), isRunning ? ability.pid : 0, ability.starts,
                                startedAt, ability.file.program,
                                ability.file.fault.empty() ? ability.failure : ability.file.fault});
    }
    return descriptions;
}

void AbilityRegistry::ServiceGone(int32_t systemAbilityId, int64_t number)
{
    Aftermath after;
    {
        MutexLock lock(mutex_);
        // A dead process may have left the name of its socket behind.
        SweepSoon();
        Ability* ability = Find(systemAbilityId);
        if (ability != nullptr && ability->object != nullptr && ability->number == number) {
            Log(SCRIVO_INFO, "ability %{public}d is gone", systemAbilityId);
            Unregister(*ability, after);
        }  // Otherwise it is a notice about an earlier registration.
    }
    Finish(after);
}

void AbilityRegistry::ClientGone(uint64_t session)
{
    Aftermath after;
    sptr<IRemoteObject> observer;  // released when the lock is free
    {
        MutexLock lock(mutex_);
        observer = observers_.Forget(session);
        SweepSoon();
    }
    Finish(after);
}

}  // namespace TAVO::Manager
