// SPDX-License-Identifier: Apache-2.0
// What is pushed to a client lies in its parcel as the client's stub reads it; the records are tested with their room.
#include "push/callback_proxies.h"

#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "service/push_receiver.h"

namespace TAVO::Veltra {
namespace {

constexpr int32_t RESULT = 4711;
constexpr int32_t MIN32 = std::numeric_limits<int32_t>::min();

int32_t SendEvent(const sptr<IRemoteObject>& object)
{
    return GameEventCallbackProxy(object).OnGameCallbackEvent({"text", 1, 2, 3, 4, 5, 6, 7, MIN32, -9, 10, 99});
}

auto SendSamples(size_t count)
{
    return [count](const sptr<IRemoteObject>& object) {
        std::vector<GpuPerfInfo> infos(count);
        return GpuCounterCallbackProxy(object).OnGpuData(infos);
    };
}

auto SendPriorities(size_t count)
{
    return [count](const sptr<IRemoteObject>& object) {
        std::vector<std::string> names(count, "n");
        return ResourcePreDownloadCallbackProxy(object).OnGetAppPrioritys(names);
    };
}

int32_t SendResources(const sptr<IRemoteObject>& object)
{
    AppResourceInfos infos;
    infos.resourceInfos.resize(2);
    return ResourcePreDownloadCallbackProxy(object).OnQueryAppResourceInfos(infos);
}

TEST(CallbackProxies, EachPushIsEncodedAsItsReaderExpectsOrNotSent)
{
    const std::u16string gpu = IGpuCounterNativeCallback::GetDescriptor();
    const std::u16string resources = IResourcePreDownloadNativeCallback::GetDescriptor();
    const Items wide = {int64_t{0}};
    const Items sample = Items{1} + Times(2, wide) + Times(3, {0}) + Times(3, wide) + Times(8, {0});
    const Items resource = {1, "", 1, 0, "", "", int64_t{0}, 0, ""};
    const struct {
        const char* what;
        std::function<int32_t(const sptr<IRemoteObject>&)> send;
        std::u16string token;
        uint32_t code;
        Items items;
    } rows[] = {
        {"event", SendEvent, IGpNapiEventCallback::GetDescriptor(), 7, {"text", 1, 2, 3, 4, 5, 6, 7, MIN32, -9, 10}},
        {"samples", SendSamples(2), gpu, 12, Items{1, 2} + Times(2, sample)},
        {"no samples", SendSamples(0), gpu, 12, {1, 0}},
        {"priorities", SendPriorities(2), resources, 16, {2, "n", "n"}},
        {"priorities beyond what clients accept", SendPriorities(101), resources, 16, Items{100} + Times(100, {"n"})},
        {"resources", SendResources, resources, 18, Items{1, 2} + Times(2, resource)},
    };
    const size_t usual = Parcel::DefaultCapacityLimit();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const std::string expected = Push(row.token, row.items);
        const auto object = MakeRef<FakeRemoteObject>([&](uint32_t, MessageParcel& data, MessageParcel& reply) {
            EXPECT_EQ(Bytes(data), expected);
            return reply.WriteInt32(RESULT) ? 0 : -1;
        });
        EXPECT_EQ(row.send(object), RESULT);
        for (const size_t missing : {size_t{4}, expected.size()}) {
            Parcel::SetDefaultCapacityLimit(expected.size() - missing);
            EXPECT_EQ(row.send(object), IPC_TOO_LARGE);
        }
        Parcel::SetDefaultCapacityLimit(usual);
        ASSERT_EQ(object->Requests().size(), 1U);
        EXPECT_EQ(object->Requests()[0].code, row.code);
        EXPECT_EQ(object->Requests()[0].flags, MessageOption::FLAG_SYNC);
        EXPECT_EQ(object->Requests()[0].waitTime, 8);
        // What did not arrive never looks like a result.
        EXPECT_EQ(row.send(nullptr), IPC_DEAD_OBJECT);
        EXPECT_EQ(row.send(FakeRemoteObject::FailingWith(IPC_TIMED_OUT)), IPC_TIMED_OUT);
    }
}

}  // namespace
}  // namespace TAVO::Veltra
