// SPDX-License-Identifier: Apache-2.0
// The manager's state: which ability runs where, who waits for which, and what is being started.
#ifndef TAVO_MANAGER_ABILITY_REGISTRY_H
#define TAVO_MANAGER_ABILITY_REGISTRY_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "manager/daemon/ability_file.h"
#include "manager/daemon/observer_table.h"
#include "manager/daemon/outbox.h"
#include "manager/daemon/process_watch.h"
#include "manager/daemon/spawn.h"
#include "manager/daemon/start_backoff.h"
#include "os/runtime_dir.h"
#include "tavo/calling_peer.h"
#include "tavo/isystem_ability_manager.h"
#include "tavo/mutex.h"

namespace TAVO::Manager {

// Any thread; never destroyed. One mutex guards all of it and is never held while a message is sent or a program
// started; no operation waits for a client. Only ids with an ability file exist.
class AbilityRegistry {
public:
    using Clock = std::chrono::steady_clock;

    struct Found {
        int64_t number = 0;          // of the id's last change
        sptr<IRemoteObject> object;  // null: not running
    };

    // `dir` must live as long as the process.
    AbilityRegistry(const Transport::RuntimeDir& dir, AbilityFiles files);

    // Starts to watch processes and time; false when the system has no thread for it.
    bool Begin();

    // The operations of ISystemAbilityManager, with the calling process. `observer` is notified of later changes.
    Found Check(int32_t systemAbilityId, const sptr<IRemoteObject>& observer, uint64_t session);
    int32_t Load(int32_t systemAbilityId, const sptr<IRemoteObject>& callback, uint64_t session);
    int32_t Add(int32_t systemAbilityId, const sptr<IRemoteObject>& object, const CallingPeer& peer);
    int32_t Remove(int32_t systemAbilityId, uint64_t session);
    std::vector<AbilityDescription> Describe();

    // Death notices: of registration `number` of the id, and of a client.
    void ServiceGone(int32_t systemAbilityId, int64_t number);
    void ClientGone(uint64_t session);

    // Ends every service that this manager or an earlier one has started, within a second; starts none afterwards.
    void StopServices();

private:
    enum class Phase {
        IDLE,      // not running and not being started
        PAUSED,    // until the deadline, then it is started
        STARTING,  // process `serial` must register before the deadline
        OWNED,     // a living process holds the lock already: it must register before the deadline
    };
    struct Waiter {
        sptr<IRemoteObject> callback;
        uint64_t session;
    };
    struct Ability {
        AbilityFile file;

        sptr<IRemoteObject> object;               // null: not running
        sptr<IRemoteObject::DeathRecipient> end;  // on `object`, notified of its death
        pid_t pid = 0;
        uint64_t session = 0;
        int64_t number = 0;  // counts changes of `object`

        Phase phase = Phase::IDLE;
        std::vector<Waiter> waiters;  // empty in phase IDLE, and while starts fail
        uint64_t serial = 0;          // the awaited process in phases STARTING and OWNED; 0: unknown
        Clock::time_point deadline;   // of the phase, unless IDLE
        int spawning = 0;             // program starts in progress
        StartBackoff backoff;
        int32_t starts = 0;
        Clock::time_point startedAt;  // the beginning of the last start
        std::string failure;          // of the last start, with the remedy; empty once it has registered
    };
    struct Process {
        int32_t id;
        pid_t pid;
        bool isStarted;          // by this manager or an earlier one
        bool isGivenUp = false;  // it did not register in time
    };
    // What is left to do after the lock is released.
    struct Aftermath {
        Outbox outbox;
        std::vector<std::pair<int32_t, uint64_t>> starts;  // id, serial
        bool isFirstStart = false;                         // none has failed before
        bool isSpawned = false;                            // one of them has become a process
    };

    Ability* Find(int32_t systemAbilityId) TAVO_REQUIRES(mutex_);
    Ability* FindLiving(int32_t systemAbilityId, Aftermath& after) TAVO_REQUIRES(mutex_);
    // On every path behind one that filled `after`: there is no other notice of a service that FindLiving removes.
    void Finish(Aftermath& after) TAVO_EXCLUDES(mutex_);
    std::optional<int32_t> AnswerOrWait(Ability& ability, const Waiter& waiter, bool hasStarted, Aftermath& after)
        TAVO_REQUIRES(mutex_);

