// SPDX-License-Identifier: Apache-2.0
#include "callback/endpoints.h"

namespace TAVO::Veltra {

Outcome Send(IPCObjectStub& endpoint, uint32_t code, const std::u16string& token,
             const std::function<void(MessageParcel&)>& write, size_t replyCapacity)
{
    MessageParcel data;
    EXPECT_TRUE(data.WriteInterfaceToken(token));
    write(data);
    MessageParcel reply;
    reply.SetCapacityLimit(replyCapacity);
    MessageOption option;
    Outcome outcome;
    outcome.status = endpoint.OnRemoteRequest(code, data, reply, option);
    while (reply.GetReadableBytes() > 0) {
        outcome.reply.emplace_back(reply.ReadInt32());
    }
    return outcome;
}

Outcome Send(IPCObjectStub& endpoint, uint32_t code, const Items& payload, size_t replyCapacity)
{
    return Send(
        endpoint, code, endpoint.Descriptor(), [&payload](MessageParcel& data) { WriteItems(data, payload); },
        replyCapacity);
}

namespace {

Items ListItems(int32_t announced, int32_t present, int32_t nullAt, const std::function<Items(int32_t)>& record)
{
    Items items = {1, announced};
    for (int32_t i = 0; i < present; ++i) {
        if (i == nullAt) {
            items.emplace_back(0);
            continue;
        }
        items = items + Items{1} + record(i);
    }
    return items;
}

}  // namespace

Items GpuItems(int32_t announced, int32_t present, int32_t nullAt)
{
    return ListItems(announced, present, nullAt, [](int32_t number) {
        const int64_t wide = number;
        return Items{wide, wide, 1, 2, 3, wide, wide, wide, 4, 5, 6, 7, 8, 9, 10, 11};
    });
}

Items ResourceItems(int32_t announced, int32_t present, int32_t nullAt)
{
    return ListItems(announced, present, nullAt, [](int32_t number) {
        const std::string text = "t" + std::to_string(number);
        return Items{text, number, 2, text, text, int64_t{number}, 3, text};
    });
}

Endpoints::Endpoints()
{
    events_->AddCallback(std::make_unique<EventFunction>([this](auto& info) { return Keep(event_, info); }), 1);
    gpu_->SetProcessCallback(std::make_unique<GpuFunction>([this](auto& infos) { return Keep(samples_, infos); }));
    resource_->SetGetAppPrioritysCallback(
        std::make_unique<PrioritysFunction>([this](auto& list) { return Keep(texts_, list); }));
    resource_->SetQueryAppResourceInfoCallback(
        std::make_unique<ResourceInfoFunction>([this](auto& infos) { return Keep(infos_, infos); }));
}

std::vector<Endpoints::Target> Endpoints::Targets() const
{
    return {
        {"game event", events_.Get(), GAME_EVENT, {"e", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
        {"GPU data", gpu_.Get(), GPU_DATA, GpuItems(2, 2)},
        {"priorities", resource_.Get(), PRIORITYS, {1, "p"}},
        {"resource infos", resource_.Get(), RESOURCE_INFOS, ResourceItems(2, 2)},
    };
}

}  // namespace TAVO::Veltra
