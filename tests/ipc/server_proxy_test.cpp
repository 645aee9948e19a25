// SPDX-License-Identifier: Apache-2.0
// What each request looks like on the wire, what becomes of one that cannot be sent, and how replies are read: short
// and hostile ones, maps at their caps.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <new>
#include <regex>
#include <stdexcept>

#include "support/callback_stubs.h"
#include "support/fake_remote_object.h"
#include "support/log_capture.h"
#include "support/server_operations.h"
#include "veltra_result.h"

namespace TAVO::Veltra {
namespace {

constexpr int BROKEN_PIPE = -32;
constexpr int32_t NO_SERVICE = 1010310014;
constexpr int32_t MAX32 = std::numeric_limits<int32_t>::max();

TEST(ServerProxyRequest, CarriesTokenAndPayloadUnderItsCode)
{
    for (const ServerOperation& operation : ServerOperations()) {
        SCOPED_TRACE(operation.name);
        const auto service = MakeRef<FakeRemoteObject>([&](uint32_t, MessageParcel& data, MessageParcel&) {
            EXPECT_EQ(data.ReadInterfaceToken(), u"zem.game.perf.iVeltraServerInterface");
            ExpectItems(data, operation.payload);
            return 0;
        });
        VeltraServerProxy proxy(service);
        EXPECT_EQ(operation.call(proxy), 0);
        ASSERT_EQ(service->Requests().size(), 1u);
        const FakeRemoteObject::Request request = service->Requests().front();
        EXPECT_EQ(request.code, operation.code);
        EXPECT_EQ(request.flags, operation.code == 1 ? 1 : 0);  // only game events are one-way
        EXPECT_EQ(request.waitTime, 8);
    }
}

// The resource query alone refuses an empty list, before it looks for the service.
TEST(ServerProxyRequest, ResourceQueryForNoBundleSendsNothing)
{
    const auto service = MakeRef<FakeRemoteObject>();
    for (const sptr<IRemoteObject>& remote : {sptr<IRemoteObject>(service), sptr<IRemoteObject>()}) {
        VeltraServerProxy proxy(remote);
        ExpectLog({"E QueryAppResourceInfos: bundleNames size cannot be 0"}, [&proxy] {
            EXPECT_EQ(proxy.QueryAppResourceInfos({}, MakeRef<SilentResourceCallback>()), 1010310001);
        });
    }
    EXPECT_TRUE(service->Requests().empty());
}

// A payload write that fails is not checked: the request is sent as far as it was written.
TEST(ServerProxyRequest, PayloadThatDoesNotFitIsSentShort)
{
    const auto service = MakeRef<FakeRemoteObject>([](uint32_t, MessageParcel& data, MessageParcel&) {
        data.ReadInterfaceToken();
        ExpectItems(data, {});
        return 0;
    });
    VeltraServerProxy proxy(service);
    const size_t limit = Parcel::DefaultCapacityLimit();
    Parcel::SetDefaultCapacityLimit(84);
    EXPECT_EQ(proxy.CallAuth(std::string(64, 'x')), 0);
    Parcel::SetDefaultCapacityLimit(limit);
    EXPECT_EQ(service->Requests().size(), 1u);
}

// A dead or refusing service, or memory that runs out on the way, must never look like success to the game.
TEST(ServerProxyFailure, EachOperationReportsAndLogsWhatFailed)
{
    const size_t limit = Parcel::DefaultCapacityLimit();
    for (const ServerOperation& operation : ServerOperations()) {
        SCOPED_TRACE(operation.name);
        const std::string name = operation.name;
        const std::string begin = "E " + name + ": ";
        const RequestTexts& texts = operation.texts;
        const auto sendFailed = [&](int status) {
            const std::string text =
                texts.sendFailed != nullptr ? texts.sendFailed : "function " + name + " call failed! errCode:%d";
            return begin + std::regex_replace(text, std::regex("%d"), std::to_string(status));
        };
        const std::string noRemote = texts.remoteNull == RequestTexts::NONE ? sendFailed(IPC_DEAD_OBJECT)
                                     : texts.remoteNull != nullptr          ? begin + texts.remoteNull
                                                                            : begin + name + " Remote is null";
        // The operations that report by their code, by the status, or by the reply; the others yield 0.
        const auto expect = [&](const sptr<IRemoteObject>& remote, int32_t code, int32_t status, int32_t reply) {
            const int32_t expected[] = {code, status, reply, 0, 0};
            VeltraServerProxy proxy(remote);
            EXPECT_EQ(operation.call(proxy), expected[static_cast<size_t>(operation.report)]);
        };
        // A handler's own status is no answer, not even one that looks like a result.
        for (const int status : {BROKEN_PIPE, 1, 1010310010, int{MAX32}}) {
            const auto fail = [&] { expect(FakeRemoteObject::FailingWith(status), NO_SERVICE, status, 0); };
            texts.sendFailed == RequestTexts::NONE ? fail() : ExpectLog({sendFailed(status)}, fail);
        }
        expect(
            MakeRef<FakeRemoteObject>([](uint32_t, MessageParcel&, MessageParcel&) -> int { throw std::bad_alloc(); }),
            NO_SERVICE, IPC_BROKEN, NO_SERVICE);
        const bool isRenderThread = operation.code == 4;  // does not look; the platform's status is a dead object
        ExpectLog({noRemote}, [&] {
            expect(nullptr, NO_SERVICE, isRenderThread ? int32_t{IPC_DEAD_OBJECT} : NO_SERVICE, NO_SERVICE);
        });
        const auto service = MakeRef<FakeRemoteObject>();
        ExpectLog({begin + texts.tokenRefused}, [&] {
            Parcel::SetDefaultCapacityLimit(64);  // the token takes 80 bytes
            expect(service, 1010310010, 1010310010, 1010310010);
            Parcel::SetDefaultCapacityLimit(limit);
        });
        EXPECT_TRUE(service->Requests().empty());
    }
}

// The two operations that take the callback's object look for the service at different times.
TEST(ServerProxyFailure, PrioritiesForAMissingServiceDoNotTouchTheCallback)
{
    VeltraServerProxy proxy(nullptr);
    std::vector<std::string> none;
    EXPECT_EQ(proxy.GetAppPrioritys(none, nullptr), NO_SERVICE);
}

class ThrowingBundle : public GameSceneBundle {
public:
    bool Marshalling(Parcel&) const override { throw std::runtime_error("the game's own fault"); }
};

TEST(ServerProxyFailure, BundleThatThrowsIsContained)
{
    const auto service = MakeRef<FakeRemoteObject>();
    VeltraServerProxy proxy(service);
    ThrowingBundle bundle;
    EXPECT_EQ(proxy.NotifyGameEvent(bundle), NO_SERVICE);
    EXPECT_TRUE(service->Requests().empty());
}

VeltraServerProxy ProxyAnswering(Items reply, int status = 0)
{
    return VeltraServerProxy(MakeRef<FakeRemoteObject>([reply, status](uint32_t, MessageParcel&, MessageParcel& out) {
        WriteItems(out, reply);
        return status;
    }));
}

TEST(ServerProxyReply, ResultOfTheServiceIsPassedOn)
{
    for (const ServerOperation& operation : ServerOperations()) {
        SCOPED_TRACE(operation.name);
        for (const int32_t result : {77, -1, MAX32}) {
            VeltraServerProxy proxy = ProxyAnswering({result});
            if (operation.HasResult()) {
                EXPECT_EQ(operation.call(proxy), result);
            }
        }
    }
    // Also when the sending failed, unlike everywhere else.
    GameSceneBundle bundle;
    EXPECT_EQ(ProxyAnswering({5}, IPC_BROKEN).NotifyGameEvent(bundle), 5);
}

// Watchers of the log search for these texts.
TEST(ServerProxyReply, LogsFixedLines)
{
    const struct {
        const char* operation;
        Items reply;
        const char* text;  // with the level; empty: nothing is logged
        int status = 0;
    } rows[] = {
        {"RegisterCallBack", {1}, ""},
        {"UnRegisterCallBack", {1}, "I UnRegisterCallBack success!"},
        {"UpdateGameInfo", {5}, "I function UpdateGameInfo call reply:5"},
        {"CallAuth", {5}, "I function callAuth reply:5"},
        {"SyncAppType", {1000}, ""},
        {"SyncAppType", {1001}, "W [SyncTask]sync app type count over max. count[1001] will be set max[1000]"},
        {"GetSystemFunctionStatus", {150}, ""},
        {"StartGetGpuPerfInfo", {1}, ""},
        {"StopGetGpuPerfInfo", {1}, "I StopGetGpuPerfInfo success!"},
        {"QueryGameState", {0, 3, "game"}, "I [Proxy] state:3, bundleName:game"},
        {"QueryGameState", {9}, "E [Proxy] call sa failed! retCode:0"},
        {"NotifyGameEvent", {5}, "I ret is 0, result is 5"},
        {"NotifyGameEvent", {5}, "I ret is -32, result is 5", -32},
        {"GetDeviceInfo", {0, "{}"}, "I GetDeviceInfo success, result={}"},
        {"GetDeviceInfo", {5}, "E proxy GetDeviceInfo failed! retCode:5"},
        {"QueryAppResourceInfos", {5}, ""},
        {"GetAppPrioritys", {5}, ""},
        {"NotifyAppResourceDownLoadResults", {5}, ""},
    };
    using Texts = std::vector<std::string>;
    const auto& operations = ServerOperations();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.operation);
        const auto operation = std::find_if(operations.begin(), operations.end(), [&row](const auto& candidate) {
            return std::string(row.operation) == candidate.name;
        });
        ASSERT_NE(operation, operations.end());
        VeltraServerProxy proxy = ProxyAnswering(row.reply, row.status);
        const std::string text = row.text;
        const std::string line = text.substr(0, 2) + row.operation + ": " + (text.empty() ? text : text.substr(2));
        ExpectLog(text.empty() ? Texts() : Texts{line}, [&] { operation->call(proxy); });
    }
}

