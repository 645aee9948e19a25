// SPDX-License-Identifier: Apache-2.0
// Watchers get a record of each request with typed values; records that do not fit are counted and delay no request.
#include <json/json.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/config_node.h"
#include "control/control_codes.h"
#include "control/control_proxies.h"
#include "control/control_stubs.h"
#include "service/push_receiver.h"
#include "service/sent_request.h"
#include "service_result.h"
#include "support/fake_remote_object.h"
#include "support/forwarding_server.h"
#include "support/notes.h"
#include "support/process.h"
#include "support/server_operations.h"
#include "veltra_result.h"
#include "watch/watch_hub.h"

namespace TAVO::Veltra {
namespace {

constexpr uint64_t CLIENT = 7;

// Returns what the table of operations says.
sptr<IRemoteObject> MakeNext()
{
    return MakeRef<FakeRemoteObject>([](uint32_t code, MessageParcel&, MessageParcel& reply) {
        for (const ServerOperation& operation : ServerOperations()) {
            if (operation.code == code) {
                WriteItems(reply, operation.reply);
            }
        }
        return 0;
    });
}

class WatchedServer : public ForwardingServer {
public:
    WatchedServer() : ForwardingServer(MakeNext()) {}

    WatchHub hub{{[] {
                      return std::map<std::string, int64_t>{{"tempLevel", 1}};
                  },
                  [] { return std::vector<pid_t>(); }}};

protected:
    WatchHub* Watching() override { return hub.Wants(WatchRecord::Kind::CALL) ? &hub : nullptr; }
};

// A watcher whose connection takes batches unless it is full.
class WatchTest : public testing::Test {
protected:
    WatchTest() { Watch(CLIENT, R"({"device": false})", watcher_); }

    void Watch(uint64_t client, const char* filter, const sptr<FakeRemoteObject>& object)
    {
        EXPECT_TRUE(server_.hub.AddWatcher(client, WatchFilter::Parse(filter), Proxy(object)));
    }
    static sptr<IVeltraWatcher> Proxy(const sptr<FakeRemoteObject>& object)
    {
        return sptr<IVeltraWatcher>(new VeltraWatcherProxy(object));
    }
    void Send(ServerCode code, const Items& items) { Sent(server_, code, items); }

    // All lines so far, and how many records were dropped.
    std::pair<std::vector<std::string>, uint64_t> Received()
    {
        std::vector<std::string> lines;
        uint64_t dropped = 0;
        for (const std::string& push : batches_.WaitFor(0)) {
            MessageParcel data;
            data.SetData(push.data(), push.size());
            EXPECT_EQ(data.ReadInterfaceToken(), IVeltraWatcher::GetDescriptor());
            const std::string batch = data.ReadString();
            EXPECT_LE(batch.size(), MAX_WATCH_BATCH_BYTES);
            std::istringstream stream(batch);
            for (std::string line; std::getline(stream, line);) {
                lines.push_back(line);
            }
            dropped += data.ReadUint64();
        }
        return {lines, dropped};
    }
    std::vector<std::string> Lines(size_t count)
    {
        EXPECT_TRUE(TestSupport::WaitFor([&] { return Received().first.size() >= count; }));
        return Received().first;
    }
    static Json::Value Parsed(const std::string& line)
    {
        Json::Value value;
        const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        EXPECT_TRUE(reader->parse(line.data(), line.data() + line.size(), &value, nullptr)) << line;
        return value;
    }

