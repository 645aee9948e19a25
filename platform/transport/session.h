// SPDX-License-Identifier: Apache-2.0
// What this process shares with one other: the control connection's sending side, the lanes, and who holds what.
#ifndef TAVO_TRANSPORT_SESSION_H
#define TAVO_TRANSPORT_SESSION_H

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "os/fd.h"
#include "tavo/calling_peer.h"
#include "tavo/ipc_object_stub.h"
#include "tavo/mutex.h"
#include "transport/call_lane.h"
#include "wire/byte_budget.h"
#include "wire/wire.h"

namespace TAVO::Transport {

class InLane;
class ProxyObject;

// A lane as both ends name it: who opened it, and the number that the opener drew.
struct LaneKey {
    bool own = false;  // opened by this process
    uint64_t number = 0;

    auto operator<=>(const LaneKey& other) const = default;
};

// A message of a lane of ours.
struct LanePlace {
    uint64_t lane = 0;  // 0: none
    uint64_t number = 0;
};

// Posts the acknowledgement of a message's references when the last of them is settled.
class TakenTicket;

class Session : public std::enable_shared_from_this<Session> {
public:
    enum class State { CONNECTING, UP, DEAD };

    static constexpr size_t MAX_LANES = 64;  // call lanes, each way
    static constexpr size_t MAX_ONE_WAY_LANES =
        4;                                        // of the peer: one for requests, one for notices, each perhaps twice
    static constexpr size_t MAX_PASSED = 4096;    // messages with references, each way, not yet acknowledged
    static constexpr size_t MAX_OBJECTS = 65536;  // references held, each way
    static constexpr size_t MAX_UNSENT_BYTES = size_t{1} << 20;

    // `path` is where the peer listens, below the runtime directory.
    explicit Session(std::string path);
    ~Session();

    uint64_t Id() const noexcept { return id_; }
    const std::string& Path() const noexcept { return path_; }
    State GetState() const noexcept { return state_.load(std::memory_order_acquire); }
    const Instance& Peer() const noexcept { return peer_; }  // set before the session is UP
    const CallingPeer& Identity() const noexcept { return identity_; }
    ByteBudget& Budget() noexcept { return budget_; }

    // ---- the control thread, or who makes the connection
    void SetPeer(const Instance& peer) { peer_ = peer; }
    // The control connection stands: what waited is sent and callers go on.
    void ComeUp(int controlFd, int controlEpoll, void* tag, const PeerIdentity& identity);
    // The peer called us. False when our own call, which is on its way, `prevails`; else ours comes too late now.
    bool GiveWay(bool prevails);
    // The peer refused our call: it has called us, or will.
    void TakeHelloBack();
    // The connection is about to be closed.
    void ForgetConnection(int fd);
    // Everything that ends with the session; idempotent.
    void Die() noexcept;
    // Sends what could not be sent before; false when the connection is broken.
    bool FlushControl();
    // Acts on a record of the peer; false when it breaks the protocol.
    bool OnRecord(const ControlRecord& record);
    // Sends the rest of a one-way request that the socket took in part; false while there is still no room.
    bool FlushOneWay(ConnectionKind kind);
    // Closes lanes, and ends rings, that have been idle since before `before`; true while others remain.
    bool CloseIdleLanes(Clock::time_point before);

    // ---- any thread
    // Says hello on a new control connection to the peer. False with errno set; EALREADY: the peer was quicker.
    bool SayHello(int fd);
    State WaitUp(Deadline deadline);
    // Waits until it is known whether the peer still has the object of a pending proxy.
    void WaitSettled(const ProxyObject& proxy, Deadline deadline);
    void Post(const ControlRecord& record);

    // Calls (call_lane.cpp, one_way_lane.cpp). The serial is the peer's object's; `kind` REQUEST, or FIRST_REQUEST for
    // an object that is not known to be acquired yet.
    int Call(FrameKind kind, uint64_t serial, uint32_t code, MessageParcel& data, MessageParcel& reply,
             Deadline deadline);
    // `sent` becomes the place of the request in its lane when it was sent, under the lane's lock.
    int SendOneWay(ConnectionKind kind, uint64_t serial, uint32_t code, MessageParcel& data, Deadline deadline,
                   LanePlace& sent);

    // Whether the peer may open one more call lane. If not, the session notifies the control thread once it may.
    bool HasRoomForCallLane();
    // Adds a lane that the peer opened. False if there are too many, or the session is not established; the peer is notified.
    bool AddInLane(const std::shared_ptr<InLane>& lane);
    // Notifies the peer that no message was received from its lane.
    void RefuseLane(uint64_t number) { Post({RecordType::LANE_CLOSED, 0, number, 0}); }
    // The lane takes no message after `lastTaken`.
    void RemoveInLane(const std::shared_ptr<InLane>& lane, uint64_t lastTaken);

