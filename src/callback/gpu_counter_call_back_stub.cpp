// SPDX-License-Identifier: Apache-2.0
// One request: a list of samples, up to 44 MiB. It is decoded completely before the game sees it; a list that does not
// decode is refused as a whole.
#include "callback/gpu_counter_call_back_stub.h"

#include "tavo/read_vector_from_parcel.h"

namespace TAVO::Veltra {

GpuCounterCallBackStub::GpuCounterCallBackStub()
    : table_({{CallbackCode::GPU_COUNTER_DATA, &GpuCounterCallBackStub::HandleGpuCounterData}})
{
}

GpuCounterCallBackStub::~GpuCounterCallBackStub() = default;

int GpuCounterCallBackStub::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply,
                                            MessageOption& option)
{
    return table_.OnRemoteRequest(*this, code, data, reply, option);
}

int32_t GpuCounterCallBackStub::HandleGpuCounterData(MessageParcel& data, MessageParcel& reply)
{
    VELTRA_LOGI("GpuCounterCallBackStub::HandleGpuCounterData");
    std::vector<GpuPerfInfo> infos;
    if (!ReadVectorFromParcel(data, infos)) {
        VELTRA_LOGI("parcel read results failed.");  // Deliberate: info, here and for resources; a batch may be lost.
        return RESULT_BAD_PARCEL;
    }
    if (!reply.WriteInt32(OnGpuData(infos))) {
        VELTRA_LOGE("writing parcel failed");
        return RESULT_BAD_PARCEL;
    }
    return RESULT_OK;
}

}  // namespace TAVO::Veltra
