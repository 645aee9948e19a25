// SPDX-License-Identifier: Apache-2.0
// The log of the manager and of its client side.
#ifndef TAVO_MANAGER_MANAGER_LOG_H
#define TAVO_MANAGER_MANAGER_LOG_H

#include "tavo/scrivo_print.h"

namespace TAVO::Manager {

template <typename... Arguments>
void Log(ScrivoLevel level, const char* format, Arguments... arguments)
{
    constexpr int TYPE = 3;
    constexpr uint32_t DOMAIN = 0xD00470B;
    ScrivoPrint(TYPE, level, DOMAIN, "TavoManager", format, arguments...);
}

}  // namespace TAVO::Manager

#endif
