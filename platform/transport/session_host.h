// SPDX-License-Identifier: Apache-2.0
// The functions of the process that sessions and their parts use.
#ifndef TAVO_TRANSPORT_SESSION_HOST_H
#define TAVO_TRANSPORT_SESSION_HOST_H

#include <cstdint>
#include <memory>
#include <string>

#include "tavo/ipc_object_stub.h"
#include "tavo/ref_base.h"
#include "transport/peer_object.h"
#include "wire/byte_budget.h"
#include "wire/wire.h"

namespace TAVO::Transport {

class PendingAcknowledgement;
class Session;

// Outlives all sessions. Any thread.
class SessionHost {
public:
    virtual ~SessionHost() = default;
    virtual const Instance& Self() const noexcept = 0;
    // The limit of the whole process.
    virtual ByteBudget& Budget() noexcept = 0;
    // The path of `name` in the runtime directory, usable in a socket address.
    virtual std::string SocketPath(const std::string& name) = 0;

    // The serial of an object of this process, assigned at its first export; 0 while the process cannot listen for
    // calls.
    virtual uint64_t Export(const sptr<IPCObjectStub>& object) = 0;
    virtual sptr<IPCObjectStub> FindExported(uint64_t serial) = 0;

    // A new proxy for an object of the session's peer.
    virtual sptr<PeerObject> NewProxy(std::shared_ptr<Session> session, uint64_t serial,
                                      const std::u16string& descriptor, PeerObject::Life life) = 0;
    // A proxy for an object of a third process, acquired from its owner. Null: too many. `message` named the object.
    virtual sptr<PeerObject> AcquireFrom(const Instance& owner, uint64_t serial, const std::u16string& descriptor,
                                         const std::shared_ptr<PendingAcknowledgement>& message) = 0;
    // Has the death recipients of an object notified. Allocates nothing.
    virtual void PostDeath(sptr<PeerObject> object) noexcept = 0;

    // A session has an idle lane, to be closed after a while.
    virtual void ExpectIdleLanes() = 0;
    // Has Session::FlushOneWay called until it has sent everything. False if out of memory.
    virtual bool FlushLater(const std::shared_ptr<Session>& session, ConnectionKind kind) = 0;
    // A session has room again for a lane of its peer. False if out of memory.
    virtual bool RetryWaitingLanes() = 0;
};

}  // namespace TAVO::Transport

#endif