    std::atomic<bool> isFull_{false};
    std::atomic<size_t> refusals_{0};
    TestSupport::Notes batches_;
    const sptr<FakeRemoteObject> watcher_ = MakeRef<FakeRemoteObject>([this](uint32_t, MessageParcel& data, auto&) {
        if (isFull_) {
            ++refusals_;
            return static_cast<int>(IPC_QUEUE_FULL);
        }
        batches_.Add(Bytes(data));
        return 0;
    });
    WatchedServer server_;
};

TEST_F(WatchTest, EachOperationIsARecordWithItsValues)
{
    const std::string result = R"("code":4711)";
    const std::string download =
        R"({"text1":"r1","text2":"r2","value1":-9223372036854775808,"value2":2,"value3":3,"count1":4,"count2":5,)"
        R"("value4":6,"resourceInfo":{"int1":21,"int2":22,"text2":"t2","text3":"t3","int3":23,)"
        R"("long1":72623859790382856}})";
    const std::string expected[] = {
        R"("args":{},)" + result,
        R"("args":{},)" + result,
        R"("args":{"first":-7,"text":"text","second":-2147483648},)" + result,
        R"("args":{"text":"a\u0000b"},)" + result,
        (R"("args":{"info":{"int32Value":-2147483648,"int64Value":72623859790382856,"text1":"one","text2":"two",)"
         R"("text3":"th\u0000ree","text5":"","text6":"six","text4":"four"}},"code":0)"),
        R"("args":{"text":"app","value":9},"reply":{"result":{"a":true,"b":false}},"code":0)",
        R"("args":{"first":"one","second":"two","value":3},)" + result,
        R"("args":{"text":"g","value":4},"code":1010310102)",
        R"("args":{"value":5},)" + result,
        R"("args":{},)" + result,
        R"("args":{"query":{"a":"1","b":""}},"reply":{"result":{"k":"v"}},"code":0)",
        R"("args":{},"reply":{"state":3,"bundleName":"com.game"},"code":0)",
        R"("args":{"bundle":{"sceneId":11,"sceneName":"lobby","attributes":{"a":"1","b":"2"}}},)" + result,
        (R"("args":{"details":[{"queryType":6,"queryParams":{"a":"1","b":"2"}},{"queryType":7,"queryParams":{}}]},)"
         R"("reply":{"result":{"tempLevel":1}},"code":0)"),
        R"("args":{"bundleNames":["y","x"]},)" + result,
        R"("args":{"bundleNames":[]},)" + result,
        R"("args":{"results":[)" + download + "," + download + "]}," + result,
    };
    const std::vector<ServerOperation>& operations = ServerOperations();
    ASSERT_EQ(operations.size(), std::size(expected));
    for (const ServerOperation& operation : operations) {
        Send(static_cast<ServerCode>(operation.code), operation.payload);
    }
    const std::vector<std::string> lines = Lines(operations.size());
    for (size_t i = 0; i < operations.size(); ++i) {
        const bool isOneWay = operations[i].name == std::string("ReportGameEvent");
        const std::string frame =
            R"("op":")" + std::string(operations[i].name) + R"(","oneway":)" + (isOneWay ? "true," : "false,");
        EXPECT_NE(lines[i].find(frame + expected[i] + R"(,"us":)"), std::string::npos) << lines[i];
        EXPECT_EQ(Parsed(lines[i])["type"].asString(), "call");
    }
    EXPECT_EQ(server_.Counts().Describe()["CallAuth"]["count"].asInt(), 1);
    EXPECT_EQ(server_.Counts().Describe()["CallAuth"]["refused"].asInt(), 1);
}

// The buckets of different services are added up: their bounds are always there, and never change.
TEST(CallCountsTest, BucketsHaveFixedBoundsAndNoCallTwice)
{
    CallCounts counts;
    for (const int64_t nanoseconds : {0LL, 255LL, 256LL, 1023LL, 1024LL, 5000LL, 1LL << 33, 1LL << 34, 1LL << 40}) {
        counts.Add(ServerCode::CALL_AUTH, nanoseconds > 5000, std::chrono::nanoseconds(nanoseconds));
    }
    const Json::Value shown = counts.Describe();
    EXPECT_EQ(shown.getMemberNames(), std::vector<std::string>{"CallAuth"});
    const Json::Value& item = shown["CallAuth"];
    EXPECT_EQ(item["count"].asInt(), 9);
    EXPECT_EQ(item["refused"].asInt(), 3);
    EXPECT_EQ(item["p50us"].asDouble(), 1.28);
    EXPECT_EQ(item["maxus"].asDouble(), 1099511627.776);
    const std::vector<int> below = {2, 4, 5, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 7};
    double bound = 0.256;
    ASSERT_EQ(item["buckets"].size(), below.size());
    for (Json::ArrayIndex i = 0; i < below.size(); ++i, bound *= 4) {
        EXPECT_DOUBLE_EQ(item["buckets"][i][0].asDouble(), bound);
        EXPECT_EQ(item["buckets"][i][1].asInt(), below[i]) << bound;
    }
}

TEST_F(WatchTest, HostileTextsAndLongListsLeaveShortLinesOfValidJson)
{
    std::string control;
    for (int letter = 0; letter < 256; ++letter) {
        control += static_cast<char>(letter);
    }
    Items names;
    for (int i = 100; i < 200; ++i) {
        names = std::move(names) + Items{std::to_string(i) + std::string(65000, '\x01'), "\xff\"\n"};
    }
    Send(ServerCode::CALL_AUTH, {control});
    Send(ServerCode::CALL_AUTH, {std::string(65536, '\xc3')});
    Send(ServerCode::CALL_AUTH, {"short"});
    Send(ServerCode::CALL_AUTH, {});
    Send(ServerCode::GET_SYSTEM_FUNCTION_STATUS, Items{100} + names);
    Send(ServerCode::GET_DEVICE_INFO, Items{64} + Times(64, {5, 0}));
    const std::vector<std::string> lines = Lines(6);
    for (const std::string& line : lines) {
        EXPECT_LE(line.size(), WatchRecord::MAX_LINE_BYTES);
        EXPECT_TRUE(std::all_of(line.begin(), line.end(), [](char letter) { return letter >= ' '; }));
    }
    EXPECT_EQ(Parsed(lines[0])["args"]["text"].asString().substr(0, 128), control.substr(0, 128));
    EXPECT_TRUE(Parsed(lines[1])["cut"].asBool());
    EXPECT_FALSE(Parsed(lines[2]).isMember("cut"));
    EXPECT_EQ(Parsed(lines[3])["code"].asInt(), SERVICE_BAD_REQUEST);
    EXPECT_TRUE(Parsed(lines[4])["cut"].asBool());
    EXPECT_EQ(Parsed(lines[5])["args"]["details"].size(), 16U);
    EXPECT_EQ(Parsed(lines[5])["args"]["detailsCount"].asInt(), 64);
}

TEST_F(WatchTest, RecordsThatAWatcherDoesNotReadAreCounted)
{
    constexpr size_t SENT = 3000;
    isFull_ = true;
    for (size_t i = 0; i < SENT; ++i) {
        Send(ServerCode::CALL_AUTH, {std::string(200, 'x')});
    }
    ASSERT_TRUE(TestSupport::WaitFor([this] { return refusals_ > 0; }));
    EXPECT_EQ(batches_.Count(), 0U);
    isFull_ = false;
    EXPECT_TRUE(TestSupport::WaitFor([this] {
        const auto [lines, dropped] = Received();
        return lines.size() + dropped == SENT;
    })) << Received().first.size()
        << " and " << Received().second;
    EXPECT_GT(Received().second, 0U);
}

// The many records fill the queue, so some of the few are lost, which are all that the watcher wants.
TEST_F(WatchTest, QueuedRecordsTakeABoundedAmountOfMemoryAndAWatcherLosesNoneThatItDoesNotWant)
{
    Watch(CLIENT, R"({"device": false, "operation": ["CallAuth"]})", watcher_);
    PushReceiver slow(IVeltraWatcher::GetDescriptor());
    slow.Block();
    Watch(CLIENT + 1, "", slow.Object());
    ASSERT_EQ(slow.WaitFor(1).size(), 1U);
    Items pairs;
    for (int i = 10; i < 26; ++i) {
        pairs = std::move(pairs) + Items{std::to_string(i) + std::string(250, 'k'), std::string(256, 'v')};
    }
    for (size_t i = 0; i < WatchHub::MAX_QUEUED; ++i) {
        Send(ServerCode::GET_SYSTEM_FUNCTION_STATUS, Items{16} + pairs);
    }
    constexpr size_t WANTED = 100;
    for (size_t i = 0; i < WANTED; ++i) {
        Send(ServerCode::CALL_AUTH, {std::string(256, 'x')});
    }
    slow.Unblock();
    EXPECT_TRUE(TestSupport::WaitFor([this] { return Received().first.size() + Received().second >= WANTED; }));
    EXPECT_GT(Received().second, 0U);
    EXPECT_EQ(Received().first.size() + Received().second, WANTED);
}

// At once, and not when they change or are repeated.
TEST_F(WatchTest, EachNewWatcherGetsAllValuesOfTheDevice)
{
    for (const uint64_t client : {CLIENT + 1, CLIENT + 2}) {
        const PushReceiver watcher(IVeltraWatcher::GetDescriptor());
        Watch(client, R"({"calls": false})", watcher.Object());
        EXPECT_TRUE(TestSupport::WaitFor([&watcher] { return watcher.Count() > 0; }, std::chrono::seconds(5)));
    }
}

TEST_F(WatchTest, NothingIsRecordedForAWatcherThatHasEnded)
{
    EXPECT_TRUE(server_.hub.Wants(WatchRecord::Kind::CALL));
    EXPECT_TRUE(server_.hub.RemoveWatcher(CLIENT));
    EXPECT_FALSE(server_.hub.Wants(WatchRecord::Kind::CALL));
    Watch(CLIENT, "", watcher_);
    watcher_->Die();
    EXPECT_FALSE(server_.hub.Wants(WatchRecord::Kind::CALL));
    EXPECT_FALSE(server_.hub.RemoveWatcher(CLIENT));
    EXPECT_FALSE(server_.hub.AddWatcher(CLIENT, {}, Proxy(watcher_)));
    const sptr<FakeRemoteObject> other = MakeRef<FakeRemoteObject>();
    for (uint64_t client = 0; client < Watchers::MAX_WATCHERS; ++client) {
        EXPECT_TRUE(server_.hub.AddWatcher(client, {}, Proxy(other)));
    }
    EXPECT_FALSE(server_.hub.AddWatcher(CLIENT + 100, {}, Proxy(other)));
    EXPECT_TRUE(server_.hub.AddWatcher(CLIENT, {}, Proxy(other))) << "the latest replaces";
}

TEST(WatchFilter, LetsThroughWhatItNames)
{
    WatchRecord call;
    call.name = "CallAuth";
    call.process = 5;
    WatchRecord push = call;
    push.kind = WatchRecord::Kind::PUSH;
    const struct {
        const char* filter;
        bool letsCall;
        bool letsPush;
    } rows[] = {
        {"", true, true},
        {"{}", true, true},
        {R"({"calls": false})", false, true},
        {R"({"pushes": false, "pid": [5, 6]})", true, false},
        {R"({"pid": [6]})", false, false},
        {R"({"operation": ["SyncAppType"]})", false, true},
        {R"({"operation": ["CallAuth"]})", true, true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(WatchFilter::Parse(row.filter).Lets(call), row.letsCall) << row.filter;
        EXPECT_EQ(WatchFilter::Parse(row.filter).Lets(push), row.letsPush) << row.filter;
    }
    for (const char* bad : {"{", "[]", R"({"call": true})", R"({"pid": [0]})", R"({"operation": ["callAuth"]})"}) {
        EXPECT_THROW(WatchFilter::Parse(bad), ConfigError) << bad;
    }
}

// A tool may meet a service of another version.
TEST(VeltraControlProxy, AnswersThatAreCutOrTooLongAreRefused)
{
    const auto answering = [](const Items& reply) {
        return VeltraControlProxy(MakeRef<FakeRemoteObject>([reply](uint32_t, MessageParcel&, MessageParcel& out) {
            WriteItems(out, reply);
            return 0;
        }));
    };
    std::string answer = "before";
    for (const Items& reply :
         {Items{}, Items{0}, Items{0, -1}, Items{0, std::string(MAX_CONTROL_ANSWER_BYTES + 1, 'x')}}) {
        EXPECT_EQ(answering(reply).Describe(answer), IPC_BAD_MESSAGE);
        EXPECT_EQ(answer, "");
    }
    EXPECT_EQ(answering({77, "{}"}).Describe(answer), 77);
    EXPECT_EQ(answer, "{}");
}

// Requests to the control side that are cut, too long or carry a wrong object call nothing.
TEST(VeltraControlStub, HostileRequestsCallNothing)
{
    struct Server final : VeltraControlStub {
        int calls = 0;
        int32_t Describe(std::string& answer) override { return Called(answer); }
        int32_t Explain(std::string& answer) override { return Called(answer); }
        int32_t Watch(const std::string&, const sptr<IVeltraWatcher>&, std::string& answer) override
        {
            return Called(answer);
        }
        int32_t Unwatch() override { return ++calls; }
        int32_t Simulate(const std::string&, std::string& answer) override { return Called(answer); }
        int32_t Called(std::string& answer)
        {
            answer = "{}";
            return ++calls;
        }
    };
    struct OtherWatcher final : VeltraWatcherStub {
        int32_t OnRecords(const std::string&, uint64_t) override { throw std::logic_error("records"); }
    };
    const sptr<Server> server(new Server());
    const auto send = [&server](ControlCode code, const Items& items, std::u16string_view token) {
        return Sent(*server, static_cast<ServerCode>(code), items, Parcel::MAX_DATA_BYTES, token).status;
    };
    const std::u16string token = IVeltraControl::GetDescriptor();
    const Item wrong = sptr<IRemoteObject>(MakeRef<FakeRemoteObject>());
    const std::string longFilter(MAX_CONTROL_FILTER_BYTES + 1, ' ');
    const std::string longCommand(MAX_CONTROL_COMMAND_BYTES + 1, ' ');
    const sptr<OtherWatcher> own(new OtherWatcher());
    const Item watcher = sptr<IRemoteObject>(own);
    const std::pair<ControlCode, Items> rows[] = {
        {ControlCode::WATCH, {}},           {ControlCode::WATCH, {""}},
        {ControlCode::WATCH, {"", wrong}},  {ControlCode::WATCH, {longFilter, watcher}},
        {ControlCode::WATCH, {-1, 0}},      {ControlCode::SIMULATE, {}},
        {ControlCode::SIMULATE, {INT_MAX}}, {ControlCode::SIMULATE, {longCommand}},
    };
    for (const auto& [code, items] : rows) {
        EXPECT_EQ(send(code, items, token), RESULT_BAD_PARCEL);
    }
    EXPECT_EQ(send(ControlCode::DESCRIBE, {}, u"TAVO.Veltra.IVeltraWatcher"), RESULT_TOKEN_REFUSED);
    EXPECT_EQ(send(static_cast<ControlCode>(6), {}, token), IPC_UNKNOWN_CODE);
    EXPECT_EQ(server->calls, 0);
    for (const Items& batch : {Items{"a line\n"}, Items{std::string(MAX_WATCH_BATCH_BYTES + 1, '\n'), int64_t{0}}}) {
        const Sent sent(*own, static_cast<ServerCode>(WatcherCode::RECORDS), batch, Parcel::MAX_DATA_BYTES,
                        IVeltraWatcher::GetDescriptor());
        EXPECT_EQ(sent.status, RESULT_BAD_PARCEL);
    }
    EXPECT_EQ(send(ControlCode::WATCH, {"", watcher}, token), 0);
    EXPECT_EQ(send(ControlCode::SIMULATE, {"{}"}, token), 0);
    EXPECT_EQ(server->calls, 2);
}

}  // namespace
}  // namespace TAVO::Veltra
