// SPDX-License-Identifier: Apache-2.0
// The receiving ends of the control interfaces: the service derives from VeltraControlStub, a tool from
// VeltraWatcherStub.
#ifndef VELTRA_CONTROL_STUBS_H
#define VELTRA_CONTROL_STUBS_H

#include <cstdint>

#include <tavo/iremote_stub.h>

#include "control/iveltra_control.h"
#include "control/iveltra_watcher.h"

namespace TAVO::Veltra {

// Requests run one at a time, so that tools keep at most one worker of the service busy. Statuses: 0;
// RESULT_TOKEN_REFUSED for a token of another interface; RESULT_BAD_PARCEL for a request that is short, has a text that
// is too long or an object that is no watcher of the caller's own, which calls nothing.
class VeltraControlStub : public IRemoteStub<IVeltraControl> {
public:
    VeltraControlStub() : IRemoteStub(true) {}

    int OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;

private:
    template <typename Operation>
    int Serve(Operation operation, MessageParcel& data, MessageParcel& reply);
    int HandleWatch(MessageParcel& data, MessageParcel& reply);
    int HandleSimulate(MessageParcel& data, MessageParcel& reply);
};

// Batches come one at a time, in order, on a worker. OnRecords should return soon: while it runs the next batch waits,
// and the service drops records that wait too long.
class VeltraWatcherStub : public IRemoteStub<IVeltraWatcher> {
public:
    VeltraWatcherStub() : IRemoteStub(true) {}

    int OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;
};

}  // namespace TAVO::Veltra

#endif
