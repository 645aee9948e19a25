// SPDX-License-Identifier: Apache-2.0
// A game event on the wire: its text, then ten numbers. Both directions walk the same table, so they cannot disagree
// about the order.
#include "ipc/game_event_encoding.h"

#include <algorithm>
#include <iterator>

namespace TAVO::Veltra {
namespace {

using Info = GameCallbackEventInfo;

// The order on the wire, for both sides. resultCode does not travel: it is set by the receiver.
constexpr int32_t Info::*NUMBERS[] = {&Info::tempLevel,         &Info::gpuLoadLevel,     &Info::vertexLoadLevel,
                                      &Info::fragmentLoadLevel, &Info::textureLoadLevel, &Info::bandwidthLoadLevel,
                                      &Info::currentFrequency,  &Info::thermalMargin,    &Info::thermalTrend,
                                      &Info::extraValue};

}  // namespace

bool WriteGameEvent(MessageParcel& data, const GameCallbackEventInfo& info)
{
    return data.WriteString(info.eventText) && std::all_of(std::begin(NUMBERS), std::end(NUMBERS),
                                                           [&](auto number) { return data.WriteInt32(info.*number); });
}

GameCallbackEventInfo ReadGameEvent(MessageParcel& data)
{
    GameCallbackEventInfo info;
    info.eventText = data.ReadString();
    for (const auto number : NUMBERS) {
        info.*number = data.ReadInt32();
    }
    return info;
}

}  // namespace TAVO::Veltra