    // ---- references
    // One of our objects that the peer holds; null otherwise.
    sptr<IPCObjectStub> FindHeld(uint64_t serial);
    // The same for one-way message `number` of the peer's `lane`; counts given back behind it go now.
    sptr<IPCObjectStub> FindOneWayTarget(InLane& lane, uint64_t number, uint64_t serial);
    // Appends the reference table for message `number` of `lane` to `data` and raises the counts. An IpcStatus. Waits
    // until `deadline` for an object of the peer's that is not yet acquired from it.
    int PassReferences(LaneKey lane, uint64_t number, MessageParcel& data, FrameHeader& header, Deadline deadline);
    // Cuts the table off `data` (a received body) and puts the objects in its place, strong. False: refused whole.
    bool TakeReferences(LaneKey lane, const FrameHeader& header, MessageParcel& data);
    // Counts the tickets of the peer's messages.
    void BeginTicket() noexcept { openTickets_.fetch_add(1); }
    void EndTicket() noexcept { openTickets_.fetch_sub(1); }
    // A proxy for the peer's object, with one more count. Null: too many.
    sptr<ProxyObject> AddReceived(uint64_t serial, const std::u16string& descriptor);
    // A proxy for the peer's object that a third process named; acquired from the peer unless we hold it already.
    sptr<ProxyObject> Acquire(uint64_t serial, const std::u16string& descriptor,
                              const std::shared_ptr<TakenTicket>& ticket);
    // The root object of a manager: never counted.
    sptr<ProxyObject> RootProxy();
    // The last reference of `proxy` is gone: its counts go back.
    void Forget(ProxyObject* proxy, uint64_t serial);

    // The manager let a call, or the first contact, time out: it counts as absent until it answers.
    void SuspectPeer();
    // Whether the kernel says that the connection has ended, noticed or not.
    bool HasHungUp();
    bool IsSuspect() const noexcept { return suspect_.load(std::memory_order_relaxed); }

private:
    struct Held {
        sptr<IPCObjectStub> object;
        uint64_t count = 0;
        uint64_t deferred = 0;  // of them, what the peer has released after messages to come
    };
    struct Passed {                                 // one message's references until it is taken
        std::vector<uint64_t> raised;               // our serials, one count each
        std::vector<sptr<IRemoteObject>> borrowed;  // others' objects, kept alive
    };
    struct Acquiring {
        sptr<ProxyObject> proxy;
        std::vector<std::shared_ptr<TakenTicket>> tickets;
    };
    struct PeerLane {
        std::shared_ptr<InLane> lane;
        bool peerClosed = false;
    };
    struct Deferred {  // a RELEASE that waits for a one-way message
        uint64_t number;
        uint64_t serial;
        uint64_t count;
    };
    // References to be dropped after the lock; the first takes no memory.
    struct Leftovers {
        sptr<IRemoteObject> first;
        std::vector<sptr<IRemoteObject>> others;

        void Add(sptr<IRemoteObject> object)
        {
            if (first == nullptr) {
                first = std::move(object);
            } else {
                others.push_back(std::move(object));
            }
        }
    };

    std::shared_ptr<CallLane> TakeLane(Deadline deadline, int& status);
    std::shared_ptr<CallLane> TakeIdleLane() TAVO_REQUIRES(mutex_);
    std::shared_ptr<CallLane> OpenLane(Deadline deadline, int& status);
    void ReturnLane(const std::shared_ptr<CallLane>& lane, Clock::time_point usedAt);
    void DropLane(const std::shared_ptr<CallLane>& lane);
    // Waits until lanes may be opened: from our hello on, if we called, before its answer.
    bool WaitForLanes(Deadline deadline);
    ConnectionFd Connect(ConnectionKind kind, uint64_t number, Clock::duration timeout, int& status);
    bool AddOwnLane(uint64_t number);
    void CloseOwnLane(uint64_t number, uint64_t lastReplyTaken);
    int TransportError(IoStatus status) const;
    int OpenOneWay(OneWayLane& lane, ConnectionKind kind) TAVO_REQUIRES(lane.mutex);
    void CloseOneWay(OneWayLane& lane) TAVO_REQUIRES(lane.mutex);
    // Sends a request: through the ring if there is one, and then whole or not at all.
    static IoResult PutOneWay(OneWayLane& lane, const void* frame, size_t size) TAVO_REQUIRES(lane.mutex);
    static bool GoIntoRing(OneWayLane& lane) TAVO_REQUIRES(lane.mutex);

