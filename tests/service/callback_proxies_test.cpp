// SPDX-License-Identifier: Apache-2.0
// What is pushed to a client lies in its parcel as the client's stub reads it.
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
const std::u16string EVENTS = u"zem.game.perf.iGpNapiEventCallback";
const std::u16string GPU = u"zem.game.perf.IGpuCounterNativeCallback";
const std::u16string RESOURCES = u"zem.game.perf.IResourcePreDownloadNativeCallback";

struct PushRow {
    const char* what;
    std::function<int32_t(const sptr<IRemoteObject>&)> send;
    std::u16string token;
    uint32_t code;
    Items items;
};

int32_t SendEvent(const sptr<IRemoteObject>& object)
{
    return GameEventCallbackProxy(object).OnGameCallbackEvent({"text", 1, 2, 3, 4, 5, 6, 7, MIN32, -9, 10, 99});
}

const Items SAMPLE = {int64_t{1}, int64_t{-2}, 3,  -1, 5,  int64_t{6}, int64_t{-1}, int64_t{8},
                      9,          10,          11, 12, 13, 14,         15,          16};
const Items RESOURCE = {"com.game", 2, 3, "name", "place", int64_t{1} << 40, 7, "sum"};

// The record that is encoded so.
template <typename Record>
Record Decoded(const Items& items)
{
    MessageParcel parcel;
    WriteItems(parcel, items);
    Record record;
    EXPECT_TRUE(record.ReadFields(parcel));
    return record;
}

PushRow GpuRow(const char* what, size_t count)
{
    const auto send = [batch = std::vector<GpuPerfInfo>(count, Decoded<GpuPerfInfo>(SAMPLE))](const auto& object) {
        std::vector<GpuPerfInfo> infos = batch;
        return GpuCounterCallbackProxy(object).OnGpuData(infos);
    };
    return {what, send, GPU, 12, Items{1, static_cast<int32_t>(count)} + Times(count, Items{1} + SAMPLE)};
}

PushRow PrioritiesRow(const char* what, size_t count, int32_t sent)
{
    const auto send = [count](const auto& object) {
        std::vector<std::string> names(count, "n");
        return ResourcePreDownloadCallbackProxy(object).OnGetAppPrioritys(names);
    };
    return {what, send, RESOURCES, 16, Items{sent} + Times(static_cast<size_t>(sent), {"n"})};
}

PushRow ResourcesRow()
{
    AppResourceInfos infos;
    infos.resourceInfos.assign(2, Decoded<AppResourceInfo>(RESOURCE));
    const auto send = [infos](const auto& object) {
        return ResourcePreDownloadCallbackProxy(object).OnQueryAppResourceInfos(infos);
    };
    return {"resources", send, RESOURCES, 18, Items{1, 2} + Times(2, Items{1} + RESOURCE)};
}

TEST(CallbackProxies, EachPushIsLaidOutAsItsReaderExpectsOrIsNotSentAtAll)
{
    const PushRow rows[] = {
        {"event", SendEvent, EVENTS, 7, {"text", 1, 2, 3, 4, 5, 6, 7, MIN32, -9, 10}},
        GpuRow("GPU counters", 2),
        GpuRow("no GPU counters", 0),
        PrioritiesRow("priorities", 2, 2),
        PrioritiesRow("priorities beyond what clients take", 101, 100),
        ResourcesRow(),
    };
    const size_t usual = Parcel::DefaultCapacityLimit();
    for (const PushRow& row : rows) {
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
