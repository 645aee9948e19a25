// SPDX-License-Identifier: Apache-2.0
// Starts services on demand. Each ability has at most one process under way, and none is started while a living process
// owns its lock. The clients that requested the first start wait for its outcome. Once a start has failed, loads are
// refused and the manager starts the service again by itself, after growing pauses, as long as clients request it.
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "manager/client/ability_lock.h"
#include "manager/client/manager_log.h"
#include "manager/daemon/ability_registry.h"
#include "manager/daemon/manager_socket.h"
#include "manager/daemon/pidfd.h"
#include "manager/daemon/start_record.h"
#include "os/process_lock.h"

namespace TAVO::Manager {
namespace {

using std::chrono::seconds;

// How long a process may take from its start to its registration.
constexpr seconds START_TIME{20};
// How long a process that was refused may take to release its lock.
constexpr seconds LOCK_RETURN_TIME{1};

std::string RemedyOf(int error, const AbilityFile& file)
{
    if (error == EMFILE || error == ENFILE) {
        return "raise the limit of open files (ulimit -n)";
    }
    if (error == ENOMEM || error == EAGAIN) {
        return "free memory or raise the limit of processes (ulimit -u)";
    }
    if (error == EACCES) {
        return "make the program executable (chmod +x), and its folders accessible, or correct \"program\" in " +
               file.path;
    }
    return "install the program or correct \"program\" in " + file.path;
}

}  // namespace

bool AbilityRegistry::Begin()
{
    // Processes may have died while no manager ran.
    RemoveStaleSockets(dir_);
    return watch_.Begin([this](uint64_t serial, const std::string& how) { ProcessEnded(serial, how); },
                        [this] { return DoWhatIsDue(); });
}

// A client requests the ability, which does not run and is not being started. Leaves phase IDLE.
void AbilityRegistry::BeginStart(Ability& ability, Aftermath& after)
{
    const pid_t holder = Transport::ProcessLock::Holder(dir_.Fd(), AbilityLockName(ability.file.id));
    if (holder == Transport::ProcessLock::CANNOT_TELL) {
        // Before the strings below are built: allocation may change errno.
        const int reason = errno;
        StartFailed(
            ability, "its lock " + dir_.Path() + "/" + AbilityLockName(ability.file.id) + ": " + std::strerror(reason),
            reason == EMFILE || reason == ENFILE ? RemedyOf(reason, ability.file)
                                                 : "make it a regular file that this user may write, or remove it",
            after);
        return;
    }
    // Never two processes for one ability, also after a restart of the manager.
    if (AwaitOwner(ability, holder)) {
        return;
    }
    // A start blocks as long as the file system of the program does not answer. A second one would block the watch.
    if (ability.spawning > 0) {
        StartFailed(ability, "an earlier start of " + ability.file.program + " has not returned",
                    "look why its file system does not answer", after);
        return;
    }
    // The serial names this start. Whatever is reported for an earlier one is recognised by its number and ignored.
    after.starts.emplace_back(ability.file.id, ++lastSerial_);
    Enter(ability, Phase::STARTING, lastSerial_, Clock::now() + START_TIME);
}

// True when a living process holds the ability's lock, or was started by a manager before this one and has not taken
// it yet: it will register, so there is nothing to start.
bool AbilityRegistry::AwaitOwner(Ability& ability, pid_t holder)
{
    const int32_t id = ability.file.id;
    const bool isHeld = holder != Transport::ProcessLock::NOBODY;
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
        // A process of an earlier manager. It is no child of this one, so it is watched by a pidfd instead of waitpid.
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

// For a log line.
std::string AbilityRegistry::OwnerOf(const Ability& ability)
{
    const auto awaited = processes_.find(ability.serial);
    return awaited != processes_.end() ? "process " + std::to_string(awaited->second.pid)
                                       : "a process of another system";
}

// A process may not register. If it is the one that is awaited, it will not do so later either, and releases its lock.
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
    Transport::UniqueFd pidFd = Transport::OpenPidFd(pid);
    // The pid may have been used again between the record and pidfd_open. With the pidfd open it cannot be any more, so
    // the check comes after it.
    const bool isSame = Transport::ProcessLock::Holder(dir_.Fd(), AbilityLockName(systemAbilityId)) == pid ||
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

// Returns whether there is a process now.
bool AbilityRegistry::Start(int32_t systemAbilityId, uint64_t serial)
{
    // Without the lock: posix_spawn returns only when the child has called execve, about a millisecond later, or much
    // later if the file system does not answer, and clients keep asking meanwhile.
    const Clock::time_point begin = Clock::now();
    StartedProcess started = SpawnFor(systemAbilityId);
    bool isStarted = started.pidFd.IsOpen();
    Aftermath after;
    {
        MutexLock lock(mutex_);
        Ability& ability = *Find(systemAbilityId);
        --ability.spawning;
        spawned_.notify_all();
        // False if the deadline has passed or the manager ends: then the new process is of no use and is killed.
        const bool isAwaited = ability.phase == Phase::STARTING && ability.serial == serial && !isStopping_;
        isStarted = isStarted && Keep(serial, {systemAbilityId, started.pid, true, !isAwaited}, started);
        if (isStarted) {
            ++ability.starts;
            ability.startedAt = begin;
            if (!isAwaited) {
                watch_.Signal(serial, SIGKILL);
            }
        } else if (isAwaited) {
            StartFailed(ability, ability.file.program + ": " + std::strerror(started.error),
                        RemedyOf(started.error, ability.file), after);
        }
    }
    Finish(after);
    if (!isStarted) {
        return false;
    }
    Log(SCRIVO_INFO, "start of ability %{public}d: process %{public}d", systemAbilityId, started.pid);
    if (!WriteStartRecord(dir_, systemAbilityId, started.pid)) {
        Log(SCRIVO_WARN,
            "cannot write %{public}s/%{public}d.started: %{public}s. A later manager will not recognise "
            "process %{public}d; free space in that directory and restart the service",
            dir_.Path().c_str(), systemAbilityId, std::strerror(errno), started.pid);
    }
    return true;
}

StartedProcess AbilityRegistry::SpawnFor(int32_t systemAbilityId)
try {
    AbilityFile file;
    {
        MutexLock lock(mutex_);
        Ability& ability = *Find(systemAbilityId);
        // A registration that arrives before posix_spawn has returned waits until this is 0 again: only then is the
        // pid known. Counted here and not in BeginStart: after that, the manager may run out of memory before Start.
        ++ability.spawning;
        if (isStopping_) {
            return {0, {}, ECANCELED};
        }
        file = ability.file;
    }
    return Spawn(file);
} catch (const std::bad_alloc&) {
    return {0, {}, ENOMEM};
}

// False when there is no memory for it: a process that is not watched is ended at once.
bool AbilityRegistry::Keep(uint64_t serial, const Process& process, StartedProcess& started)
try {
    processes_.emplace(serial, process);
    watch_.Add(serial, started.pid, std::move(started.pidFd), true);
    watchHasNews_ = true;
    return true;
} catch (const std::bad_alloc&) {
    processes_.erase(serial);
    // The whole group: a program may be a shell script that has started others.
    ::kill(-started.pid, SIGKILL);
    ::waitpid(started.pid, nullptr, 0);
    started.error = ENOMEM;
    return false;
}

// The line is the same for each attempt, so that the log folds repetitions.
void AbilityRegistry::StartFailed(Ability& ability, const std::string& what, const std::string& remedy,
                                  Aftermath& after)
{
    Log(SCRIVO_WARN,
        "cannot start ability %{public}d: %{public}s (ability file %{public}s); %{public}s. Loads are refused; the "
        "manager tries again by itself",
        ability.file.id, what.c_str(), ability.file.path.c_str(), remedy.c_str());
    ability.failure = what + "; " + remedy;
    // The clients of the first start learn of the failure at once instead of after 10 s.
    for (const Waiter& waiter : ability.waiters) {
        after.outbox.NotifyFailed(waiter.callback, ability.file.id);
    }
    ability.waiters.clear();
    ability.backoff.Failed(Clock::now());
    Enter(ability, Phase::PAUSED, 0, ability.backoff.NextTry());
}

}  // namespace TAVO::Manager
