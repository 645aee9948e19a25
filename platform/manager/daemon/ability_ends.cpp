// SPDX-License-Identifier: Apache-2.0
// What ends: starts that take too long, processes, and the services when the manager is stopped. The thread of the
// watch runs all of it except StopServices. If memory runs out while an end is handled, it is handled again, so each
// step may run twice.
#include <signal.h>

#include <algorithm>
#include <new>
#include <utility>

#include "manager/client/ability_lock.h"
#include "manager/daemon/ability_registry.h"
#include "manager/daemon/manager_socket.h"
#include "manager/daemon/start_record.h"

namespace TAVO::Manager {
namespace {

// Services are asked to end, then made to; together below a second.
constexpr std::chrono::milliseconds GRACE_TIME{700};
constexpr std::chrono::milliseconds KILL_TIME{200};
// Between two searches for sockets that the dead left behind.
constexpr std::chrono::seconds SWEEP_INTERVAL{5};

const char* const RUN_BY_HAND = "run it by hand with the arguments of its ability file to see why";

}  // namespace

void AbilityRegistry::DeadlinePassed(Ability& ability, Aftermath& after)
{
    switch (ability.phase) {
        case Phase::IDLE:
            break;
        case Phase::PAUSED:
            if (ability.backoff.IsFailing() && !ability.backoff.IsRequested(Clock::now())) {
                ability.phase = Phase::IDLE;  // until the next load
            } else {
                BeginStart(ability, after);
            }
            break;
        case Phase::STARTING:
            if (const auto process = processes_.find(ability.serial); process != processes_.end()) {
                // If it registers in the moment before the signal reaches it, it is refused.
                process->second.isGivenUp = true;
                watch_.Signal(ability.serial, SIGKILL);
            }
            StartFailed(ability, ability.file.program + " did not register within 20 s and was killed", RUN_BY_HAND,
                        after);
            break;
        case Phase::OWNED:
            StartFailed(ability,
                        OwnerOf(ability) + " holds " + dir_.Path() + "/" + AbilityLockName(ability.file.id) +
                            " and did not register within 20 s",
                        "end that process, or look why it does not reach the manager", after);
            break;
    }
}

// Nothing in the phases that wait for no process.
void AbilityRegistry::AwaitedProcessEnded(Ability& ability, const std::string& how, Aftermath& after)
{
    if (ability.phase == Phase::STARTING) {
        if (!ability.file.external) {
            // What it has forked may not register, and each retry would leave one more. The group is its own until it
            // is reaped.
            watch_.Signal(ability.serial, SIGKILL);
        }
        StartFailed(ability, ability.file.program + " ended with " + how + " before it registered", RUN_BY_HAND, after);
    } else if (ability.phase == Phase::OWNED) {
        BeginStart(ability, after);
    }
}

// Runs on the watch's thread.
void AbilityRegistry::ProcessEnded(uint64_t serial, const std::string& how)
{
    Aftermath after;
    {
        MutexLock lock(mutex_);
        const auto found = processes_.find(serial);
        if (found == processes_.end()) {
            return;  // The state is up to date, but the manager ran out of memory while it sent notices.
        }
        const Process process = found->second;
        SweepSoon();
        Ability& ability = *Find(process.id);
        // The process is dead even if a forked child of it keeps the session open.
        if (ability.object != nullptr && ability.pid == process.pid) {
            Unregister(ability, after);  // Its death notice follows.
        }
        if (ability.serial == serial) {
            AwaitedProcessEnded(ability, how, after);
        }
        // Last: if memory runs out before, the end is reported again.
        processes_.erase(serial);
        ended_.notify_all();
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
        // Abilities are few (one file each), so all of them are looked at instead of keeping a list of timers.
        for (auto& [id, ability] : abilities_) {
            if (ability.phase != Phase::IDLE && ability.deadline <= now && !isStopping_) {
                DeadlinePassed(ability, after);
            }
            if (ability.phase != Phase::IDLE && !isStopping_) {
                next = std::min(next, ability.deadline);
            }
        }
        // At most every SWEEP_INTERVAL: the sweep connects to each socket in the folder.
        isSweepDue = nextSweep_ <= now;
        if (isSweepDue) {
            nextSweep_ = Clock::time_point::max();
            lastSweep_ = now;
        }
        if (nextResend_ <= now) {
            nextResend_ = Clock::time_point::max();
            for (const Outbox::Change& change : std::exchange(unsentChanges_, {})) {
                after.outbox.NotifyChanged(change.observer, change.id, change.number);
            }
        }
        next = std::min({next, nextSweep_, nextResend_});
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

// Services of an earlier manager that have not registered with this one, perhaps because they still start.
void AbilityRegistry::AdoptRecorded()
try {
    for (const auto& [systemAbilityId, ability] : abilities_) {
        const pid_t recorded = RecordedProcess(dir_, systemAbilityId);
        const auto isKnown = [recorded](const auto& process) { return process.second.pid == recorded; };
        if (recorded != 0 && std::none_of(processes_.begin(), processes_.end(), isKnown)) {
            Adopt(systemAbilityId, recorded, true);
        }
    }
    watch_.Wake();
} catch (const std::bad_alloc&) {
    return;  // The others are still ended.
}

void AbilityRegistry::StopServices()
{
    MutexLock lock(mutex_);
    // From here on no start, no load and no registration succeeds; starts under way are killed by Start.
    isStopping_ = true;
    AdoptRecorded();
    const auto isNoneLeft = [this]() TAVO_REQUIRES(mutex_) {
        // Processes that were started by hand ("external") are not ended.
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
