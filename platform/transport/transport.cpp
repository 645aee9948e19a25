// SPDX-License-Identifier: Apache-2.0
// The public face of the transport: functions for the rooms above, each of which forwards to the one ThisProcess. What
// a game may call in a forked child returns at once there.
#include "transport/transport.h"

#include <fcntl.h>

#include <utility>

#include "base/forked_child.h"
#include "transport/calling_peer_scope.h"
#include "transport/expected_call.h"
#include "transport/local_call.h"
#include "transport/object_gate.h"
#include "transport/proxy_object.h"
#include "transport/this_process.h"

namespace TAVO::Transport {

sptr<IRemoteObject> ConnectManager(Clock::time_point deadline)
{
    if (InForkedChild()) {
        return nullptr;
    }
    std::shared_ptr<Session> before;
    for (;;) {
        const std::shared_ptr<Session> session = ThisProcess::Get().ManagerSession(deadline);
        if (session->IsSuspect()) {
            return nullptr;
        }
        switch (session->WaitEstablished(deadline)) {
            case Session::State::ESTABLISHED:
                return session->Proxies().Root();
            case Session::State::CONNECTING:
                // A manager that is stopped (SIGSTOP) still has a listening socket: the kernel connects, and only the
                // missing answer shows it.
                session->Suspect();  // Until its answer establishes the session.
                return nullptr;
            case Session::State::DEAD:
                break;
        }
        // Dead at once: no process listens. Only a manager that was replaced by a session that stood already is tried
        // again.
        if (before != nullptr ||
            ThisProcess::Get().ManagerSession(deadline)->GetState() != Session::State::ESTABLISHED) {
            return nullptr;
        }
        before = session;
    }
}

int RuntimeDirFd()
{
    return ThisProcess::Get().Sockets().DirFd();
}

void ServeAsManager(int listenFd, const sptr<IPCObjectStub>& root,
                    std::function<bool(int pid, int fd, size_t sessions)> admission)
{
    ::fcntl(listenFd, F_SETFL, O_NONBLOCK);  // The control thread accepts until there is nothing to accept.
    ThisProcess::Get().Objects().SetRoot(root);
    ThisProcess::Get().Connections().Listen(UniqueFd(listenFd), std::move(admission));
}

bool StartDeliveryThread() noexcept
{
    return !InForkedChild() && ThisProcess::Get().Delivery().EnsureRunning();
}

int SendNotice(const sptr<IRemoteObject>& object, uint32_t code, MessageParcel& data)
{
    auto* const proxy = dynamic_cast<ProxyObject*>(object.Get());
    return proxy != nullptr ? proxy->SendNotice(code, data) : IPC_DEAD_OBJECT;
}

bool IsStillThere(const sptr<IRemoteObject>& object, Clock::time_point deadline)
{
    auto* const proxy = dynamic_cast<ProxyObject*>(object.Get());
    if (proxy == nullptr || InForkedChild()) {
        return proxy == nullptr && object != nullptr && object->IsAlive();
    }
    if (const int status = proxy->WaitReady(deadline); status != IPC_OK) {
        return status != IPC_DEAD_OBJECT;  // A process that hangs is there: the caller's own request will time out.
    }
    // Asks the kernel: the end of the connection may have arrived and not been read by the control thread yet.
    return !proxy->GetSession().Control().HasHungUp();
}

void ExpectCall() noexcept
{
    if (!InForkedChild()) {
        AlertLastLane();
    }
}

uint64_t OwnerSession(const sptr<IRemoteObject>& object)
{
    const auto* const proxy = dynamic_cast<const ProxyObject*>(object.Get());
    return proxy != nullptr ? proxy->GetSession().Id() : 0;
}

const CallingPeer* CurrentCaller() noexcept
{
    return CallingPeerScope::Current();
}

std::shared_ptr<ObjectGate> NewObjectGate(bool oneAtATime)
{
    return std::make_shared<ObjectGate>(oneAtATime);
}

void Unexport(const ObjectGate& gate) noexcept
{
    // An object that was never sent is in no table, and its destructor must not create the process's transport.
    if (gate.Serial() != 0 && !InForkedChild()) {
        ThisProcess::Get().Objects().Remove(gate);
    }
}

int CallLocal(const sptr<IPCObjectStub>& target, uint32_t code, MessageParcel& data, MessageParcel& reply,
              const MessageOption& option)
{
    return CallLocal(target, ThisProcess::Get().Workers(), code, data, reply, option);
}

bool RunOnWorker(std::function<void()> job) noexcept
{
    return ThisProcess::Get().Workers().Post(std::move(job));
}

bool IsForkedChild() noexcept
{
    return InForkedChild();
}

}  // namespace TAVO::Transport
