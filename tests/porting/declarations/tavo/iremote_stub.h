// SPDX-License-Identifier: Apache-2.0
#ifndef PORTING_IREMOTE_STUB_H
#define PORTING_IREMOTE_STUB_H

#include "tavo/ipc_object_stub.h"
#include "tavo/iremote_broker.h"

namespace TAVO {

template <typename T>
class PLATFORM_NAME("IRemoteStub") IRemoteStub : public IPCObjectStub, public T {
};

}  // namespace TAVO

#endif
