// SPDX-License-Identifier: Apache-2.0
// Starts on demand: one at a time for each ability, none while an owner lives, with pauses after failures.
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "manager/client/manager_log.h"
#include "manager/client/process_lock.h"
#include "manager/daemon/ability_registry.h"
#include "manager/daemon/manager_socket.h"
#include "manager/daemon/pidfd.h"
#include "manager/daemon/start_record.h"

namespace TAVO::Manager {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// How long a process may take from its start to its registration.
constexpr seconds START_TIME{20};
// Between a failed start and the next.
constexpr milliseconds FIRST_PAUSE{100};
constexpr milliseconds LONGEST_PAUSE{10000};
// In which a process that was refused has surely given its lock back.
constexpr seconds LOCK_RETURN_TIME{1};
// Services are asked to end, then made to; together below a second.
constexpr milliseconds GRACE_TIME{700};
constexpr milliseconds KILL_TIME{200};
// Between two searches for sockets that the dead left behind.
constexpr seconds SWEEP_INTERVAL{5};

}  // namespace

bool AbilityRegistry::Begin()
{
    RemoveStaleSockets(dir_);
    return watch_.Begin([this](uint64_t serial) { ProcessEnded(serial); }, [this] { return DoWhatIsDue(); });
}

// Somebody waits for the ability, which does not run and is not being started.
void AbilityRegistry::Want(Ability& ability, Aftermath& after)
{
    const pid_t holder = ProcessLock::Holder(dir_.Fd(), AbilityLockName(ability.file.id));
    if (holder == ProcessLock::CANNOT_TELL) {
        Log(SCRIVO_WARN, "cannot look at the lock of ability %{public}d: %{public}s", ability.file.id,
            std::strerror(errno));
        StartFailed(ability, after);
        return;
    }
    if (AwaitOwner(ability, holder)) {
        return;
    }
    const Clock::time_point now = Clock::now();
    if (now < ability.notBefore) {
        Enter(ability, Phase::PAUSED, 0, ability.notBefore);
        return;
    }
    after.starts.emplace_back(ability.file.id, ++lastSerial_);
    Enter(ability, Phase::STARTING, lastSerial_, now + START_TIME);
    ++ability.spawning;
}

// True when a living process holds the ability's lock, or was started by a manager before this one and has not taken
// it yet: it will register, so there is nothing to start.
bool AbilityRegistry::AwaitOwner(Ability& ability, pid_t holder)
{
    const int32_t id = ability.file.id;
    const bool isHeld = holder != ProcessLock::NOBODY;
    // What this manager has started it knows without a record.
    const pid_t recorded = ability.starts == 0 ? RecordedProcess(dir_, id) : 0;
    const pid_t owner = isHeld ? holder : recorded;
    const auto isOwner = [id, owner](const auto& entry) { return entry.second.id == id && entry.second.pid == owner; };
    const auto known = std::find_if(processes_.begin(), processes_.end(), isOwner);
    if (known != processes_.end() && !isHeld) {
        return false;  // It has had its chance, or has taken its registration back.
    }
    uint64_t serial = known != processes_.end() ? known->first : 0;
    if (serial == 0 && owner > 0) {
        serial = Adopt(id, owner, owner == recorded);
        if (serial == 0) {
            return false;
        }
    }
    if (serial == 0 && !isHeld) {
        return false;
    }
    Log(SCRIVO_INFO, "ability %{public}d has an owner already: process %{public}d", id, owner);
    Enter(ability, Phase::OWNED, serial, Clock::now() + START_TIME);
    return true;
}

// A process may not register. If it is the one that is awaited, it will not do so later either, but give its lock back.
void AbilityRegistry::OwnerRefused(Ability& ability, pid_t pid)
{
    const auto awaited = processes_.find(ability.serial);
    if (ability.phase == Phase::OWNED && awaited != processes_.end() && awaited->second.pid == pid) {
        Enter(ability, Phase::PAUSED, 0, Clock::now() + LOCK_RETURN_TIME);
    }
}

