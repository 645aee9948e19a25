// SPDX-License-Identifier: Apache-2.0
// Does a game's callback run for whole requests only, once and with all that was sent, and is the rest refused?
#include <utility>

#include "game.h"
#include "input.h"

namespace {

using Fuzz::Require;
using namespace TAVO;
using namespace TAVO::Veltra;

void WritePayload(FuzzedDataProvider& input, CallbackCode code, MessageParcel& data)
{
    const size_t count = input.ConsumeIntegralInRange<size_t>(0, 5);
    if (code == CallbackCode::GAME_EVENT) {
        data.WriteString(Fuzz::TakeText(input));
        for (int i = 0; i < 10; ++i) {
            data.WriteInt32(input.ConsumeIntegral<int32_t>());
        }
    } else if (code == CallbackCode::GPU_COUNTER_DATA) {
        GpuPerfInfo info;
        info.long1 = input.ConsumeIntegral<int64_t>();
        WriteVectorToParcel(data, std::vector<GpuPerfInfo>(count, info));
    } else if (code == CallbackCode::GET_APP_PRIORITYS) {
        Game::WriteTexts(data, std::vector<std::string>(count * 20, Fuzz::TakeText(input)));
    } else {
        AppResourceInfo info;
        info.text2 = Fuzz::TakeText(input);
        WriteVectorToParcel(data, std::vector<AppResourceInfo>(count, info));
    }
}

// `data` is at the payload, of which `taken` bytes were read.
void RequireDelivered(const Game& game, CallbackCode code, MessageParcel& data, size_t taken)
{
    const size_t encoded = game.encoded.GetDataSize();
    if (code == CallbackCode::GAME_EVENT) {
        Require(taken <= encoded, "no more than an event was read");
        return;
    }
    const bool isPriorities = code == CallbackCode::GET_APP_PRIORITYS;
    const bool isAnnounced = isPriorities || data.ReadInt32() == 1;
    const int32_t count = isAnnounced ? data.ReadInt32() : 0;
    Require(game.items == static_cast<size_t>(std::max(count, 0)), "as many items as announced");
    Require(count <= (isPriorities ? MAX_PRIORITIES : MAX_LIST_ELEMENTS), "within the limit");
    // Texts that were announced and are absent come as empty ones.
    Require(isPriorities ? taken <= encoded : taken == (isAnnounced ? encoded : Parcel::SLOT), "all of it was read");
}

void RequireRefused(int status, uint32_t code, const MessageParcel& reply)
{
    if (code == IPCObjectStub::CODE_PING || code == IPCObjectStub::CODE_DESCRIPTOR) {
        return;
    }
    const bool isDecoded = status != RESULT_BAD_PARCEL && status != RESULT_TOO_MANY_PRIORITIES;
    Require(!isDecoded || status == RESULT_TOKEN_REFUSED || status == IPC_UNKNOWN_CODE, "a status of the contract");
    Require(reply.GetDataSize() == 0, "a refusal has no reply");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    FuzzedDataProvider input(bytes, size);
    Game game;
    const std::pair<IPCObjectStub*, CallbackCode> targets[] = {
        {game.events.Get(), CallbackCode::GAME_EVENT},
        {game.gpu.Get(), CallbackCode::GPU_COUNTER_DATA},
        {game.resource.Get(), CallbackCode::GET_APP_PRIORITYS},
        {game.resource.Get(), CallbackCode::QUERY_APP_RESOURCE_INFOS}};
    const auto [endpoint, ownCode] = targets[input.ConsumeIntegralInRange(0, 3)];
    const bool isHonest = input.ConsumeBool();
    MessageParcel data;
    data.WriteInterfaceToken(isHonest || input.ConsumeBool() ? endpoint->Descriptor() : Fuzz::TakeText16(input));
    const size_t payload = data.GetDataSize();
    auto code = static_cast<uint32_t>(ownCode);
    if (isHonest || input.ConsumeBool()) {
        WritePayload(input, ownCode, data);
    }
    if (!isHonest) {
        code = input.ConsumeBool() ? code : input.ConsumeIntegral<uint32_t>();
        Fuzz::WriteItems(input, data);
        Fuzz::Damage(input, data);
    }
    MessageParcel reply;
    MessageOption option;
    const int status = endpoint->OnRemoteRequest(code, data, reply, option);
    if (game.calls == 0) {
        Require(!isHonest, "a whole request is delivered");
        RequireRefused(status, code, reply);
        return 0;
    }
    const size_t end = data.GetReadPosition();
    ParcelAccess::ResetRead(data);
    Require(game.calls == 1 && data.ReadInterfaceToken() == endpoint->Descriptor(), "once, and meant for it");
    RequireDelivered(game, static_cast<CallbackCode>(code), data, end - data.GetReadPosition());
    const uint8_t* const sent = data.GetData() + payload;
    Require(!isHonest || std::equal(sent, data.GetData() + data.GetDataSize(), game.encoded.GetData(),
                                    game.encoded.GetData() + game.encoded.GetDataSize()),
            "the values that were sent");
    const int32_t result = code == static_cast<uint32_t>(CallbackCode::GAME_EVENT) ? RESULT_OK : Game::RESULT;
    Require(status == IPC_OK && reply.ReadInt32() == result && reply.GetDataSize() == Parcel::SLOT,
            "the reply is the result alone");
    return 0;
}
