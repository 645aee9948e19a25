// SPDX-License-Identifier: Apache-2.0
#include "client/veltra_sa_death_recipient.h"

#include "client/veltra_server_client_proxy.h"
#include "tavo/delayed_ref_singleton.h"
#include "utils/veltra_log.h"

namespace TAVO::Veltra {

VeltraSaDeathRecipient::VeltraSaDeathRecipient() = default;

void VeltraSaDeathRecipient::OnRemoteDied(const wptr<IRemoteObject>& object)
{
    VELTRA_LOGI("Remote systemAbility dead.");
    DelayedRefSingleton<VeltraClientProxy>::GetInstance().OnRemoteSaDead(object);
}

VeltraSaDeathRecipient::~VeltraSaDeathRecipient() = default;

}  // namespace TAVO::Veltra
