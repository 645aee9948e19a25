// SPDX-License-Identifier: Apache-2.0
// The bytes of a game event, for both sides: String eventText, then Int32 tempLevel to extraValue in the record's
// order.
#ifndef VELTRA_IPC_GAME_EVENT_ENCODING_H
#define VELTRA_IPC_GAME_EVENT_ENCODING_H

#include "tavo/message_parcel.h"
#include "veltra_records.h"

namespace TAVO::Veltra {

bool WriteGameEvent(MessageParcel& data, const GameCallbackEventInfo& info);

// Deliberate: an event that ends early is read, with missing fields as 0 or empty and not as the record's defaults;
// refusing it would silence a service that sends fewer values.
GameCallbackEventInfo ReadGameEvent(MessageParcel& data);

}  // namespace TAVO::Veltra

#endif
