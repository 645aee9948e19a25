// SPDX-License-Identifier: Apache-2.0
// The one thread that reads all control connections, accepts all connections, and keeps the time.
#ifndef TAVO_TRANSPORT_CONTROL_THREAD_H
#define TAVO_TRANSPORT_CONTROL_THREAD_H

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "os/fd.h"
#include "os/wait_set.h"
#include "tavo/mutex.h"
#include "transport/peer_lane.h"
#include "transport/session.h"
#include "wire/wire.h"

namespace TAVO::Transport {

class ControlLink;
class Listener;
class PendingConnection;

// What becomes of a connection whose hello is complete.
enum class HelloResult {
    SETTLED,
    AWAITS_SESSION,  // a lane whose session is being established
    AWAITS_ROOM,     // a call lane of a peer that has as many as it may have
};

// Something that the control thread waits for.
class Pollable {
public:
    virtual ~Pollable() = default;
    virtual void OnReady(uint32_t events) = 0;
};

// Never runs user code, takes no lock that user code can hold, never blocks. Started at its first use.
class ControlThread {
public:
    ControlThread();
    ~ControlThread();

    // ---- any thread
    // Calls the peer of a session that is CONNECTING; it comes up or dies. Does not wait: the answer is awaited by this
    // thread.
    void Connect(const std::shared_ptr<Session>& session);
    // The same with the manager, but waits for the answer until `deadline`: the first use of the platform waits for
    // nothing else, least of all for a thread to start. What is not that simple is left to this thread.
    void ConnectManager(const std::shared_ptr<Session>& session, Deadline deadline);
    // Whether the process `pid` may have the connection `fd`, with which there are `sessions` sessions; 0: not known yet.
    // Called on the control thread.
    using Admission = std::function<bool(int pid, int fd, size_t sessions)>;
    // Accepts connections on `fd` from now on; false when the thread cannot be started. A process that `admission` (may be
    // empty) does not admit sees its connection closed.
    bool Listen(UniqueFd fd, Admission admission = nullptr);
    // Has a lane look at its socket again in a moment, when the byte budget may allow more.
    void RetryLater(const std::shared_ptr<PeerLane>& lane);
    // Ends the lane when its peer has not finished a message in time.
    void WatchDeadline(const std::shared_ptr<PeerLane>& lane);
    // Sends the rest of a one-way request as soon as there is room. False without memory.
    bool FlushLater(const std::shared_ptr<Session>& session, ConnectionKind kind);
    // A session has room for another lane: those that wait are looked at again. False without memory.
    bool RetryWaitingLanes();
    // Some session has an idle lane, to be closed after a while.
    void ExpectIdleLanes();
    // The last free worker is about to take work: when more comes for them, another is started. The first request would
    // have to wait for one that is started in advance. False when that cannot be.
    bool WatchWorkers() noexcept;

    // ---- the control thread, from its pollables
    int Epoll() const noexcept { return wait_.Epoll(); }
    // Waits for events on `fd` until RemovePoll, which is called before the pollable goes. False when the kernel has no
    // memory for that: nothing will come of the connection.
    bool AddPoll(int fd, uint32_t events, Pollable* pollable);
    void RemovePoll(int fd, Pollable* pollable);
    // The hello of a connection is complete. SETTLED: takes the descriptor, or the connection is to be closed. Otherwise the
    // connection is kept and offered again.
    HelloResult OnHello(ConnectionFd& fd, const Hello& hello, const PeerIdentity& identity);
    void OnAnswer(ControlLink& link, const Hello& answer);
    void OnAccepted(ConnectionFd fd);
    // It became what it is, or nothing.
    void OnConnectionSettled(PendingConnection* connection);
    // The connection or the process at its other end has ended. Acted on once all that was there at that time is read.
    void OnEnd(ControlLink& link);
    // What connected before its process ended is taken in before the end is acted on: what was sent one-way is run.
    void TakeInWhatWaits();
    // No descriptor or memory for accepting: the listener rests for a moment. Needs no memory.
    void RestListener(Listener& listener) noexcept;

private:
    friend class ControlLink;

    struct Retry {
        std::shared_ptr<Session> session;
        Clock::time_point giveUp;
    };
    enum class DialFailure {
        BUSY,            // the queue of the peer's listener is full
        PEER_WAS_FIRST,  // the connection that the peer opened is used
        REFUSED,
    };
    struct Dialed {
        std::unique_ptr<ControlLink> link;  // the hello is sent; null: `failure` is the reason
        DialFailure failure;
    };
    // A connection that is being made, or waits to be adopted.
    class Dialing {
    public:
        explicit Dialing(std::atomic<int>& count) : count_(count) { ++count_; }
        ~Dialing() { --count_; }
        Dialing(const Dialing&) = delete;
        Dialing& operator=(const Dialing&) = delete;

