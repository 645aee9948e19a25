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
    VeltraCustomProxy() = default;
    virtual ~VeltraCustomProxy();
    VeltraCustomProxy(const VeltraCustomProxy&) = delete;
    VeltraCustomProxy& operator=(const VeltraCustomProxy&) = delete;

    // The service if it is running, looked up anew by each call; waits for nothing. Null when there is none; without a
    // manager the field stays as it was.
    sptr<IVeltraServerInterface> GetServiceProxy();

    // The contract of VeltraClient.
    int32_t QueryGameState(GameState& state);

private:
    // Keeps the proxy alive between queries. No lock: concurrent queries replace it, which an sptr allows, and each
    // works with the reference that GetServiceProxy returned to it; nobody reads the field.
    sptr<IVeltraServerInterface> serviceProxy_;
};

}  // namespace TAVO::Veltra

// The one instance is the library's, whoever asks for it.
extern template class VELTRA_EXPORT TAVO::DelayedRefSingleton<TAVO::Veltra::VeltraCustomProxy>;

#endif
