// SPDX-License-Identifier: Apache-2.0
#include "client/veltra_sa_load_callback.h"

#include "client/veltra_server_client_proxy.h"
#include "tavo/delayed_ref_singleton.h"
#include "utils/veltra_log.h"

namespace TAVO::Veltra {

VeltraSaLoadCallback::VeltraSaLoadCallback() = default;

VeltraSaLoadCallback::~VeltraSaLoadCallback() = default;

void VeltraSaLoadCallback::OnLoadSystemAbilitySuccess(int32_t systemAbilityId, const sptr<IRemoteObject>& remoteObject)
{
    if (systemAbilityId != VELTRA_SERVER_SA_ID) {
        VELTRA_LOGI("system ability is not veltra_server:%d", systemAbilityId);
        return;
    }
    DelayedRefSingleton<VeltraClientProxy>::GetInstance().LoadSystemAbilitySuccess(remoteObject);
    VELTRA_LOGI("Load system ability successed!");  // Deliberate: for a null object too.
}

void VeltraSaLoadCallback::OnLoadSystemAbilityFail(int32_t systemAbilityId)
{
    if (systemAbilityId != VELTRA_SERVER_SA_ID) {
        VELTRA_LOGW("system ability is not veltra_server:%d", systemAbilityId);  // Deliberate: a warning, unlike above.
        return;
    }
    DelayedRefSingleton<VeltraClientProxy>::GetInstance().LoadSystemAbilityFail();
    VELTRA_LOGI("Load system ability failed!");
}

}  // namespace TAVO::Veltra
