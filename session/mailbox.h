// SPDX-License-Identifier: Apache-2.0
// What the threads around a session leave for each other.
#ifndef VELTRA_SESSION_MAILBOX_H
#define VELTRA_SESSION_MAILBOX_H

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "ipc/iveltra_server_interface.h"
#include "snapshot_cell.h"
#include "tavo/mutex.h"
#include "veltra_session.h"

namespace TAVO::Veltra {

using SteadyTime = std::chrono::steady_clock::time_point;

// One report of the game, sent on the session's thread.
struct Report {
    std::function<int32_t(IVeltraServerInterface& service)> send;
    bool isGameInfo = false;  // sent again to each service that returns
};

// What the session's thread woke up for. It may have woken up for nothing.
struct Work {
    bool isStopping = false;
    bool isServiceDead = false;
    bool isLoadAnswered = false;
    bool isEventReceived = false;  // the state of the device has changed
    sptr<IRemoteObject> loaded;    // null: the load has failed
    std::optional<Report> report;  // one at a time, so that a service that hangs loses one only
};

// Shared by the Session, its thread and the objects that the platform calls, and destroyed with the last of them: a
// session's thread may outlive the Session. Any thread; no call leaves this class under the lock.
class Mailbox {
public:
    explicit Mailbox(SessionOptions options);

    const SessionOptions options;  // of sane bounds; without the handler
    const bool hasHandler;
    SnapshotCell latest;  // written by the session's thread

    // For the game's threads.

    bool PostReport(Report report);
    // The oldest event, if one waits or comes by `deadline`.
    std::optional<SessionEvent> TakeEvent(SteadyTime deadline);
    size_t CountEvents() const;
    SessionStatus Status() const;
    DeviceDetails Details() const;
    // From now on nothing is queued.
    void Stop();
    // Whether the session's thread has ended by `deadline`, or as soon as it has left the handler. If false it is
    // abandoned: it does not unsubscribe then, for a later session of this process may have subscribed.
    bool WaitForEnd(SteadyTime deadline);

    // For threads of the platform.

    void PostGameEvent(const GameCallbackEventInfo& info);
    void PostGpuBatch(std::vector<GpuPerfInfo>&& samples);
    void PostDeath(uint64_t connection);
    void PostLoadAnswer(const sptr<IRemoteObject>& loaded);

    // For the session's thread.

    // Waits until there is something to do or `due` is past. Reports are handed out while `canSend` only.
    Work WaitForWork(bool canSend, SteadyTime due);
    void NoteReport(int32_t result);
    // Queues an event if the state changes.
    void SetState(ServiceState state, int32_t result);
    void SetSubscriptions(int32_t eventsResult, int32_t gpuResult);
    // Returns the number of a new connection, for its death notice; notices of other connections are ignored.
    uint64_t BeginConnection();
    void NoteConnection();
    void SetDetails(DeviceDetails details);
    // Calls the handler for each event that waits; those that come meanwhile wait for the next call.
    void Deliver();
    bool IsStopping() const;
    bool IsAbandoned() const;
    void NoteEnd();

private:
    void PostEvent(SessionEvent event) TAVO_REQUIRES(mutex_);
    bool IsEventWaiting() const TAVO_REQUIRES(mutex_) { return !events_.empty() || !batches_.empty(); }
    std::optional<SessionEvent> PopEvent() TAVO_REQUIRES(mutex_);

    mutable Mutex mutex_;
    std::condition_variable workArrived_;    // for the session's thread
    std::condition_variable eventsArrived_;  // for Dispatch
    std::condition_variable hasChanged_;     // for the destructor of the Session
    SessionStatus status_ TAVO_GUARDED_BY(mutex_);
    DeviceDetails details_ TAVO_GUARDED_BY(mutex_);
    std::deque<Report> reports_ TAVO_GUARDED_BY(mutex_);
    std::deque<SessionEvent> events_ TAVO_GUARDED_BY(mutex_);
    std::deque<SessionEvent> batches_ TAVO_GUARDED_BY(mutex_);
    size_t samples_ TAVO_GUARDED_BY(mutex_) = 0;  // of all batches together
    Work news_ TAVO_GUARDED_BY(mutex_);
    SessionHandler handler_ TAVO_GUARDED_BY(mutex_);
    uint64_t connection_ TAVO_GUARDED_BY(mutex_) = 0;  // of the latest BeginConnection
    bool isInHandler_ TAVO_GUARDED_BY(mutex_) = false;
    bool isAbandoned_ TAVO_GUARDED_BY(mutex_) = false;
    bool hasEnded_ TAVO_GUARDED_BY(mutex_) = false;
};

}  // namespace TAVO::Veltra

#endif
