// SPDX-License-Identifier: Apache-2.0
// How replies are read: results, maps at their caps, short and hostile ones.
#include <gtest/gtest.h>

#include <limits>

#include "ipc/server_operations.h"
#include "support/fake_remote_object.h"

namespace TAVO::Veltra {
namespace {

constexpr int32_t MAX32 = std::numeric_limits<int32_t>::max();

VeltraServerProxy ProxyAnswering(Items reply, int status = 0)
{
    return VeltraServerProxy(MakeRef<FakeRemoteObject>([reply, status](uint32_t, MessageParcel&, MessageParcel& out) {
        WriteItems(out, reply);
        return status;
    }));
}

// `count` as announced, then `present` pairs: key "k<i>", value `value`.
template <typename Value>
Items Pairs(int32_t count, int32_t present, const Value& value)
{
    Items items = {count};
    for (int32_t i = 0; i < present; ++i) {
        items.emplace_back("k" + std::to_string(i));
        items.emplace_back(value);
    }
    return items;
}

TEST(ServerProxyReply, ResultOfTheServiceIsPassedOn)
{
    for (const ServerOperation& operation : ServerOperations()) {
        if (operation.report == Report::NOTHING || operation.report == Report::EMPTY_MAP) {
            continue;
        }
        SCOPED_TRACE(operation.name);
        for (const int32_t result : {77, -1, MAX32}) {
            VeltraServerProxy proxy = ProxyAnswering({result});
            EXPECT_EQ(operation.call(proxy), result);
        }
    }
}

// Also when the sending failed, unlike everywhere else.
TEST(ServerProxyReply, SceneEventBelievesTheReplyAfterAFailedSend)
{
    GameSceneBundle bundle;
    EXPECT_EQ(ProxyAnswering({5}, IPC_BROKEN).NotifyGameEvent(bundle), 5);
    EXPECT_EQ(ProxyAnswering({}, IPC_BROKEN).NotifyGameEvent(bundle), 0);
}

TEST(ServerProxyReply, AppTypesStopAtAThousandPairs)
{
    struct Row {
        int32_t announced, present;
        size_t read;
    };
    for (const Row& row : {Row{1000, 1001, 1000}, Row{1001, 1001, 1000}, Row{MAX32, 1001, 1000}, Row{0, 3, 0},
                           Row{-5, 3, 0}, Row{2, 3, 2}}) {
        SCOPED_TRACE(row.announced);
        const auto types = ProxyAnswering(Pairs(row.announced, row.present, 1)).SyncAppType("", 0);
        EXPECT_EQ(types.size(), row.read);
        EXPECT_EQ(types.count("k" + std::to_string(row.read)), 0u);
    }
}

TEST(ServerProxyReply, FunctionStatusesStopAtAHundredPairs)
{
    struct Row {
        int32_t announced, present;
        size_t read;
    };
    std::map<std::string, std::string> query;
    for (const Row& row : {Row{100, 101, 100}, Row{150, 150, 100}, Row{MAX32, 150, 100}, Row{0, 3, 0}, Row{-1, 3, 0}}) {
        SCOPED_TRACE(row.announced);
        const auto statuses =
            ProxyAnswering(Pairs(row.announced, row.present, std::string("on"))).GetSystemFunctionStatus(query);
        EXPECT_EQ(statuses.size(), row.read);
        EXPECT_EQ(statuses.count("k" + std::to_string(row.read)), 0u);
    }
}

TEST(ServerProxyReply, LaterOfTwoEqualKeysStays)
{
    const std::string key = "same";
    const auto types = ProxyAnswering({2, key, 1, key, 0}).SyncAppType("", 0);
    EXPECT_EQ(types, (std::map<std::string, bool>{{key, false}}));
    std::map<std::string, std::string> query;
    const auto statuses =
        ProxyAnswering({2, key, std::string("a"), key, std::string("b")}).GetSystemFunctionStatus(query);
    EXPECT_EQ(statuses, (std::map<std::string, std::string>{{key, "b"}}));
}

// Pairs that were announced and are not there read as empty ones, up to the cap.
TEST(ServerProxyReply, ShortMapsReadAsEmptyPairs)
{
    const auto types = ProxyAnswering(Pairs(MAX32, 1, 1)).SyncAppType("", 0);
    EXPECT_EQ(types, (std::map<std::string, bool>{{"", false}, {"k0", true}}));
    std::map<std::string, std::string> query;
    EXPECT_EQ(ProxyAnswering({3}).GetSystemFunctionStatus(query), (std::map<std::string, std::string>{{"", ""}}));
    EXPECT_TRUE(ProxyAnswering({}).SyncAppType("", 0).empty());
    EXPECT_TRUE(ProxyAnswering({}).GetSystemFunctionStatus(query).empty());
}

TEST(ServerProxyReply, GameStateIsFilledOnSuccessOnly)
{
    struct Row {
        const char* name;
        Items reply;
        int32_t result, state;
        std::string bundleName;
    };
    const std::string name = "com.game";
    const Row rows[] = {
        {"all", {0, 4, name}, 0, 4, name},      {"no name keeps the old one", {0, 4, std::string()}, 0, 4, "old"},
        {"name missing", {0, 4}, 0, 4, "old"},  {"empty reply", {}, 0, 0, "old"},
        {"refused", {9, 4, name}, 9, 1, "old"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        GameState state{1, "old"};
        EXPECT_EQ(ProxyAnswering(row.reply).QueryGameState(state), row.result);
        EXPECT_EQ(state.state, row.state);
        EXPECT_EQ(state.bundleName, row.bundleName);
    }
}

TEST(ServerProxyReply, DeviceInfoHasATextOnSuccessOnly)
{
    const std::string text = "{}";
    const DeviceInfoResult good = ProxyAnswering({0, text}).GetDeviceInfo({});
    EXPECT_EQ(good.retCode, 0);
    EXPECT_EQ(good.result, text);
    const DeviceInfoResult refused = ProxyAnswering({3, text}).GetDeviceInfo({});
    EXPECT_EQ(refused.retCode, 3);
    EXPECT_EQ(refused.result, "");
    const DeviceInfoResult lost = ProxyAnswering({0, text}, IPC_TIMED_OUT).GetDeviceInfo({});
    EXPECT_EQ(lost.retCode, 1010310014);
    EXPECT_EQ(lost.result, "");
}

}  // namespace
}  // namespace TAVO::Veltra
