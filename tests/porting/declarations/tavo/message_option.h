// SPDX-License-Identifier: Apache-2.0
#ifndef PORTING_MESSAGE_OPTION_H
#define PORTING_MESSAGE_OPTION_H

namespace TAVO {

class PLATFORM_NAME("MessageOption") MessageOption {
public:
    PLATFORM_NAME("MessageOption(flags, waitTime)") MessageOption(int flags, int waitTime);
};

}  // namespace TAVO

#endif
