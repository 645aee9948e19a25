// SPDX-License-Identifier: Apache-2.0
#ifndef PORTING_DELAYED_REF_SINGLETON_H
#define PORTING_DELAYED_REF_SINGLETON_H

namespace TAVO {

template <typename T>
class PLATFORM_NAME("DelayedRefSingleton") DelayedRefSingleton {
public:
    PLATFORM_NAME("DelayedRefSingleton::GetInstance") static T& GetInstance();
};

}  // namespace TAVO

#endif
