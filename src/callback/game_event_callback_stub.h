// SPDX-License-Identifier: Apache-2.0
// Takes game events off the wire.
#ifndef VELTRA_CALLBACK_GAME_EVENT_CALLBACK_STUB_H
#define VELTRA_CALLBACK_GAME_EVENT_CALLBACK_STUB_H

#include "callback/callback_table.h"
#include "ipc/igp_napi_event_callback.h"
#include "tavo/iremote_stub.h"
#include "veltra_export.h"

namespace TAVO::Veltra {

class VELTRA_EXPORT GameEventCallbackStub : public IRemoteStub<IGpNapiEventCallback> {
public:
    GameEventCallbackStub();
    ~GameEventCallbackStub() override;

    int OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;

private:
    int32_t HandleGameEvent(MessageParcel& data, MessageParcel& reply);

    const CallbackTable<GameEventCallbackStub> table_;
};

}  // namespace TAVO::Veltra

#endif
