// SPDX-License-Identifier: Apache-2.0
// The transport of this process, put together: its name, its threads, its sessions, its objects.
#ifndef TAVO_TRANSPORT_THIS_PROCESS_H
#define TAVO_TRANSPORT_THIS_PROCESS_H

#include <memory>
#include <string>

#include "transport/acceptor.h"
#include "transport/connector.h"
#include "transport/delivery_thread.h"
#include "transport/event_loop.h"
#include "transport/exported_objects.h"
#include "transport/heap_trim.h"
#include "transport/in_lane.h"
#include "transport/lane_timers.h"
#include "transport/runtime_sockets.h"
#include "transport/session_host.h"
#include "transport/session_links.h"
#include "transport/session_table.h"
#include "transport/worker_pool.h"
#include "transport/worker_watch.h"
#include "wire/byte_budget.h"
#include "wire/wire.h"

namespace TAVO::Transport {

// Only composes. Created at its first use, never destroyed. Reached by the public entry points alone (transport.cpp).
class ThisProcess final : public SessionHost, private SessionLinks::Events {
public:
    static ThisProcess& Get();

    WorkerPool& Workers() noexcept { return workers_; }
    DeliveryThread& Delivery() noexcept { return delivery_; }
    ExportedObjects& Objects() noexcept { return objects_; }
    RuntimeSockets& Sockets() noexcept { return sockets_; }
    Acceptor& Connections() noexcept { return acceptor_; }

    // The session with the manager. If there is none, or it ended, connects, which may take until `deadline`.
    std::shared_ptr<Session> ManagerSession(Deadline deadline);

    const Instance& Self() const noexcept override { return self_; }
    ByteBudget& Budget() noexcept override { return budget_; }
    std::string SocketPath(const std::string& name) override { return sockets_.PathOf(name); }
    uint64_t Export(const sptr<IPCObjectStub>& object) override;
    sptr<IPCObjectStub> FindExported(uint64_t serial) override { return objects_.Find(serial); }
    sptr<PeerObject> NewProxy(std::shared_ptr<Session> session, uint64_t serial, const std::u16string& descriptor,
                              PeerObject::Life life) override;
    sptr<PeerObject> AcquireFrom(const Instance& owner, uint64_t serial, const std::u16string& descriptor,
                                 const std::shared_ptr<PendingAcknowledgement>& message) override;
    void PostDeath(sptr<PeerObject> object) noexcept override;
    void ExpectIdleLanes() override { timers_.ExpectIdleLanes(); }
    bool FlushLater(const std::shared_ptr<Session>& session, ConnectionKind kind) override;
    bool RetryWaitingLanes() override { return acceptor_.RetryWaitingLanes(); }

private:
    ThisProcess();

    bool EnsureListening();
    void OnAnswer(ControlLink& link, const Hello& answer) override { connector_.OnAnswer(link, answer); }
    void OnEstablished() override { acceptor_.OnEstablished(); }
    void OnEnding() override { acceptor_.AcceptAll(); }

    const Instance self_;
    ByteBudget budget_{ByteBudget::PROCESS_LIMIT};
    RuntimeSockets sockets_;
    ExportedObjects objects_;
    WorkerPool workers_;
    DeliveryThread delivery_;
    SessionTable sessions_;
    EventLoop loop_;
    WorkerWatch workerWatch_;
    LaneTimers timers_;
    HeapTrim heapTrim_;
    SessionLinks links_;
    Connector connector_;
    Acceptor acceptor_;
};

}  // namespace TAVO::Transport

#endif
