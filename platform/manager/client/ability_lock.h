// SPDX-License-Identifier: Apache-2.0
// The lock files: of an ability, held by the process that serves it for as long as that process lives, and the
// manager's.
#ifndef TAVO_MANAGER_ABILITY_LOCK_H
#define TAVO_MANAGER_ABILITY_LOCK_H

#include <cstdint>
#include <string>

namespace TAVO::Manager {

constexpr char MANAGER_LOCK_NAME[] = "manager.lock";

// The name of an ability's in the runtime directory.
inline std::string AbilityLockName(int32_t systemAbilityId)
{
    return std::to_string(systemAbilityId) + ".lock";
}

}  // namespace TAVO::Manager

#endif
