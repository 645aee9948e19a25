// SPDX-License-Identifier: Apache-2.0
// One request: a game event. The table checks code and token; the record is read without a check, because a short one
// reads as empty text and zeros, which the game gets as an event without values.
#include "callback/game_event_callback_stub.h"

#include "ipc/game_event_encoding.h"

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

int32_t GameEventCallbackStub::HandleGameEvent(MessageParcel& data, MessageParcel& reply)
{
    const GameCallbackEventInfo info = ReadGameEvent(data);
    if (!reply.WriteInt32(OnGameCallbackEvent(info))) {
        VELTRA_LOGE("writing parcel failed");
        return RESULT_BAD_PARCEL;
    }
    return RESULT_OK;
}

}  // namespace TAVO::Veltra
