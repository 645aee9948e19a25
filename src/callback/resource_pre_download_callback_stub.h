// SPDX-License-Identifier: Apache-2.0
// Takes the answers to the two resource queries off the wire.
#ifndef VELTRA_CALLBACK_RESOURCE_PRE_DOWNLOAD_CALLBACK_STUB_H
#define VELTRA_CALLBACK_RESOURCE_PRE_DOWNLOAD_CALLBACK_STUB_H

#include "callback/callback_table.h"
#include "ipc/iresource_pre_download_native_callback.h"
#include "tavo/iremote_stub.h"
#include "veltra_export.h"

namespace TAVO::Veltra {

class VELTRA_EXPORT ResourcePreDownloadCallbackStub : public IRemoteStub<IResourcePreDownloadNativeCallback> {
public:
    ResourcePreDownloadCallbackStub();
    ~ResourcePreDownloadCallbackStub() override;

    int OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;

private:
    int32_t HandleGetAppPrioritysCallback(MessageParcel& data, MessageParcel& reply);
    int32_t HandleQueryAppResourceInfoCallback(MessageParcel& data, MessageParcel& reply);

    const CallbackTable<ResourcePreDownloadCallbackStub> table_;
};

}  // namespace TAVO::Veltra

#endif
