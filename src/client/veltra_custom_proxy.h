// SPDX-License-Identifier: Apache-2.0
// The game-state query: it looks for a running service and never starts one.
#ifndef VELTRA_CLIENT_VELTRA_CUSTOM_PROXY_H
#define VELTRA_CLIENT_VELTRA_CUSTOM_PROXY_H

#include "ipc/iveltra_server_interface.h"
#include "tavo/delayed_ref_singleton.h"
#include "veltra_export.h"

namespace TAVO::Veltra {

// Any thread. Used through DelayedRefSingleton, so it lives to the end of the process; an operation throws nothing,
// whatever happens below it.
class VELTRA_EXPORT VeltraCustomProxy {
public:
    VeltraCustomProxy();
    virtual ~VeltraCustomProxy();
    VeltraCustomProxy(const VeltraCustomProxy&) = delete;
    VeltraCustomProxy& operator=(const VeltraCustomProxy&) = delete;

    // The service if it is running, looked up anew by each call; waits for nothing. Null when there is none; without a
    // manager or out of memory the field stays as it was.
    sptr<IVeltraServerInterface> GetServiceProxy();

    // The contract of VeltraClient.
    int32_t QueryGameState(GameState& state);

private:
    // What the last check found. No lock: concurrent queries assign it and test it for null, which an sptr allows. Each
    // query calls through the reference of its own check.
    sptr<IVeltraServerInterface> serviceProxy_;
};

}  // namespace TAVO::Veltra

// The one instance is the library's, whatever module asks for it.
extern template class VELTRA_EXPORT TAVO::DelayedRefSingleton<TAVO::Veltra::VeltraCustomProxy>;

#endif
