// SPDX-License-Identifier: Apache-2.0
// A local request takes the same way as one of another process, through the gate of its object and to a worker, so that
// a handler runs under the same conditions for every caller. Sender and worker share the request: the sender may stop
// waiting before the handler has run.
#include "transport/local_call.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <optional>

#include "base/parcel_access.h"
#include "tavo/mutex.h"
#include "transport/dispatch.h"
#include "transport/lane_key.h"
#include "transport/object_gate.h"
#include "transport/outgoing_call.h"

namespace TAVO::Transport {
namespace {

struct LocalRequest {
    LocalRequest(sptr<IPCObjectStub> ofTarget, WorkerPool& byWorkers, uint32_t ofCode, const MessageOption& ofOption)
        : target(std::move(ofTarget)), workers(byWorkers), code(ofCode), option(ofOption)
    {
    }

    const sptr<IPCObjectStub> target;
    WorkerPool& workers;
    const uint32_t code;
    MessageOption option;
    MessageParcel data;
    MessageParcel reply;  // written by the worker before isDone
    int status = IPC_OK;  // the same
    Mutex mutex;
    std::condition_variable done;
    bool isDone TAVO_GUARDED_BY(mutex) = false;

    void Run()
    {
        // Session 0: a handler can tell its own process from all others.
        const CallingPeer self = {::getpid(), ::geteuid(), 0};
        status = DispatchInGate(*target, workers, self, code, data, reply, option);
        MutexLock lock(mutex);
        isDone = true;
        done.notify_all();
    }
    bool WaitDone(Clock::time_point deadline)
    {
        MutexLock lock(mutex);
        return lock.WaitUntil(done, deadline, [this]() TAVO_REQUIRES(mutex) { return isDone; });
    }
};

}  // namespace

int CallLocal(const sptr<IPCObjectStub>& target, WorkerPool& workers, uint32_t code, MessageParcel& data,
              MessageParcel& reply, const MessageOption& option)
{
    const auto deadline = Clock::now() + std::chrono::seconds(std::max(option.GetWaitTime(), 1));
    std::optional<OutgoingCall> outgoing;
    if (!option.IsOneWay() && !outgoing.emplace().IsAllowed()) {
        return IPC_NO_RESOURCES;
    }
    const auto request = std::make_shared<LocalRequest>(target, workers, code, option);
    ParcelAccess::Swap(request->data, data);
    // The sender may have read from the parcel; a parcel that arrives from another process starts at 0.
    ParcelAccess::ResetRead(request->data);
    std::function<void()> run = [request] { request->Run(); };
    // If the gate is full it keeps `run`, and the request that leaves it posts the job. Moved, since a copy allocates:
    // it would leave the gate occupied if out of memory.
    const bool mayRun = ObjectGate::Of(*target).EnterOrWait([&run] { return std::move(run); });
    if (mayRun && !workers.Post(std::move(run))) {
        LeaveGate(*target, workers);
        return IPC_NO_RESOURCES;
    }
    if (option.IsOneWay()) {
        return IPC_OK;
    }
    if (!request->WaitDone(deadline)) {
        return IPC_TIMED_OUT;
    }
    ParcelAccess::Swap(reply, request->reply);
    return request->status;
}

}  // namespace TAVO::Transport
