// SPDX-License-Identifier: Apache-2.0
// The stub reads each request in the order in which clients write it, or does not act on it at all.
#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "request_reader.h"
#include "service/sent_request.h"
#include "service_result.h"
#include "support/callback_stubs.h"
#include "support/fake_remote_object.h"
#include "support/forwarding_server.h"
#include "support/server_operations.h"
#include "veltra_result.h"

namespace TAVO::Veltra {
namespace {

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

// The proxy's own encoding of each request is tested with the proxy.
TEST(VeltraServerStub, EachRequestReachesItsOperationAndGetsItsWholeReply)
{
    for (const ServerOperation& operation : ServerOperations()) {
        SCOPED_TRACE(operation.name);
        const auto next = MakeRef<FakeRemoteObject>([&](uint32_t code, MessageParcel& data, MessageParcel& reply) {
            EXPECT_EQ(code, operation.code);
            data.ReadInterfaceToken();
            ExpectItems(data, operation.payload);
            WriteItems(reply, operation.reply);
            return 0;
        });
        ForwardingServer server(next);
        const bool isGraphic = CodeOf(operation) == ServerCode::REGISTER_CALLBACK_FOR_GRAPHIC;
        const Sent sent(server, CodeOf(operation), operation.payload);
        EXPECT_EQ(sent.status, isGraphic ? SERVICE_NOT_SUPPORTED : 0);
        EXPECT_EQ(next->Requests().size(), 1U);
        const std::string whole = Bytes(operation.reply);
        EXPECT_EQ(Bytes(sent.reply), whole);
        for (size_t limit = 0; limit < whole.size(); limit += Parcel::SLOT) {
            EXPECT_EQ(Sent(server, CodeOf(operation), operation.payload, limit).status, RESULT_BAD_PARCEL);
        }
    }
}

TEST(VeltraServerStub, ARequestCutAnywhereCallsNothing)
{
    for (const ServerOperation& operation : ServerOperations()) {
        for (auto end = operation.payload.begin(); end != operation.payload.end(); ++end) {
            const Items cut(operation.payload.begin(), end);
            SCOPED_TRACE(operation.name + std::string(" cut to ") + std::to_string(cut.size()));
            const auto next = MakeRef<FakeRemoteObject>();
            ForwardingServer server(next);
            ExpectRefused(Sent(server, CodeOf(operation), cut), operation, SERVICE_BAD_REQUEST);
            EXPECT_TRUE(next->Requests().empty());
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
        const auto next = MakeRef<FakeRemoteObject>();
        ForwardingServer server(next);
        ExpectRefused(Sent(server, row.code, row.items), *operation, SERVICE_BAD_REQUEST);
        EXPECT_TRUE(next->Requests().empty());
    }
}

TEST(VeltraServerStub, RequestsAtTheirBoundsAreAccepted)
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
        const auto next = MakeRef<FakeRemoteObject>();
        ForwardingServer server(next);
        EXPECT_EQ(Sent(server, code, items).status, 0);
        EXPECT_EQ(next->Requests().size(), 1U) << static_cast<uint32_t>(code);
    }
}

TEST(VeltraServerStub, OtherInterfacesAndCodesCallNothing)
{
    const auto next = MakeRef<FakeRemoteObject>();
    ForwardingServer server(next);
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
    EXPECT_TRUE(next->Requests().empty());
}

TEST(VeltraServerStub, RefusalsAndExceptionsNeverLookLikeSuccess)
{
    ForwardingServer server(MakeRef<FakeRemoteObject>([](uint32_t, MessageParcel&, MessageParcel& reply) {
        WriteItems(reply, {77, "not to be sent"});
        return 0;
    }));
    EXPECT_EQ(Bytes(Sent(server, ServerCode::GET_DEVICE_INFO, {0}).reply), Bytes(Items{77}));
    EXPECT_EQ(Bytes(Sent(server, ServerCode::QUERY_GAME_STATE, {}).reply), Bytes(Items{77}));
    server.isOutOfMemory = true;
    for (const ServerOperation& operation : ServerOperations()) {
        SCOPED_TRACE(operation.name);
        ExpectRefused(Sent(server, CodeOf(operation), operation.payload), operation, SERVICE_NO_RESOURCES);
    }
}

}  // namespace
}  // namespace TAVO::Veltra
