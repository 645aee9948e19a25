// SPDX-License-Identifier: Apache-2.0
#include "callback/game_event_callback_stub.h"

namespace TAVO::Veltra {

GameEventCallbackStub::GameEventCallbackStub()
    : table_({{CallbackCode::GAME_EVENT, &GameEventCallbackStub::HandleGameEvent}})
{
}

GameEventCallbackStub::~GameEventCallbackStub() = default;

int GameEventCallbackStub::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply,
                                           MessageOption& option)
{
    return table_.OnRemoteRequest(*this, code, data, reply, option);
}

// Deliberate: the reads are not tested. An event that ends early is delivered, with what it lacks as 0 or empty and not
// as the record's defaults; refusing it would silence a service that sends fewer values.
int32_t GameEventCallbackStub::HandleGameEvent(MessageParcel& data, MessageParcel& reply)
{
    GameCallbackEventInfo info;
    info.eventText = data.ReadString();
    info.tempLevel = data.ReadInt32();
    info.gpuLoadLevel = data.ReadInt32();
    info.vertexLoadLevel = data.ReadInt32();
    info.fragmentLoadLevel = data.ReadInt32();
    info.textureLoadLevel = data.ReadInt32();
    info.bandwidthLoadLevel = data.ReadInt32();
    info.currentFrequency = data.ReadInt32();
    info.thermalMargin = data.ReadInt32();
    info.thermalTrend = data.ReadInt32();
    info.extraValue = data.ReadInt32();
    if (!reply.WriteInt32(OnGameCallbackEvent(info))) {
        VELTRA_LOGE("writing parcel failed");
        return RESULT_BAD_PARCEL;
    }
    return RESULT_OK;
}

}  // namespace TAVO::Veltra
