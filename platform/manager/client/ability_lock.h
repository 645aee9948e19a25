// SPDX-License-Identifier: Apache-2.0
// The lock file of an ability, held by the process that serves it for as long as that process lives.
#ifndef TAVO_MANAGER_ABILITY_LOCK_H
#define TAVO_MANAGER_ABILITY_LOCK_H

#include <cstdint>
#include <string>

namespace TAVO::Manager {

// Its name in the runtime directory.
inline std::string AbilityLockName(int32_t systemAbilityId)
{
    return std::to_string(systemAbilityId) + ".lock";
}

}  // namespace TAVO::Manager

#endif
