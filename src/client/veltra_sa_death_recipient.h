// SPDX-License-Identifier: Apache-2.0
// Notified when a service that was loaded for this process dies.
#ifndef VELTRA_CLIENT_VELTRA_SA_DEATH_RECIPIENT_H
#define VELTRA_CLIENT_VELTRA_SA_DEATH_RECIPIENT_H

#include "tavo/iremote_object.h"
#include "veltra_export.h"

namespace TAVO::Veltra {

class VELTRA_EXPORT VeltraSaDeathRecipient : public IRemoteObject::DeathRecipient {
public:
    VeltraSaDeathRecipient();
    // On the delivery thread: forwards the notice to the client proxy.
    void OnRemoteDied(const wptr<IRemoteObject>& object) override;
    ~VeltraSaDeathRecipient() override;
};

}  // namespace TAVO::Veltra

#endif