// `count` as announced, then `present` pairs: key "k<i>", value `value`.
Items Pairs(int32_t count, int32_t present, const Item& value)
{
    Items items = {count};
    for (int32_t i = 0; i < present; ++i) {
        items.emplace_back("k" + std::to_string(i));
        items.emplace_back(value);
    }
    return items;
}

// What was announced and is missing reads as pairs with an empty key.
TEST(ServerProxyReply, MapsAreReadUpToTheirCapsWhateverIsThere)
{
    const struct {
        int32_t announced, present;
        size_t types, statuses;
    } rows[] = {{0, 3, 0, 0},
                {-5, 3, 0, 0},
                {2, 3, 2, 2},
                {3, 1, 2, 2},
                {MAX32, 0, 1, 1},
                {100, 101, 100, 100},
                {101, 101, 101, 100},
                {1000, 1001, 1000, 100},
                {1001, 1001, 1000, 100},
                {MAX32, 1001, 1000, 100}};
    std::map<std::string, std::string> query;
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.announced) + " announced, " + std::to_string(row.present) + " there");
        EXPECT_EQ(ProxyAnswering(Pairs(row.announced, row.present, 1)).SyncAppType("", 0).size(), row.types);
        EXPECT_EQ(ProxyAnswering(Pairs(row.announced, row.present, "on")).GetSystemFunctionStatus(query).size(),
                  row.statuses);
    }
    EXPECT_EQ(ProxyAnswering(Pairs(MAX32, 1, 1)).SyncAppType("", 0),
              (std::map<std::string, bool>{{"", false}, {"k0", true}}));
    EXPECT_TRUE(ProxyAnswering({}).GetSystemFunctionStatus(query).empty());
    // The later of two equal keys stays.
    EXPECT_EQ(ProxyAnswering({2, "same", 1, "same", 0}).SyncAppType("", 0),
              (std::map<std::string, bool>{{"same", false}}));
    EXPECT_EQ(ProxyAnswering({2, "same", "a", "same", "b"}).GetSystemFunctionStatus(query),
              (std::map<std::string, std::string>{{"same", "b"}}));
}

TEST(ServerProxyReply, GameStateIsFilledOnSuccessOnly)
{
    const struct {
        const char* name;
        Items reply;
        int32_t result, state;
        std::string bundleName;
    } rows[] = {
        {"all", {0, 4, "com.game"}, 0, 4, "com.game"}, {"no name keeps the old one", {0, 4, ""}, 0, 4, "old"},
        {"name missing", {0, 4}, 0, 4, "old"},         {"empty reply", {}, 0, 0, "old"},
        {"refused", {9, 4, "com.game"}, 9, 1, "old"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        GameState state{1, "old"};
        EXPECT_EQ(ProxyAnswering(row.reply).QueryGameState(state), row.result);
        EXPECT_EQ(state.state, row.state);
        EXPECT_EQ(state.bundleName, row.bundleName);
    }
}

}  // namespace
}  // namespace TAVO::Veltra
