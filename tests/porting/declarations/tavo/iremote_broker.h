// SPDX-License-Identifier: Apache-2.0
#ifndef PORTING_IREMOTE_BROKER_H
#define PORTING_IREMOTE_BROKER_H

#include "tavo/iremote_object.h"

namespace TAVO {

class PLATFORM_NAME("IRemoteBroker") IRemoteBroker {
public:
    virtual ~IRemoteBroker();
    PLATFORM_NAME("IRemoteBroker::AsObject") virtual sptr<IRemoteObject> AsObject();
};

template <typename T>
class PLATFORM_NAME("BrokerDelegator") BrokerDelegator {
public:
    BrokerDelegator();
};

template <typename T>
PLATFORM_NAME("iface_cast")
sptr<T> iface_cast(const sptr<IRemoteObject>& object);

}  // namespace TAVO

#endif
