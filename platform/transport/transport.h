// SPDX-License-Identifier: Apache-2.0
// What the rooms above the transport use of it, beside the public headers.
#ifndef TAVO_TRANSPORT_TRANSPORT_H
#define TAVO_TRANSPORT_TRANSPORT_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "tavo/calling_peer.h"
#include "tavo/ipc_object_stub.h"
#include "tavo/iremote_object.h"

namespace TAVO::Transport {

using Clock = std::chrono::steady_clock;

// The root object of the manager of this runtime directory (RuntimeDir::DefaultPath), connecting if need
// be; null when it is not there or did not answer by `deadline`. Once the manager let a call or the first contact time
// out it counts as absent: null at once, and calls on its root object fail at once, until it answers again. A new
// object per connection: its death is the end of the session with that manager.
sptr<IRemoteObject> ConnectManager(Clock::time_point deadline);

// The runtime directory, open and checked, for as long as the process lives; -1, and a line in the log, when there is
// none that can be trusted. The caller does not close it.
int RuntimeDirFd();

// Makes this process the manager: sessions are accepted on `listenFd` (bound and listening, owned by the transport from
// here on), and any session may call `root` without having been given it. `admission` decides whether the process `pid`
// may have the connection `fd`, with which there are `sessions` sessions (0: it may be another connection of a
// session); it runs on the control thread and must not wait.
void ServeAsManager(int listenFd, const sptr<IPCObjectStub>& root,
                    std::function<bool(int pid, int fd, size_t sessions)> admission = nullptr);

// Whether the object's process is there, looked at now: waits until `deadline` for an object that a third process
// named, and asks the kernel whether the connection has ended, though its end may not have been noticed yet. True also
// for a process that does not answer in that time.
bool IsStillThere(const sptr<IRemoteObject>& object, Clock::time_point deadline);

// The calling thread is about to make a call: if it makes calls regularly, the worker that served the last one is woken
// up while this thread makes its request. Never waits.
void ExpectCall() noexcept;

// The session with the object's process, as CallingPeer names it; 0 for an object of this process, and for null.
uint64_t OwnerSession(const sptr<IRemoteObject>& object);

// Starts the thread that delivers death notices, which is otherwise started with the first one. False when no thread
// can be had.
bool StartDeliveryThread() noexcept;

// Sends one-way over the lane of urgent notices: the receiver runs them on its delivery thread, and only for objects
// that say RunsOnDeliveryThread. Same results as SendRequest, but never waits: for an object that a third process named
// and whose owner has not answered yet it is IPC_TIMED_OUT at once.
int SendNotice(const sptr<IRemoteObject>& object, uint32_t code, MessageParcel& data);

// The sender of the request that the calling thread handles; null outside a handler.
const CallingPeer* CurrentCaller() noexcept;

// Bounds the requests of one object that run at a time, and has its name on the wire.
class ObjectGate;
std::shared_ptr<ObjectGate> NewObjectGate(bool oneAtATime);
// The object with that gate is being destroyed: peers can no longer call it.
void Unexport(const ObjectGate& gate) noexcept;
// Handles a request of this process to its own object on a worker, and waits for the reply unless it is one-way.
int CallLocal(const sptr<IPCObjectStub>& target, uint32_t code, MessageParcel& data, MessageParcel& reply,
              const MessageOption& option);
// Runs `job` on a worker. False, and the job is lost, if there is no memory or descriptor left.
bool RunOnWorker(std::function<void()> job) noexcept;

// True in a child of fork() whose parent had loaded the platform: nothing works there any more.
bool IsForkedChild() noexcept;

}  // namespace TAVO::Transport

#endif
