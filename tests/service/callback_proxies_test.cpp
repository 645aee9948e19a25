// SPDX-License-Identifier: Apache-2.0
// What is pushed to a client lies in its parcel as the client's stub reads it.
#include "callback_proxies.h"

#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ipc/server_codes.h"
#include "service/request_items.h"
#include "support/fake_remote_object.h"

namespace TAVO::Veltra {
namespace {

constexpr int32_t RESULT = 4711;

GameCallbackEventInfo DistinctEvent()
{
    GameCallbackEventInfo info{"text", 1, 2, 3, 4, 5, 6, 7, std::numeric_limits<int32_t>::min(), -9, 10, 99};
    return info;
}

AppResourceInfo Resource(const std::string& name)
{
    AppResourceInfo info;
    info.text1 = "com.game";
    info.int1 = 2;
    info.int2 = 3;
    info.text2 = name;
    info.text3 = "place";
    info.long1 = 1LL << 40;
    info.int3 = 7;
    info.text4 = "sum";
    return info;
}

struct PushRow {
    const char* what;
    std::function<int32_t(const sptr<IRemoteObject>&)> send;
    std::u16string token;
    uint32_t code;
    Items items;
};

std::vector<PushRow> AllPushes()
{
    const Items sample = {I32(1), I64(1),  I64(-2), I32(3),  I32(-1), I32(5),  I64(6),  I64(-1), I64(8),
                          I32(9), I32(10), I32(11), I32(12), I32(13), I32(14), I32(15), I32(16)};
    const auto resource = [](const std::string& name) {
        return Items{I32(1),       Str("com.game"), I32(2), I32(3),    Str(name),
                     Str("place"), I64(1LL << 40),  I32(7), Str("sum")};
    };
    return {
        {"event",
         [](const auto& object) { return GameEventCallbackProxy(object).OnGameCallbackEvent(DistinctEvent()); },
         u"zem.game.perf.iGpNapiEventCallback",
         7,
         {Str("text"), I32(1), I32(2), I32(3), I32(4), I32(5), I32(6), I32(7), I32(std::numeric_limits<int32_t>::min()),
          I32(-9), I32(10)}},
        {"GPU counters",
         [](const auto& object) {
             GpuPerfInfo first;
             first.long1 = 1;
             first.long2 = -2;
             first.int1 = 3;
             first.uint1 = UINT32_MAX;
             first.uint2 = 5;
             first.ulong1 = 6;
             first.ulong2 = UINT64_MAX;
             first.ulong3 = 8;
             first.uint3 = 9;
             first.uint4 = 10;
             first.uint5 = 11;
             first.uint6 = 12;
             first.uint7 = 13;
             first.uint8 = 14;
             first.uint9 = 15;
             first.uint10 = 16;
             std::vector<GpuPerfInfo> batch(2, first);
             return GpuCounterCallbackProxy(object).OnGpuData(batch);
         },
         u"zem.game.perf.IGpuCounterNativeCallback", 12, Items{I32(1), I32(2)} + sample + sample},
        {"no GPU counters",
         [](const auto& object) {
             std::vector<GpuPerfInfo> none;
             return GpuCounterCallbackProxy(object).OnGpuData(none);
         },
         u"zem.game.perf.IGpuCounterNativeCallback",
         12,
         {I32(1), I32(0)}},
        {"priorities",
         [](const auto& object) {
             std::vector<std::string> names = {"b", ""};
             return ResourcePreDownloadCallbackProxy(object).OnGetAppPrioritys(names);
         },
         u"zem.game.perf.IResourcePreDownloadNativeCallback",
         16,
         {I32(2), Str("b"), Str("")}},
        {"priorities beyond what clients take",
         [](const auto& object) {
             std::vector<std::string> names(101, "n");
             return ResourcePreDownloadCallbackProxy(object).OnGetAppPrioritys(names);
         },
         u"zem.game.perf.IResourcePreDownloadNativeCallback", 16, Items{I32(100)} + Times(100, {Str("n")})},
        {"resources",
         [](const auto& object) {
             AppResourceInfos infos;
             infos.resourceInfos = {Resource("one"), Resource("two")};
             return ResourcePreDownloadCallbackProxy(object).OnQueryAppResourceInfos(infos);
         },
         u"zem.game.perf.IResourcePreDownloadNativeCallback", 18,
         Items{I32(1), I32(2)} + resource("one") + resource("two")},
    };
}

TEST(CallbackProxies, EachPushIsLaidOutAsItsReaderExpectsAndBringsTheResultBack)
{
    for (const PushRow& row : AllPushes()) {
        SCOPED_TRACE(row.what);
        std::string sent;
        const sptr<FakeRemoteObject> object =
            MakeRef<FakeRemoteObject>([&sent](uint32_t, MessageParcel& data, MessageParcel& reply) {
                sent = Bytes(data);
                return reply.WriteInt32(RESULT) ? 0 : -1;
            });
        EXPECT_EQ(row.send(object), RESULT);
        MessageParcel expected;
        expected.WriteInterfaceToken(row.token);
        WriteItems(expected, row.items, row.items.size());
        EXPECT_EQ(sent, Bytes(expected));
        ASSERT_EQ(object->Requests().size(), 1U);
        EXPECT_EQ(object->Requests()[0].code, row.code);
        EXPECT_EQ(object->Requests()[0].flags, MessageOption::FLAG_SYNC);
        EXPECT_EQ(object->Requests()[0].waitTime, 8);
    }
}

TEST(CallbackProxies, WhatDidNotArriveNeverLooksLikeAResult)
{
    for (const PushRow& row : AllPushes()) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(row.send(nullptr), IPC_DEAD_OBJECT);
        EXPECT_EQ(row.send(FakeRemoteObject::FailingWith(IPC_TIMED_OUT)), IPC_TIMED_OUT);
    }
}

TEST(CallbackProxies, APushThatDoesNotFitIsNotSentInPart)
{
    for (const PushRow& row : AllPushes()) {
        SCOPED_TRACE(row.what);
        const sptr<FakeRemoteObject> object = MakeRef<FakeRemoteObject>();
        MessageParcel whole;
        whole.WriteInterfaceToken(row.token);
        WriteItems(whole, row.items, row.items.size());
        const size_t usual = Parcel::DefaultCapacityLimit();
        for (const size_t missing : {size_t{4}, whole.GetDataSize()}) {
            Parcel::SetDefaultCapacityLimit(whole.GetDataSize() - missing);
            EXPECT_EQ(row.send(object), IPC_TOO_LARGE);
        }
        Parcel::SetDefaultCapacityLimit(usual);
        EXPECT_TRUE(object->Requests().empty());
    }
}

TEST(CallbackProxies, ACastFindsTheProxyOfEachInterface)
{
    const auto remote = [](const std::u16string& descriptor) {
        return sptr<IRemoteObject>(MakeRef<FakeRemoteObject>(nullptr, descriptor));
    };
    EXPECT_NE(iface_cast<IGpNapiEventCallback>(remote(u"zem.game.perf.iGpNapiEventCallback")), nullptr);
    EXPECT_NE(iface_cast<IGpuCounterNativeCallback>(remote(u"zem.game.perf.IGpuCounterNativeCallback")), nullptr);
    EXPECT_NE(
        iface_cast<IResourcePreDownloadNativeCallback>(remote(u"zem.game.perf.IResourcePreDownloadNativeCallback")),
        nullptr);
    EXPECT_EQ(iface_cast<IGpNapiEventCallback>(remote(u"zem.game.perf.IGpNapiEventCallback")), nullptr);
}

}  // namespace
}  // namespace TAVO::Veltra
