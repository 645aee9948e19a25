// SPDX-License-Identifier: Apache-2.0
// The stub reads each request in the order in which clients write it, or does not act on it at all.
#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/service_result.h"
#include "request_reader.h"
#include "service/recording_server.h"
#include "service/sent_request.h"
#include "support/callback_stubs.h"
#include "support/server_operations.h"
#include "veltra_result.h"

namespace TAVO::Veltra {
namespace {

// What the server makes of the requests, in the order of their table.
struct Expected {
    std::string arguments;
    Items reply = {RESULT};
    int status = 0;
};

std::vector<Expected> AllExpected()
{
    const std::string download =
        R"(("r1", "r2", -9223372036854775808, 2, 3, 4, 5, 6, "", 21, 22, "t2", "t3", 72623859790382856, 23, ""))";
    return {
        {" true"},
        {""},
        {R"( -7 "text" -2147483648)"},
        {R"( "a\0b")"},
        {R"( -2147483648 72623859790382856 "one" "two" "th\0ree" "four" "" "six")", {}},
        {R"( "app" 9)", {2, "a", 1, "b", 0}},
        {R"( "one" "two" 3)"},
        {R"( "g" 4 true)", {}, SERVICE_NOT_SUPPORTED},
        {" 5 true"},
        {""},
        {R"( { ("a", "1"), ("b", "") })", {1, "k", "v"}},
        {"", {0, 3, "com.game"}},
        {R"( 11 "lobby" { ("a", "1"), ("b", "2") })"},
        {R"( 2(6, { ("a", "1"), ("b", "2") })(7, {}))", {0, DOCUMENT}},
        {R"( { "y", "x" } true)"},
        {" {} true"},
        {" 2" + download + download},
    };
}

ServerCode CodeOf(const ServerOperation& operation)
{
    return static_cast<ServerCode>(operation.code);
}

// The refusal of a request, wherever its reply carries it; nothing else may be in the reply.
void ExpectRefused(const Sent& sent, const ServerOperation& operation, int32_t code)
{
    EXPECT_EQ(sent.status, operation.HasResult() ? 0 : code);
    EXPECT_EQ(Bytes(sent.reply), Bytes(operation.HasResult() ? Items{code} : Items{}));
}

TEST(VeltraServerStub, EachRequestReachesItsOperationAndGetsItsWholeReply)
{
    const std::vector<ServerOperation>& operations = ServerOperations();
    const std::vector<Expected> expected = AllExpected();
    ASSERT_EQ(operations.size(), expected.size());
    for (size_t i = 0; i < operations.size(); ++i) {
        SCOPED_TRACE(operations[i].name);
        RecordingServer server;
        const Sent sent(server, CodeOf(operations[i]), operations[i].payload);
        EXPECT_EQ(sent.status, expected[i].status);
        EXPECT_EQ(server.calls, std::vector<std::string>{operations[i].name + expected[i].arguments});
        const std::string whole = Bytes(expected[i].reply);
        EXPECT_EQ(Bytes(sent.reply), whole);
        for (size_t limit = 0; limit < whole.size(); limit += Parcel::SLOT) {
            EXPECT_EQ(Sent(server, CodeOf(operations[i]), operations[i].payload, limit).status, RESULT_BAD_PARCEL);
        }
    }
}

TEST(VeltraServerStub, ARequestCutAnywhereCallsNothing)
{
    for (const ServerOperation& operation : ServerOperations()) {
        for (auto end = operation.payload.begin(); end != operation.payload.end(); ++end) {
            const Items cut(operation.payload.begin(), end);
            SCOPED_TRACE(operation.name + std::string(" cut to ") + std::to_string(cut.size()));
            RecordingServer server;
            ExpectRefused(Sent(server, CodeOf(operation), cut), operation, SERVICE_BAD_REQUEST);
            EXPECT_TRUE(server.calls.empty());
        }
    }
}

const Items DOWNLOAD = {"n", "", int64_t{0}, int64_t{0}, int64_t{0}, 0, 0, int64_t{0}, 0, 0, "", "", 0, int64_t{0}};

TEST(VeltraServerStub, CountsAndTextsBeyondTheirBoundsCallNothing)
{
    const Item resource = sptr<IRemoteObject>(new SilentResourceCallback());
    const Item event = sptr<IRemoteObject>(new SilentEventCallback());
    const Item longText = std::string(MAX_REQUEST_TEXT_BYTES + 1, 'x');
    const Items detail = {0, 0};
    const Items pair = {"k", "v"};
    const struct {
        const char* what;
        ServerCode code;
        Items items;
    } rows[] = {
        {"details -1", ServerCode::GET_DEVICE_INFO, {-1}},
        {"details huge", ServerCode::GET_DEVICE_INFO, Items{INT_MAX} + detail},
        {"details 65", ServerCode::GET_DEVICE_INFO, Items{65} + Times(65, detail)},
        {"params -1", ServerCode::GET_DEVICE_INFO, {1, 0, -1}},
        {"params huge", ServerCode::GET_DEVICE_INFO, Items{1, 0, INT_MAX} + pair},
        {"params twice", ServerCode::GET_DEVICE_INFO, Items{1, 0, 2} + pair + pair},
        {"params descending", ServerCode::GET_DEVICE_INFO, Items{1, 0, 2} + pair + Items{"j", "v"}},
        {"functions 101", ServerCode::GET_SYSTEM_FUNCTION_STATUS, Items{101} + Times(101, pair)},
        {"functions -1", ServerCode::GET_SYSTEM_FUNCTION_STATUS, {-1}},
        {"names 0", ServerCode::QUERY_APP_RESOURCE_INFOS, {0, resource}},
        {"names -1", ServerCode::GET_APP_PRIORITYS, {-1, resource}},
        {"names 1001", ServerCode::GET_APP_PRIORITYS, Items{1001} + Times(1001, {"n"}) + Items{resource}},
        {"results -1", ServerCode::NOTIFY_APP_RESOURCE_DOWN_LOAD_RESULTS, {-1}},
        {"results 1001", ServerCode::NOTIFY_APP_RESOURCE_DOWN_LOAD_RESULTS, Items{1001} + Times(1001, DOWNLOAD)},
        {"attributes 65", ServerCode::NOTIFY_GAME_EVENT, {1, 5, "boss", 65}},
        {"no scene", ServerCode::NOTIFY_GAME_EVENT, {0, 5, "boss", 0}},
        {"long text", ServerCode::CALL_AUTH, {longText}},
        {"text of -1 bytes", ServerCode::CALL_AUTH, {-1, 0}},
        {"text of 2 GiB", ServerCode::CALL_AUTH, {INT_MAX, 0}},
        {"text without end", ServerCode::CALL_AUTH, {4, 0x61616161, 0x61616161}},
        {"long last text", ServerCode::REPORT_GAME_EVENT, {1, int64_t{2}, "", "", "", "", "", longText}},
        {"a number for an object", ServerCode::REGISTER_CALL_BACK, {int64_t{1}}},
        {"an object of another interface", ServerCode::REGISTER_CALL_BACK, {resource}},
        {"an object of another interface", ServerCode::START_GET_GPU_PERF_INFO, {1, event}},
        {"an object of another interface", ServerCode::REGISTER_CALLBACK_FOR_GRAPHIC, {"", 1, event}},
        {"an object of another interface", ServerCode::QUERY_APP_RESOURCE_INFOS, {1, "x", event}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const auto operation = std::find_if(ServerOperations().begin(), ServerOperations().end(),
                                            [&row](const auto& candidate) { return CodeOf(candidate) == row.code; });
        RecordingServer server;
        ExpectRefused(Sent(server, row.code, row.items), *operation, SERVICE_BAD_REQUEST);
        EXPECT_TRUE(server.calls.empty());
    }
}

TEST(VeltraServerStub, RequestsAtTheirBoundsAreTaken)
{
    const Item resource = sptr<IRemoteObject>(new SilentResourceCallback());
    Items pairs;
    for (int i = 100; i < 200; ++i) {
        pairs = std::move(pairs) + Items{std::to_string(i), "v"};
    }
    const std::pair<ServerCode, Items> rows[] = {
        {ServerCode::GET_DEVICE_INFO, {0}},
        {ServerCode::GET_DEVICE_INFO, Items{64} + Times(64, {0, 0})},
        {ServerCode::GET_SYSTEM_FUNCTION_STATUS, Items{100} + pairs},
        {ServerCode::NOTIFY_APP_RESOURCE_DOWN_LOAD_RESULTS, Items{1000} + Times(1000, DOWNLOAD)},
        {ServerCode::NOTIFY_APP_RESOURCE_DOWN_LOAD_RESULTS, {0}},
        {ServerCode::GET_APP_PRIORITYS, {0, resource}},
        {ServerCode::QUERY_APP_RESOURCE_INFOS, Items{1000} + Times(1000, {"n"}) + Items{resource}},
        {ServerCode::CALL_AUTH, {std::string(MAX_REQUEST_TEXT_BYTES, 'x')}},
    };
    for (const auto& [code, items] : rows) {
        RecordingServer server;
        EXPECT_EQ(Sent(server, code, items).status, 0);
        EXPECT_EQ(server.calls.size(), 1U) << static_cast<uint32_t>(code);
    }
}

TEST(VeltraServerStub, OtherInterfacesAndCodesCallNothing)
{
    RecordingServer server;
    const std::u16string token = IVeltraServerInterface::GetDescriptor();
    for (const std::u16string& wrong : {std::u16string(), std::u16string(u"zem.game.perf.IVeltraServerInterface"),
                                        token.substr(0, token.size() - 1), token + u'\0'}) {
        for (const ServerOperation& operation : ServerOperations()) {
            const Sent sent(server, CodeOf(operation), operation.payload, Parcel::MAX_DATA_BYTES, wrong);
            EXPECT_EQ(sent.status, RESULT_TOKEN_REFUSED);
            EXPECT_EQ(sent.reply.GetDataSize(), 0U);
        }
    }
    for (const uint32_t code : {0U, 7U, 12U, 14U, 16U, 18U, 19U, 21U, 23U, 26U, 29U, 0xFFFFFFFFU}) {
        EXPECT_EQ(Sent(server, static_cast<ServerCode>(code), {"x", 1}).status, IPC_UNKNOWN_CODE) << code;
    }
    EXPECT_TRUE(server.calls.empty());
}

TEST(VeltraServerStub, RefusalsAndExceptionsNeverLookLikeSuccess)
{
    RecordingServer server;
    server.deviceInfo = {SERVICE_NO_SENSOR, "not to be sent"};
    server.gameStateResult = 77;
    EXPECT_EQ(Bytes(Sent(server, ServerCode::GET_DEVICE_INFO, {0}).reply), Bytes(Items{SERVICE_NO_SENSOR}));
    EXPECT_EQ(Bytes(Sent(server, ServerCode::QUERY_GAME_STATE, {}).reply), Bytes(Items{77}));
    server.isOutOfMemory = true;
    for (const ServerOperation& operation : ServerOperations()) {
        SCOPED_TRACE(operation.name);
        ExpectRefused(Sent(server, CodeOf(operation), operation.payload), operation, SERVICE_NO_RESOURCES);
    }
}

}  // namespace
}  // namespace TAVO::Veltra
