// SPDX-License-Identifier: Apache-2.0
// What this process shares with one other: the parts of a session, and its state.
#ifndef TAVO_TRANSPORT_SESSION_H
#define TAVO_TRANSPORT_SESSION_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <string>

#include "os/fd.h"
#include "tavo/calling_peer.h"
#include "tavo/mutex.h"
#include "transport/call_lane.h"
#include "transport/call_lane_pool.h"
#include "transport/control_channel.h"
#include "transport/held_objects.h"
#include "transport/in_lane_table.h"
#include "transport/lane_opener.h"
#include "transport/message_references.h"
#include "transport/one_way_lane.h"
#include "transport/proxy_table.h"
#include "transport/session_context.h"
#include "wire/byte_budget.h"
#include "wire/wire.h"

namespace TAVO::Transport {

// Begins CONNECTING and ends DEAD, once. Each part has its own lock; no lock is held while another part is called,
// except that a one-way lane is locked during its send, and the table of lanes while it adds one.
class Session {
public:
    using State = SessionState;

    // `path` is where the peer listens, below the runtime directory; `peer` zeros for the manager.
    static std::shared_ptr<Session> Create(SessionHost& host, std::string path, const Instance& peer);
    Session(SessionHost& host, std::string path, const Instance& peer);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    uint64_t Id() const noexcept { return id_; }
    const std::string& Path() const noexcept { return context_.path; }
    State GetState() const noexcept { return context_.State(); }
    const Instance& Peer() const noexcept { return context_.peer; }
    const CallingPeer& Identity() const noexcept { return identity_; }  // set before the session is ESTABLISHED
    SessionHost& Host() noexcept { return context_.host; }
    ByteBudget& Budget() noexcept { return budget_; }

    ControlChannel& Control() noexcept { return control_; }
    HeldObjects& Held() noexcept { return held_; }
    ProxyTable& Proxies() noexcept { return proxies_; }
    MessageReferences& References() noexcept { return references_; }
    InLaneTable& InLanes() noexcept { return inLanes_; }

    // ---- The control thread, or the thread that makes the connection
    // The manager's instance, learned from its hello.
    void SetPeer(const Instance& peer) { context_.peer = peer; }
    // As ControlChannel::SendHello. From then on callers may open lanes.
    ControlChannel::HelloSent SendHello(int fd);
    // Both hellos are exchanged. Sends what is queued, and wakes up waiting callers.
    void Establish(int controlFd, int controlEpoll, void* tag, const PeerIdentity& identity);
    // The end: wakes up all waiting threads, and releases everything. Idempotent. Allocates nothing.
    void End() noexcept;
    // Acts on a record of the peer; false when it breaks the protocol.
    bool OnRecord(const ControlRecord& record);
    // Sends the rest of a one-way request; false while there is still no room.
    bool FlushOneWay(ConnectionKind kind) { return LaneOf(kind).Flush(); }
    // Closes lanes, and ends rings, that are idle since before `before`; true while other idle ones remain.
    bool CloseIdleLanes(Clock::time_point before);

    // ---- Any thread
    // Returns once the session is no longer CONNECTING, or `deadline` has passed.
    State WaitEstablished(Deadline deadline);
    // Sends a request and waits for its reply.
    int Call(const CallRequest& request);
    // Sends a one-way request or, with NOTICE_LANE, a notice. Waits until `deadline` for the first contact with the
    // peer, and for nothing else. `place`: as OneWayLane::Send.
    int SendOneWay(ConnectionKind kind, uint64_t serial, uint32_t code, MessageParcel& data, Deadline deadline,
                   MessagePlace& place);

    // The manager let a call, or the first contact, time out: it counts as absent until it answers.
    void Suspect();
    bool IsSuspect() const noexcept { return isSuspect_.load(std::memory_order_relaxed); }

private:
    OneWayLane& LaneOf(ConnectionKind kind) noexcept { return kind == ConnectionKind::NOTICE_LANE ? notice_ : oneWay_; }
    // Waits until lanes may be opened: after our hello, also before its answer, since the peer reads them in order.
    bool WaitForLanes(Deadline deadline);
    void NotifyChanged();
    bool OnRing(LaneKey lane, uint64_t descriptor);

    const uint64_t id_;
    SessionContext context_;  // first: the parts refer to it
    CallingPeer identity_{};
    ByteBudget budget_;
    ControlChannel control_;
    HeldObjects held_;
    ProxyTable proxies_;
    MessageReferences references_;
    LaneOpener opener_;
    CallLanePool callLanes_;
    OneWayLane oneWay_;
    OneWayLane notice_;
    InLaneTable inLanes_;

    std::atomic<bool> isSuspect_{false};
    Mutex mutex_;                      // taken for every change of the state: a waiting thread must not miss one
    std::condition_variable changed_;  // the state, or our hello was sent
};

}  // namespace TAVO::Transport

#endif
