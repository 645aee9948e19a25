// SPDX-License-Identifier: Apache-2.0
// Takes batches of GPU counter samples off the wire.
#ifndef VELTRA_CALLBACK_GPU_COUNTER_CALL_BACK_STUB_H
#define VELTRA_CALLBACK_GPU_COUNTER_CALL_BACK_STUB_H

#include "callback/callback_table.h"
#include "ipc/igpu_counter_native_callback.h"
#include "tavo/iremote_stub.h"
#include "veltra_export.h"

namespace TAVO::Veltra {

class VELTRA_EXPORT GpuCounterCallBackStub : public IRemoteStub<IGpuCounterNativeCallback> {
public:
    GpuCounterCallBackStub();
    ~GpuCounterCallBackStub() override;

    int OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;

private:
    int32_t HandleGpuCounterData(MessageParcel& data, MessageParcel& reply);

    const CallbackTable<GpuCounterCallBackStub> table_;
};

}  // namespace TAVO::Veltra

#endif
