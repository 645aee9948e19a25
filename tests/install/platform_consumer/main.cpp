// SPDX-License-Identifier: Apache-2.0
// Prints the programs that the manager starts for its abilities.
#include <cstdio>

#include "tavo/message_parcel.h"
#include "tavo/system_ability_manager_client.h"

int main()
{
    TAVO::MessageParcel parcel;
    if (!parcel.WriteString("platform") || parcel.ReadString() != "platform") {
        return 1;
    }
    const TAVO::sptr<TAVO::ISystemAbilityManager> manager =
        TAVO::SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    if (manager == nullptr) {
        return 1;
    }
    for (const TAVO::AbilityDescription& ability : manager->DescribeAbilities()) {
        std::printf("%d %s\n", ability.id, ability.program.c_str());
    }
    return 0;
}
