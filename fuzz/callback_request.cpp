// SPDX-License-Identifier: Apache-2.0
// Does a game's callback run for whole requests only, and once, and is the rest refused with a code?
#include <memory>

#include "callback/game_event_callback.h"
#include "callback/gpu_counter_call_back.h"
#include "callback/resource_pre_download_callback.h"
#include "input.h"
#include "support/game_callbacks.h"
#include "support/parcel_items.h"
#include "veltra_result.h"

namespace {

using Fuzz::Require;
using namespace TAVO;
using namespace TAVO::Veltra;

// An endpoint of each kind, whose callbacks count their calls and what they were given.
struct Game {
    static constexpr int32_t RESULT = 77;

    Game()
    {
        events->AddCallback(std::make_unique<EventFunction>([this](auto&) { return Called(1); }), 1);
        gpu->SetProcessCallback(std::make_unique<GpuFunction>([this](auto& infos) { return Called(infos.size()); }));
        resource->SetGetAppPrioritysCallback(
            std::make_unique<PrioritysFunction>([this](auto& list) { return Called(list.size()); }));
        resource->SetQueryAppResourceInfoCallback(
            std::make_unique<ResourceInfoFunction>([this](auto& infos) { return Called(infos.resourceInfos.size()); }));
    }
    int32_t Called(size_t count)
    {
        ++calls;
        items = count;
        return RESULT;
    }

    int calls = 0;
    size_t items = 0;  // in the last call
    const sptr<GameEventCallback> events = MakeRef<GameEventCallback>();
    const sptr<GpuCounterCallBack> gpu = MakeRef<GpuCounterCallBack>();
    const sptr<ResourcePreDownloadCallback> resource = MakeRef<ResourcePreDownloadCallback>();
};

bool IsRefusal(int status)
{
    return status == RESULT_TOKEN_REFUSED || status == RESULT_BAD_PARCEL || status == RESULT_TOO_MANY_PRIORITIES ||
           status == IPC_UNKNOWN_CODE;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    FuzzedDataProvider input(bytes, size);
    Game game;
    const Items sample = Items{1} + Times(2, {int64_t{1}}) + Times(3, {2}) + Times(3, {int64_t{3}}) + Times(8, {4});
    const Items resource = {1, "a", 1, 2, "b", "c", int64_t{3}, 4, "d"};
    const struct {
        IPCObjectStub* endpoint;
        uint32_t code;
        Items payload;
        size_t items;
    } rows[] = {{game.events.Get(), 7, {"text", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, 1},
                {game.gpu.Get(), 12, Items{1, 3} + Times(3, sample), 3},
                {game.resource.Get(), 16, Items{60} + Times(60, {"app"}), 60},
                {game.resource.Get(), 18, Items{1, 2} + Times(2, resource), 2}};
    const auto& row = rows[input.ConsumeIntegralInRange(0, 3)];
    const bool isHonest = input.ConsumeBool();
    MessageParcel data;
    data.WriteInterfaceToken(isHonest || input.ConsumeBool() ? row.endpoint->Descriptor() : Fuzz::TakeText16(input));
    if (isHonest || input.ConsumeBool()) {
        WriteItems(data, row.payload);
    }
    uint32_t code = row.code;
    if (!isHonest) {
        code = input.ConsumeBool() ? code : input.ConsumeIntegral<uint32_t>();
        Fuzz::WriteItems(input, data);
        Fuzz::Damage(input, data);
    }
    MessageParcel reply;
    MessageOption option;
    const int status = row.endpoint->OnRemoteRequest(code, data, reply, option);
    if (game.calls == 0) {
        Require(!isHonest, "a whole request is delivered");
        const bool isOfPlatform = code == IPCObjectStub::CODE_PING || code == IPCObjectStub::CODE_DESCRIPTOR;
        Require(isOfPlatform || (IsRefusal(status) && reply.GetDataSize() == 0), "a refusal has a status alone");
        return 0;
    }
    Require(game.calls == 1 && (!isHonest || game.items == row.items), "once, with all that was sent");
    // Priorities that were announced and are absent come as empty ones.
    Require(code == 16 || game.items * Parcel::SLOT <= data.GetDataSize(), "no more items than the bytes can hold");
    const int32_t result = code == 7 ? RESULT_OK : Game::RESULT;
    Require(status == IPC_OK && reply.ReadInt32() == result && reply.GetDataSize() == Parcel::SLOT,
            "the reply is the result alone");
    return 0;
}
