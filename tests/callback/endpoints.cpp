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

Items EventItems(const std::string& text, const std::vector<int32_t>& values)
{
    Items items = {text};
    items.insert(items.end(), values.begin(), values.end());
    return items;
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
        items.emplace_back(1);
        for (const Item& item : record(i)) {
            items.push_back(item);
        }
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
    events_->AddCallback(std::make_unique<EventFunction>([this](const GameCallbackEventInfo& info) {
                             ++calls_;
                             event_ = info;
                             return result_();
                         }),
                         1);
    gpu_->SetProcessCallback(std::make_unique<GpuFunction>([this](std::vector<GpuPerfInfo>& infos) {
        ++calls_;
        samples_ = infos;
        return result_();
    }));
    resource_->SetGetAppPrioritysCallback(std::make_unique<PrioritysFunction>([this](std::vector<std::string>& list) {
        ++calls_;
        texts_ = list;
        return result_();
    }));
    resource_->SetQueryAppResourceInfoCallback(
        std::make_unique<ResourceInfoFunction>([this](const AppResourceInfos& infos) {
            ++calls_;
            infos_ = infos;
            return result_();
        }));
}

std::vector<Endpoints::Target> Endpoints::Targets() const
{
    return {
        {"game event", events_.Get(), GAME_EVENT, EventItems("e", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10})},
        {"GPU data", gpu_.Get(), GPU_DATA, GpuItems(2, 2)},
        {"priorities", resource_.Get(), PRIORITYS, {1, std::string("p")}},
        {"resource infos", resource_.Get(), RESOURCE_INFOS, ResourceItems(2, 2)},
    };
}

}  // namespace TAVO::Veltra