    sptr<ProxyObject> FindProxy(uint64_t serial) TAVO_REQUIRES(mutex_);
    sptr<ProxyObject> MakeProxy(uint64_t serial, const std::u16string& descriptor, bool alive) TAVO_REQUIRES(mutex_);
    // Takes back what was passed in a message of which nothing has left.
    void Withdraw(LaneKey lane, uint64_t number);
    void TakeBack(Passed& passed, Leftovers& leftovers) TAVO_REQUIRES(mutex_);
    bool LowerHeld(uint64_t serial, uint64_t count, Leftovers& leftovers) TAVO_REQUIRES(mutex_);
    bool OnRelease(uint64_t serial, uint64_t count);
    void ApplyDeferred(uint64_t lane, uint64_t lastTaken, Leftovers& leftovers) TAVO_REQUIRES(mutex_);
    void OnAcquire(uint64_t serial);
    bool OnAcquired(uint64_t serial, bool gone);
    void OnTaken(LaneKey lane, uint64_t number);
    void OnLaneClosed(LaneKey lane, uint64_t lastTaken);
    bool OnRing(LaneKey lane, uint64_t fd);
    void PostRelease(uint64_t serial, uint64_t received, const LanePlace& lastOneWay);
    void ForgetConnectionLocked() TAVO_REQUIRES(controlMutex_);
    void PostLocked(const ControlRecord& record) TAVO_REQUIRES(controlMutex_);
    void EndControlLocked() TAVO_REQUIRES(controlMutex_);
    bool FlushControlLocked() TAVO_REQUIRES(controlMutex_);
    bool HasOneWayInLane() const TAVO_REQUIRES(mutex_);
    bool IsLaneOpen(LaneKey lane) const TAVO_REQUIRES(mutex_);

    const uint64_t id_;
    const std::string path_;
    Instance peer_;
    CallingPeer identity_{};
    std::atomic<State> state_{State::CONNECTING};
    std::atomic<bool> hasSaidHello_{false};  // lanes may follow: the peer reads them after it
    std::atomic<bool> suspect_{false};
    std::atomic<size_t> openTickets_{0};  // messages of the peer with references that are not acknowledged yet
    ByteBudget budget_;

    Mutex mutex_;                      // everything up to the next mutex; nothing is called or sent under it
    std::condition_variable changed_;  // state_ or callLanes_ changed
    std::vector<std::shared_ptr<CallLane>> callLanes_ TAVO_GUARDED_BY(mutex_);  // all, idle or not
    std::vector<std::shared_ptr<CallLane>> idleLanes_ TAVO_GUARDED_BY(mutex_);  // last used last
    size_t openingLanes_ TAVO_GUARDED_BY(mutex_) = 0;
    std::unordered_map<uint64_t, bool> ownLanes_ TAVO_GUARDED_BY(mutex_);  // by number: whether the peer closed it
    std::unordered_map<uint64_t, PeerLane> inLanes_ TAVO_GUARDED_BY(mutex_);
    size_t inCallLanes_ TAVO_GUARDED_BY(mutex_) = 0;                   // of them
    bool awaitsRoom_ TAVO_GUARDED_BY(mutex_) = false;                  // a call lane waits until there are fewer
    std::unordered_map<uint64_t, Held> held_ TAVO_GUARDED_BY(mutex_);  // ours, by serial
    std::unordered_map<uint64_t, ProxyObject*> proxies_ TAVO_GUARDED_BY(mutex_);  // the peer's, by serial
    std::unordered_map<uint64_t, Acquiring> acquiring_ TAVO_GUARDED_BY(mutex_);
    std::unordered_map<uint64_t, std::vector<Deferred>> deferred_ TAVO_GUARDED_BY(mutex_);  // by the peer's lane
    uint64_t lastEndedLane_ TAVO_GUARDED_BY(mutex_) = 0;  // of the peer's one-way lanes, the highest number
    std::map<std::pair<LaneKey, uint64_t>, Passed> passed_ TAVO_GUARDED_BY(mutex_);

    Mutex controlMutex_;                                    // the sending side of the control connection
    int controlFd_ TAVO_GUARDED_BY(controlMutex_) = -1;     // -1: neither our hello nor an answer is said, or dead
    int controlEpoll_ TAVO_GUARDED_BY(controlMutex_) = -1;  // to ask for writability; -1: not up
    void* controlTag_ TAVO_GUARDED_BY(controlMutex_) = nullptr;
    std::vector<uint8_t> unsent_ TAVO_GUARDED_BY(controlMutex_);
    size_t saidEarly_ TAVO_GUARDED_BY(controlMutex_) = 0;      // of unsent_, behind our hello, before its answer
    bool asksForRoom_ TAVO_GUARDED_BY(controlMutex_) = false;  // of the epoll, to send the rest
    bool isBroken_ TAVO_GUARDED_BY(controlMutex_) = false;     // something could not be said
    bool hasGivenWay_ TAVO_GUARDED_BY(controlMutex_) = false;

    LaneKey releaseAfterLane_;         // control thread only: from AFTER, for the next RELEASE
    uint64_t releaseAfterNumber_ = 0;  // 0: none

    std::atomic<uint64_t> nextLane_{1};
    OneWayLane oneWay_;
    OneWayLane notice_;
};

}  // namespace TAVO::Transport

#endif
