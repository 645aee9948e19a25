// SPDX-License-Identifier: Apache-2.0
// Connections that peers open: control connections and lanes.
#ifndef TAVO_TRANSPORT_ACCEPTOR_H
#define TAVO_TRANSPORT_ACCEPTOR_H

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

#include "transport/connector.h"
#include "transport/delivery_thread.h"
#include "transport/event_loop.h"
#include "transport/in_lane.h"
#include "transport/listener.h"
#include "transport/pending_connection.h"
#include "transport/session_links.h"
#include "transport/session_table.h"

namespace TAVO::Transport {

class Acceptor final : public LoopPart, private Listener::Owner, private PendingConnection::Owner {
public:
    // Whether the process `pid` may have the connection `fd`, with which there are `sessions` sessions; 0: not known
    // yet. Called on the control thread.
    using Admission = std::function<bool(int pid, int fd, size_t sessions)>;

    Acceptor(EventLoop& loop, SessionLinks& links, SessionTable& sessions, Connector& connector,
             DeliveryThread& delivery, const LaneServices& services)
        : loop_(loop),
          links_(links),
          sessions_(sessions),
          connector_(connector),
          delivery_(delivery),
          services_(services)
    {
    }

    // ---- Any thread
    // Accepts connections on `fd` from now on; false when the control thread cannot be started. The connection of a
    // process that `admission` (may be empty) does not admit is closed.
    bool Listen(UniqueFd fd, Admission admission = nullptr);
    // A session has room for another lane: those that wait are offered again. False if out of memory.
    bool RetryWaitingLanes();

    // ---- Control thread
    // A session was established: lanes may have waited for it.
    void OnEstablished() { hasNews_ = true; }
    // Accepts connections and reads hellos that have arrived before the end of a session is acted on.
    void AcceptAll();
    int TickMilliseconds() const override;
    void OnTick(Clock::time_point now) override;

private:
    void OnAccepted(ConnectionFd fd) override;
    void OnShortage(Listener& listener) noexcept override;
    HelloResult OnHello(ConnectionFd& fd, const Hello& hello, const PeerIdentity& identity) override;
    void OnSettled(PendingConnection& connection) override;

    void Resume(Listener& listener);
    PendingConnection* AddPending(ConnectionFd fd, const PeerIdentity& identity);
    // Reads the hellos that have arrived since their connections were accepted.
    void ReadHellos();
    void OfferWaiting();

    // acceptor_hello.cpp
    void AcceptControl(ConnectionFd& fd, const Hello& hello, const PeerIdentity& identity);
    bool IsAdmitted(ConnectionFd& fd, const Hello& hello, const PeerIdentity& identity);
    void Establish(const std::shared_ptr<Session>& session, ConnectionFd fd, const PeerIdentity& identity);
    HelloResult AcceptLane(ConnectionFd& fd, const Hello& hello, const PeerIdentity& identity);
    void ServeLane(ConnectionFd& fd, const Hello& hello, const std::shared_ptr<Session>& session);
    std::shared_ptr<Session> FindEstablished(const Instance& peer);
    // Lanes of that peer which wait for their session or for room in it, and whose callers still wait too.
    size_t CountWaitingLanes(const Instance& peer) const;
    // If the connection is a lane: notifies the peer that nothing was accepted from it. It is about to be closed.
    void RefuseLane(PendingConnection& connection);

    EventLoop& loop_;
    SessionLinks& links_;
    SessionTable& sessions_;
    Connector& connector_;
    DeliveryThread& delivery_;
    const LaneServices services_;

    // The control thread:
    Admission admission_;  // empty: all
    std::vector<Listener*> listeners_;
    std::vector<PendingConnection*> pending_;  // in the order of acceptance
    bool hasNews_ = false;                     // lanes that wait are to be offered again
    bool isAccepting_ = false;                 // inside AcceptAll, or a connection is being accepted
    bool isReadingHellos_ = false;
    bool hasResting_ = false;  // listeners that found no descriptor or memory left
    Clock::time_point restingUntil_;
};

}  // namespace TAVO::Transport

#endif