    private:
        std::atomic<int>& count_;
    };

    // A flag that is set until its scope ends.
    class Raised {
    public:
        explicit Raised(bool& flag) : flag_(flag), before_(std::exchange(flag, true)) {}
        ~Raised() { flag_ = before_; }
        Raised(const Raised&) = delete;
        Raised& operator=(const Raised&) = delete;

    private:
        bool& flag_;
        const bool before_;
    };

    void Own(std::unique_ptr<Pollable>&& pollable);
    void Disown(Pollable* pollable);
    bool Open() TAVO_REQUIRES(mutex_);
    bool Start() TAVO_REQUIRES(mutex_);
    bool Post(std::function<void()> job) noexcept;
    void Run();
    void RunJobs();
    // Waits for events, at most so long, and acts on them.
    void Turn(int milliseconds);
    // The end of a session.
    void TearDown(ControlLink& link);
    int TickMilliseconds() const;
    void OnTick(Clock::time_point now);
    void Connect(const std::shared_ptr<Session>& session, Clock::time_point giveUp);
    Dialed Dial(const std::shared_ptr<Session>& session);
    void NotDialed(const std::shared_ptr<Session>& session, DialFailure failure, Clock::time_point giveUp);
    // Gives a link on which hello was said to this thread; with the `answer` that lies there the session comes up now.
    void HandOver(std::unique_ptr<ControlLink> dialed, const Hello* answer, std::shared_ptr<Dialing> dialing);
    void Adopt(std::unique_ptr<ControlLink> link);
    void TryConnect(const Retry& retry);
    void Establish(const std::shared_ptr<Session>& session, ConnectionFd fd, const PeerIdentity& identity);
    void AcceptControl(ConnectionFd& fd, const Hello& hello, const PeerIdentity& identity);
    HelloResult AcceptLane(ConnectionFd& fd, const Hello& hello, const PeerIdentity& identity);
    // Lanes of that peer which wait for their session or for room in it, and whose callers still wait too.
    size_t CountWaitingLanes(const Instance& peer) const;
    // Lets the peer know that nothing was taken from a lane of its that is about to be closed.
    void RefuseLane(const Hello& hello, const PeerIdentity& identity);
    // Starts or resumes accepting; without memory the listener rests.
    void ResumeListener(Listener& listener);
    // Waits for what the link brings. False, and its session is dead, when that cannot be.
    bool AddLink(std::unique_ptr<ControlLink> link);
    // A session that comes to nothing, or has ended.
    void Abandon(const std::shared_ptr<Session>& session);
    ControlLink* LinkOf(const Session* session) const;
    void RetryParked();
    // Reads the hellos that have come since their connections were accepted.
    void ReadHellos();

    WaitSet wait_{WaitSet::Jobs::ALL};
    Mutex mutex_;
    bool isRunning_ TAVO_GUARDED_BY(mutex_) = false;
    std::vector<std::function<void()>> jobs_ TAVO_GUARDED_BY(mutex_);
    std::atomic<bool> expectsIdleLanes_{false};
    std::atomic<int> dialing_{0};

    const std::unique_ptr<Pollable> waitingWork_;

    // The rest belongs to the control thread alone.
    std::vector<std::function<void()>> jobsInHand_;  // not empty between turns: one lacked memory, and is done again
    size_t jobsDone_ = 0;                            // of them
    std::unordered_set<const Pollable*> polled_;
    std::unordered_map<const Pollable*, std::unique_ptr<Pollable>> owned_;
    std::vector<std::unique_ptr<Pollable>> disowned_;  // until the events in hand are done
    std::vector<Listener*> listeners_;
    Admission admission_;             // empty: all
    std::vector<ControlLink*> ends_;  // noticed
    std::vector<ControlLink*> due_;   // noticed in an earlier turn: acted on at the end of this one
    bool isTakingIn_ = false;
    bool isReadingHellos_ = false;
    std::unordered_map<const Session*, ControlLink*> links_;
    std::vector<PendingConnection*> pending_;  // in the order of acceptance
    std::vector<Retry> connecting_;            // to try again: the peer's queue was full
    std::vector<Retry> expected_;              // the peer said that its connection is on its way
    std::vector<std::weak_ptr<PeerLane>> watched_;
    std::vector<std::shared_ptr<PeerLane>> stalled_;
    std::vector<std::pair<std::weak_ptr<Session>, ConnectionKind>> flushing_;
    bool hasResting_ = false;  // listeners that found no descriptor or memory left
    Clock::time_point restingUntil_;
    bool retriesParked_ = false;  // a session was established or has room again: lanes may have waited for that
    Clock::time_point nextIdleSweep_;
};

}  // namespace TAVO::Transport

#endif