    // Registrations (ability_registry.cpp).
    // Sends notices of changes again later; of each observer and id the last one.
    void ResendLater(const std::vector<Outbox::Change>& changes) TAVO_EXCLUDES(mutex_);
    int32_t Register(Ability& ability, const sptr<IRemoteObject>& object, const CallingPeer& peer, Aftermath& after)
        TAVO_REQUIRES(mutex_);
    void Unregister(Ability& ability, Aftermath& after) TAVO_REQUIRES(mutex_);
    bool MayServe(const Ability& ability, pid_t pid) TAVO_REQUIRES(mutex_);

    // Starts (ability_starts.cpp).
    void BeginStart(Ability& ability, Aftermath& after) TAVO_REQUIRES(mutex_);
    bool AwaitOwner(Ability& ability, pid_t holder) TAVO_REQUIRES(mutex_);
    std::string OwnerOf(const Ability& ability) TAVO_REQUIRES(mutex_);
    void OwnerRefused(Ability& ability, pid_t pid) TAVO_REQUIRES(mutex_);
    uint64_t Adopt(int32_t systemAbilityId, pid_t pid, bool isStarted) TAVO_REQUIRES(mutex_);
    void Enter(Ability& ability, Phase phase, uint64_t serial, Clock::time_point deadline) TAVO_REQUIRES(mutex_);
    bool Start(int32_t systemAbilityId, uint64_t serial) TAVO_EXCLUDES(mutex_);
    StartedProcess SpawnFor(int32_t systemAbilityId) TAVO_EXCLUDES(mutex_);
    bool Keep(uint64_t serial, const Process& process, StartedProcess& started) TAVO_REQUIRES(mutex_);
    // `what` happened, and `remedy` is what to do about it.
    void StartFailed(Ability& ability, const std::string& what, const std::string& remedy, Aftermath& after)
        TAVO_REQUIRES(mutex_);

    // Ends (ability_ends.cpp).
    void DeadlinePassed(Ability& ability, Aftermath& after) TAVO_REQUIRES(mutex_);
    void AwaitedProcessEnded(Ability& ability, const std::string& how, Aftermath& after) TAVO_REQUIRES(mutex_);
    void ProcessEnded(uint64_t serial, const std::string& how);
    Clock::time_point DoWhatIsDue();
    void SweepSoon() TAVO_REQUIRES(mutex_);
    void AdoptRecorded() TAVO_REQUIRES(mutex_);
    void SignalStarted(int signal) TAVO_REQUIRES(mutex_);

    const Transport::RuntimeDir& dir_;
    ProcessWatch watch_;
    Mutex mutex_;
    std::map<int32_t, Ability> abilities_ TAVO_GUARDED_BY(mutex_);   // the set of ids never changes
    std::map<uint64_t, Process> processes_ TAVO_GUARDED_BY(mutex_);  // by serial, until they end
    ObserverTable observers_ TAVO_GUARDED_BY(mutex_);
    uint64_t lastSerial_ TAVO_GUARDED_BY(mutex_) = 0;
    bool isStopping_ TAVO_GUARDED_BY(mutex_) = false;
    Clock::time_point nextSweep_ TAVO_GUARDED_BY(mutex_) = Clock::time_point::max();
    std::atomic<bool> watchHasNews_{
        false};  // the watch is woken after the lock is released: earlier it would only wait for the lock
    Clock::time_point lastSweep_ TAVO_GUARDED_BY(mutex_);
    std::vector<Outbox::Change> unsentChanges_ TAVO_GUARDED_BY(mutex_);
    Clock::time_point nextResend_ TAVO_GUARDED_BY(mutex_) = Clock::time_point::max();
    std::condition_variable spawned_;  // notified when a start has been made or has failed
    std::condition_variable ended_;    // notified when a process has ended
};

}  // namespace TAVO::Manager

#endif
