// SPDX-License-Identifier: Apache-2.0
// Two requests, the answers to the two resource queries. Counts come from another process: a count above the limit is
// refused before an element is read, and a list grows with what is present, not with its count.
#include "callback/resource_pre_download_callback_stub.h"

#include "tavo/read_vector_from_parcel.h"

namespace TAVO::Veltra {

ResourcePreDownloadCallbackStub::ResourcePreDownloadCallbackStub()
    : table_({{CallbackCode::GET_APP_PRIORITYS, &ResourcePreDownloadCallbackStub::HandleGetAppPrioritysCallback},
              {CallbackCode::QUERY_APP_RESOURCE_INFOS,
               &ResourcePreDownloadCallbackStub::HandleQueryAppResourceInfoCallback}})
{
}

ResourcePreDownloadCallbackStub::~ResourcePreDownloadCallbackStub() = default;

int ResourcePreDownloadCallbackStub::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply,
                                                     MessageOption& option)
{
    return table_.OnRemoteRequest(*this, code, data, reply, option);
}

int32_t ResourcePreDownloadCallbackStub::HandleGetAppPrioritysCallback(MessageParcel& data, MessageParcel& reply)
{
    VELTRA_LOGI("ResourcePreDownloadCallbackStub::HandleGetAppPrioritysCallback");
    const int32_t count = data.ReadInt32();
    if (count > MAX_PRIORITIES) {
        return RESULT_TOO_MANY_PRIORITIES;  // Deliberate: no line of its own; the status tells the service.
    }
    std::vector<std::string> list;
    for (int32_t i = 0; i < count; ++i) {
        list.push_back(
            data.ReadString());  // Deliberate: not tested; announced texts that are absent come as empty ones.
    }
    if (!reply.WriteInt32(OnGetAppPrioritys(list))) {
        VELTRA_LOGW("writing parcel failed");  // Deliberate: a warning, here alone; alarms are set on the error lines.
        return RESULT_BAD_PARCEL;
    }
    return RESULT_OK;
}

int32_t ResourcePreDownloadCallbackStub::HandleQueryAppResourceInfoCallback(MessageParcel& data, MessageParcel& reply)
{
    VELTRA_LOGI("ResourcePreDownloadCallbackStub::HandleQueryAppResourceInfoCallback");
    AppResourceInfos infos;
    if (!ReadVectorFromParcel(data, infos.resourceInfos)) {
        VELTRA_LOGI("parcel read results failed.");  // Deliberate: info, as for GPU samples.
        return RESULT_BAD_PARCEL;
    }
    if (!reply.WriteInt32(OnQueryAppResourceInfos(infos))) {
        VELTRA_LOGE("writing parcel failed");
        return RESULT_BAD_PARCEL;
    }
    return RESULT_OK;
}

}  // namespace TAVO::Veltra
