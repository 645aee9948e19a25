// SPDX-License-Identifier: Apache-2.0
// The transport of this process: its name, its threads, its sessions, its exported objects. Made at first use, never
// destroyed.
#ifndef TAVO_TRANSPORT_CORE_H
#define TAVO_TRANSPORT_CORE_H

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

#include "os/runtime_dir.h"
#include "tavo/ipc_object_stub.h"
#include "tavo/mutex.h"
#include "transport/control_thread.h"
#include "transport/delivery_thread.h"
#include "transport/session.h"
#include "transport/session_host.h"
#include "transport/worker_pool.h"
#include "wire/byte_budget.h"
#include "wire/wire.h"

namespace TAVO::Transport {

class ObjectGate;

class Core final : public SessionHost {
public:
    static Core& Get();

    const Instance& Self() const noexcept override { return self_; }
    ByteBudget& Budget() noexcept override { return budget_; }
    WorkerPool& Workers() noexcept { return workers_; }
    ControlThread& Control() noexcept { return control_; }
    DeliveryThread& Delivery() noexcept { return delivery_; }

    // The runtime directory's path for `name`, usable in a socket address. Opens the directory if that has not worked
    // before; a name that leads nowhere when it still does not.
    std::string SocketPath(const std::string& name) override;
    // Descriptor of the runtime directory, -1 while it cannot be opened.
    int RuntimeDirFd();

    // ---- sessions
    // The session with that process, connecting if there is none.
    std::shared_ptr<Session> SessionTo(const Instance& peer);
    std::shared_ptr<Session> FindSession(const Instance& peer);
    size_t CountSessions();
    // The session with that process; a new one, not connecting yet, if there is none.
    std::shared_ptr<Session> EnsureSession(const Instance& peer, bool& isNew);
    void AddSession(const std::shared_ptr<Session>& session);
    void RemoveSession(const std::shared_ptr<Session>& session);
    // Closes lanes idle since before `before` in every session; true while idle ones remain.
    bool CloseIdleLanes(Clock::time_point before);
    // The session with the manager, connecting if there is none or it ended, which may take until `deadline`.
    std::shared_ptr<Session> ManagerSession(Deadline deadline);
    // The manager turned out to be a process with which a session stood already.
    void ReplaceManagerSession(const std::shared_ptr<Session>& session);

    // ---- for sessions
    sptr<PeerObject> NewProxy(std::shared_ptr<Session> session, uint64_t serial, const std::u16string& descriptor,
                              PeerObject::Life life) override;
    sptr<PeerObject> AcquireFrom(const Instance& owner, uint64_t serial, const std::u16string& descriptor,
                                 const std::shared_ptr<PendingAcknowledgement>& message) override;
    void PostDeath(sptr<PeerObject> object) noexcept override { delivery_.PostDeath(std::move(object)); }
    void ExpectIdleLanes() override { control_.ExpectIdleLanes(); }
    bool FlushLater(const std::shared_ptr<Session>& session, ConnectionKind kind) override
    {
        return control_.FlushLater(session, kind);
    }
    bool RetryWaitingLanes() override { return control_.RetryWaitingLanes(); }

    // ---- our objects
    // Listens on our own socket from the first call on; false while that fails.
    bool EnsureListening();
    // As SessionHost: listens first.
    uint64_t Export(const sptr<IPCObjectStub>& object) override;
    sptr<IPCObjectStub> FindExported(uint64_t serial) override;
    void Unexport(uint64_t serial);
    // The manager process's root object; null elsewhere.
    sptr<IPCObjectStub> Root();
    void SetRoot(const sptr<IPCObjectStub>& root);
    static ObjectGate& GateOf(IPCObjectStub& object);

private:
    Core();

    Instance self_;
    ByteBudget budget_{ByteBudget::PROCESS_LIMIT};
    WorkerPool workers_;
    DeliveryThread delivery_;
    ControlThread control_;

    Mutex dirMutex_;
    RuntimeDir dir_ TAVO_GUARDED_BY(dirMutex_);
    bool isListening_ TAVO_GUARDED_BY(dirMutex_) = false;

    Mutex sessionsMutex_;
    std::map<Instance, std::shared_ptr<Session>> sessions_ TAVO_GUARDED_BY(sessionsMutex_);
    std::shared_ptr<Session> manager_ TAVO_GUARDED_BY(sessionsMutex_);

    Mutex objectsMutex_;
    uint64_t lastSerial_ TAVO_GUARDED_BY(objectsMutex_) = 0;
    std::unordered_map<uint64_t, wptr<IPCObjectStub>> exported_ TAVO_GUARDED_BY(objectsMutex_);
    sptr<IPCObjectStub> root_ TAVO_GUARDED_BY(objectsMutex_);
};

// Runs a handler for a request of `peer`; an exception becomes IPC_EXCEPTION.
int Dispatch(IPCObjectStub& target, const CallingPeer& peer, uint32_t code, MessageParcel& data, MessageParcel& reply,
             MessageOption& option);
// The same for a request that has entered the object's gate, which it leaves.
int DispatchInGate(IPCObjectStub& target, const CallingPeer& peer, uint32_t code, MessageParcel& data,
                   MessageParcel& reply, MessageOption& option);
// Ends a request that had entered the object's gate; one that waited goes to a worker.
void LeaveGate(IPCObjectStub& target);

}  // namespace TAVO::Transport

#endif
