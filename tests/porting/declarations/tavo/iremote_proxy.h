// SPDX-License-Identifier: Apache-2.0
#ifndef PORTING_IREMOTE_PROXY_H
#define PORTING_IREMOTE_PROXY_H

#include "tavo/iremote_broker.h"

namespace TAVO {

template <typename T>
class PLATFORM_NAME("IRemoteProxy") IRemoteProxy : public T {
public:
    PLATFORM_NAME("IRemoteProxy(object)") explicit IRemoteProxy(const sptr<IRemoteObject>& object);

protected:
    PLATFORM_NAME("IRemoteProxy::Remote") sptr<IRemoteObject> Remote() const;
};

}  // namespace TAVO

#endif