// Watches a process that is not a child from here on. 0 when it has ended.
uint64_t AbilityRegistry::Adopt(int32_t systemAbilityId, pid_t pid, bool isStarted)
{
    Transport::UniqueFd pidFd = OpenPidFd(pid);
    const bool isSame = ProcessLock::Holder(dir_.Fd(), AbilityLockName(systemAbilityId)) == pid ||
                        RecordedProcess(dir_, systemAbilityId) == pid;  // and not a later one with its pid
    if (!pidFd.IsOpen() || !isSame) {
        return 0;
    }
    const uint64_t serial = ++lastSerial_;
    processes_.emplace(serial, Process{systemAbilityId, pid, isStarted});
    watch_.Add(serial, pid, std::move(pidFd), false);
    watchHasNews_ = true;
    return serial;
}

void AbilityRegistry::Enter(Ability& ability, Phase phase, uint64_t serial, Clock::time_point deadline)
{
    ability.phase = phase;
    ability.serial = serial;
    ability.deadline = deadline;
    watchHasNews_ = true;
}

void AbilityRegistry::Start(int32_t systemAbilityId, uint64_t serial)
{
    StartedProcess started = SpawnFor(systemAbilityId);
    bool isStarted = started.pidFd.IsOpen();
    Aftermath after;
    {
        MutexLock lock(mutex_);
        Ability& ability = *Find(systemAbilityId);
        --ability.spawning;
        spawned_.notify_all();
        const bool isAwaited = ability.phase == Phase::STARTING && ability.serial == serial;
        isStarted = isStarted && Keep(serial, {systemAbilityId, started.pid, true, !isAwaited}, started);
        if (isStarted) {
            ++ability.starts;
            if (!isAwaited || isStopping_) {
                watch_.Signal(serial, SIGKILL);
            }
        } else if (isAwaited) {
            StartFailed(ability, after);
        }
    }
    Finish(after);
    if (isStarted && !WriteStartRecord(dir_, systemAbilityId, started.pid)) {
        Log(SCRIVO_WARN, "cannot record the start of ability %{public}d", systemAbilityId);
    }
    Log(isStarted ? SCRIVO_INFO : SCRIVO_WARN, "start of ability %{public}d: process %{public}d, %{public}s",
        systemAbilityId, isStarted ? started.pid : 0, std::strerror(started.error));
}

StartedProcess AbilityRegistry::SpawnFor(int32_t systemAbilityId)
try {
    AbilityFile file;
    {
        MutexLock lock(mutex_);
        Ability& ability = *Find(systemAbilityId);
        file = ability.file;
        ability.startedAt = Clock::now();
    }
    return Spawn(file);
} catch (const std::bad_alloc&) {
    return {0, {}, ENOMEM};
}

// False when there is no memory for it: a process that nobody watches is ended at once.
bool AbilityRegistry::Keep(uint64_t serial, const Process& process, StartedProcess& started)
try {
    processes_.emplace(serial, process);
    watch_.Add(serial, started.pid, std::move(started.pidFd), true);
    watchHasNews_ = true;
    return true;
} catch (const std::bad_alloc&) {
    processes_.erase(serial);
    ::kill(-started.pid, SIGKILL);
    ::waitpid(started.pid, nullptr, 0);
    started.error = ENOMEM;
    return false;
}

void AbilityRegistry::StartFailed(Ability& ability, Aftermath& after)
{
    ability.pause = std::clamp(2 * ability.pause, FIRST_PAUSE, LONGEST_PAUSE);
    ability.notBefore = Clock::now() + ability.pause;
    FailWaiters(ability, after);
}

void AbilityRegistry::FailWaiters(Ability& ability, Aftermath& after)
{
    for (const Waiter& waiter : ability.waiters) {
        after.outbox.TellFailed(waiter.callback, ability.file.id);
    }
    ability.waiters.clear();
    ability.phase = Phase::IDLE;
}

