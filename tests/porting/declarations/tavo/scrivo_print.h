// SPDX-License-Identifier: Apache-2.0
#ifndef PORTING_SCRIVO_PRINT_H
#define PORTING_SCRIVO_PRINT_H

#include <cstdint>

namespace TAVO {

PLATFORM_NAME("ScrivoPrint")
int ScrivoPrint(int type, int level, uint32_t domain, const char* tag, const char* format, ...);

}  // namespace TAVO

#endif
