// SPDX-License-Identifier: Apache-2.0
#ifndef PORTING_MESSAGE_PARCEL_H
#define PORTING_MESSAGE_PARCEL_H

#include <string>

#include "tavo/iremote_object.h"
#include "tavo/parcel.h"

namespace TAVO {

class PLATFORM_NAME("MessageParcel") MessageParcel : public Parcel {
public:
    PLATFORM_NAME("MessageParcel::WriteInterfaceToken") bool WriteInterfaceToken(const std::u16string& token);
    PLATFORM_NAME("MessageParcel::ReadInterfaceToken") std::u16string ReadInterfaceToken();
    PLATFORM_NAME("MessageParcel::WriteRemoteObject") bool WriteRemoteObject(const sptr<IRemoteObject>& object);
};

}  // namespace TAVO

#endif