void AbilityRegistry::DeadlinePassed(Ability& ability, Aftermath& after)
{
    const int32_t id = ability.file.id;
    switch (ability.phase) {
        case Phase::IDLE:
            break;
        case Phase::PAUSED:
            Want(ability, after);
            break;
        case Phase::STARTING:
            Log(SCRIVO_WARN, "ability %{public}d did not register within 20 s of its start and is ended", id);
            if (const auto process = processes_.find(ability.serial); process != processes_.end()) {
                process->second.isGivenUp = true;
                watch_.Signal(ability.serial, SIGKILL);
            }
            StartFailed(ability, after);
            break;
        case Phase::OWNED:
            Log(SCRIVO_WARN, "the owner of ability %{public}d did not register within 20 s", id);
            FailWaiters(ability, after);
            break;
    }
}

// Nothing in the phases that wait for no process.
void AbilityRegistry::AwaitedProcessEnded(Ability& ability, Aftermath& after)
{
    if (ability.phase == Phase::STARTING) {
        Log(SCRIVO_WARN, "ability %{public}d ended before it registered", ability.file.id);
        StartFailed(ability, after);
    } else if (ability.phase == Phase::OWNED) {
        Want(ability, after);
    }
}

// Runs on the watch's thread.
void AbilityRegistry::ProcessEnded(uint64_t serial)
{
    Aftermath after;
    {
        MutexLock lock(mutex_);
        const auto found = processes_.find(serial);
        const Process process = found->second;
        processes_.erase(found);
        ended_.notify_all();
        SweepSoon();
        Ability& ability = *Find(process.id);
        if (ability.object != nullptr && ability.pid == process.pid) {
            Unregister(ability, after);  // Its death notice is on its way.
        }
        if (ability.serial == serial) {
            AwaitedProcessEnded(ability, after);
        }
    }
    Finish(after);
}

// Runs on the watch's thread. Returns when it has to run again.
AbilityRegistry::Clock::time_point AbilityRegistry::DoWhatIsDue()
{
    const Clock::time_point now = Clock::now();
    Aftermath after;
    Clock::time_point next = Clock::time_point::max();
    bool isSweepDue = false;
    {
        MutexLock lock(mutex_);
        for (auto& [id, ability] : abilities_) {
            if (ability.phase != Phase::IDLE && ability.deadline <= now && !isStopping_) {
                DeadlinePassed(ability, after);
            }
            if (ability.phase != Phase::IDLE && !isStopping_) {
                next = std::min(next, ability.deadline);
            }
        }
        isSweepDue = nextSweep_ <= now;
        if (isSweepDue) {
            nextSweep_ = Clock::time_point::max();
            lastSweep_ = now;
        }
        next = std::min(next, nextSweep_);
    }
    Finish(after);
    if (isSweepDue) {
        RemoveStaleSockets(dir_);
    }
    return next;
}

void AbilityRegistry::SweepSoon()
{
    nextSweep_ = std::min(nextSweep_, std::max(Clock::now(), lastSweep_ + SWEEP_INTERVAL));
    watchHasNews_ = true;
}

void AbilityRegistry::StopServices()
{
    MutexLock lock(mutex_);
    isStopping_ = true;
    const auto isNoneLeft = [this]() TAVO_REQUIRES(mutex_) {
        const auto isStarted = [](const auto& process) { return process.second.isStarted; };
        const auto isSpawning = [](const auto& ability) { return ability.second.spawning > 0; };
        return std::none_of(processes_.begin(), processes_.end(), isStarted) &&
               std::none_of(abilities_.begin(), abilities_.end(), isSpawning);
    };
    SignalStarted(SIGTERM);
    if (!lock.WaitUntil(ended_, Clock::now() + GRACE_TIME, isNoneLeft)) {
        SignalStarted(SIGKILL);
        lock.WaitUntil(ended_, Clock::now() + KILL_TIME, isNoneLeft);
    }
}

void AbilityRegistry::SignalStarted(int signal)
{
    for (const auto& [serial, process] : processes_) {
        if (process.isStarted) {
            watch_.Signal(serial, signal);
        }
    }
}

}  // namespace TAVO::Manager
