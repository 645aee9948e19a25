// SPDX-License-Identifier: Apache-2.0
// Notified by the manager of the outcome of a load; one object for each attempt.
#ifndef VELTRA_CLIENT_VELTRA_SA_LOAD_CALLBACK_H
#define VELTRA_CLIENT_VELTRA_SA_LOAD_CALLBACK_H

#include "tavo/isystem_ability_load_callback.h"
#include "veltra_export.h"

namespace TAVO::Veltra {

// On the delivery thread, both pass the result to the client proxy. A report about another id is only logged.
class VELTRA_EXPORT VeltraSaLoadCallback : public SystemAbilityLoadCallbackStub {
public:
    VeltraSaLoadCallback();
    ~VeltraSaLoadCallback() override;
    void OnLoadSystemAbilitySuccess(int32_t systemAbilityId, const sptr<IRemoteObject>& remoteObject) override;
    void OnLoadSystemAbilityFail(int32_t systemAbilityId) override;
};

}  // namespace TAVO::Veltra

#endif
