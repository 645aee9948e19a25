// SPDX-License-Identifier: Apache-2.0
// What the stubs take off the wire and what they refuse, down to the last byte that is missing.
#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>

#include "callback/endpoints.h"
#include "support/event_values.h"
#include "support/log_capture.h"

namespace TAVO::Veltra {
namespace {

constexpr int32_t TOKEN_REFUSED = 1010310010;
constexpr int32_t BAD_PARCEL = 1010310012;
constexpr int32_t MAX32 = std::numeric_limits<int32_t>::max();
constexpr int32_t MIN32 = std::numeric_limits<int32_t>::min();

const Outcome DONE = {0, {0}};

class Requests : public Endpoints {};

// A request for another interface reaches no callback, however alike the names are and whatever its code is.
TEST_F(Requests, TokenIsComparedLetterByLetter)
{
    const std::u16string event = u"zem.game.perf.iGpNapiEventCallback";
    const std::u16string gpu = u"zem.game.perf.IGpuCounterNativeCallback";
    const std::u16string resource = u"zem.game.perf.IResourcePreDownloadNativeCallback";
    const std::pair<size_t, std::u16string> wrongTokens[] = {
        {0, u"zem.game.perf.IGpNapiEventCallback"},
        {0, gpu},
        {0, event.substr(0, event.size() - 1)},
        {0, event + u'\0'},
        {0, u""},
        {1, u"zem.game.perf.iGpuCounterNativeCallback"},
        {1, resource},
        {2, u"zem.game.perf.iResourcePreDownloadNativeCallback"},
        {2, event},
        {3, u"zem.game.perf.IResourcePreDownloadNativeCallbacK"},
    };
    const std::vector<Target> targets = Targets();
    for (const auto& [index, token] : wrongTokens) {
        const Target& target = targets[index];
        SCOPED_TRACE(std::string(token.begin(), token.end()));
        for (const uint32_t code : {target.code, IPCObjectStub::CODE_PING}) {
            EXPECT_EQ(
                Send(*target.endpoint, code, token, [&](MessageParcel& data) { WriteItems(data, target.payload); }),
                (Outcome{TOKEN_REFUSED}));
        }
    }
    // Nor one whose token is not there whole.
    const int32_t parcels[][2] = {{-1, 0}, {MAX32, 0}, {34, 0x0065007a}};
    for (const Target& target : targets) {
        for (size_t slots = 0; slots <= 2; ++slots) {
            for (const auto& parcel : parcels) {
                MessageParcel data;
                MessageParcel reply;
                MessageOption option;
                data.SetData(parcel, slots * Parcel::SLOT);
                EXPECT_EQ(target.endpoint->OnRemoteRequest(target.code, data, reply, option), TOKEN_REFUSED);
            }
        }
    }
    EXPECT_EQ(calls_, 0);
}

// Neighbouring codes belong to other interfaces or to none.
TEST_F(Requests, OnlyTheOwnCodesReachAHandler)
{
    for (const Target& target : Targets()) {
        SCOPED_TRACE(target.name);
        for (uint32_t code = 0; code < 40; ++code) {
            const bool isResources =
                target.endpoint == resource_.Get() && (code == PRIORITYS || code == RESOURCE_INFOS);
            if (code != target.code && !isResources) {
                EXPECT_EQ(Send(*target.endpoint, code, target.payload), (Outcome{IPC_UNKNOWN_CODE})) << code;
            }
        }
        EXPECT_EQ(Send(*target.endpoint, 0xffffffff, target.payload).status, IPC_UNKNOWN_CODE);
        EXPECT_EQ(Send(*target.endpoint, IPCObjectStub::CODE_PING, {}).status, 0);
    }
    EXPECT_EQ(calls_, 0);
}

// An event that ends early is delivered; missing fields are 0, not the record's default.
TEST_F(Requests, EventsAreDeliveredAsFarAsTheyGo)
{
    const std::string text("te\0xt", 5);
    const std::vector<int32_t> none(10, 0);
    const struct {
        const char* name;
        Items payload;
        std::string text;
        std::vector<int32_t> values;
    } rows[] = {
        {"whole", {text, MAX32, 2, 3, 4, 5, 6, 7, MIN32, -9, 10}, text, {MAX32, 2, 3, 4, 5, 6, 7, MIN32, -9, 10}},
        {"more than whole", {"", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}, "", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
        {"token only", {}, "", none},
        {"text only", {text}, text, none},
        {"three values", {"x", 1, 2, 3}, "x", {1, 2, 3, 0, 0, 0, 0, 0, 0, 0}},
        // A text that is not there whole moves nothing: its length is read as the first value.
        {"text longer than the parcel", {MAX32, 5}, "", {MAX32, 5, 0, 0, 0, 0, 0, 0, 0, 0}},
        {"text of negative length", {-1}, "", {-1, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        calls_ = 0;
        EXPECT_EQ(Send(*events_, GAME_EVENT, row.payload), DONE);
        EXPECT_EQ(calls_, 1);
        EXPECT_EQ(event_.eventText, row.text);
        std::vector<int32_t> values = row.values;
        values.push_back(0);  // the result code does not travel
        EXPECT_EQ(ValuesOf(event_), values);
    }
}

Items Cut(Items items, size_t count)
{
    items.resize(items.size() - count);
    return items;
}

// Both lists follow the rules of the platform's reader: all of it or nothing reaches the callback.
TEST_F(Requests, ListsAreDeliveredWholeOrNotAtAll)
{
    const struct {
        const char* name;
        Items gpu, resource;
        bool isDelivered;
        size_t size = 0;
    } rows[] = {
        {"no marker", {}, {}, false},
        {"marker 0: no list", {0}, {0}, true},
        {"negative count", GpuItems(-5, 1), ResourceItems(-5, 1), true},
        {"two and more bytes", GpuItems(2, 3), ResourceItems(2, 3), true, 2},
        {"third is null", GpuItems(4, 4, 2), ResourceItems(4, 4, 2), false},
        {"last item is missing", Cut(GpuItems(2, 2), 1), Cut(ResourceItems(2, 2), 1), false},
        {"most that fits a count", GpuItems(MAX32, 1), ResourceItems(MAX32, 1), false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        calls_ = 0;
        samples_.resize(1);
        infos_.resourceInfos.resize(1);
        const Outcome expected = row.isDelivered ? DONE : Outcome{BAD_PARCEL};
        EXPECT_EQ(Send(*gpu_, GPU_DATA, row.gpu), expected);
        EXPECT_EQ(Send(*resource_, RESOURCE_INFOS, row.resource), expected);
        EXPECT_EQ(calls_, row.isDelivered ? 2 : 0);
        EXPECT_EQ(samples_.size(), row.isDelivered ? row.size : 1);
        EXPECT_EQ(infos_.resourceInfos.size(), row.isDelivered ? row.size : 1);
    }
}

TEST_F(Requests, PrioritiesStopAtAHundredTexts)
{
    const struct {
        int32_t announced, present;
        bool isTaken;
    } rows[] = {{100, 100, true}, {100, 0, true},   {3, 1, true},      {1, 2, true},     {0, 1, true},
                {-5, 1, true},    {MIN32, 0, true}, {101, 101, false}, {MAX32, 0, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.announced) + " announced, " + std::to_string(row.present) + " there");
        Items payload = {row.announced};
        std::vector<std::string> expected;
        for (int32_t i = 0; i < row.present; ++i) {
            expected.push_back("text " + std::to_string(i));
            payload.emplace_back(expected.back());
        }
        expected.resize(static_cast<size_t>(row.isTaken ? std::max(row.announced, 0) : 0));
        texts_.clear();
        EXPECT_EQ(Send(*resource_, PRIORITYS, payload), row.isTaken ? DONE : Outcome{1010310023});
        EXPECT_EQ(texts_, expected);
    }
    EXPECT_EQ(Send(*resource_, PRIORITYS, {}), DONE);  // no count reads as none
    EXPECT_TRUE(texts_.empty());
    EXPECT_EQ(calls_, 8);
}

// The callback's result is for the service and never the status; events go to many, so theirs is always 0.
TEST_F(Requests, ResultsTravelInTheReply)
{
    for (const int32_t result : {7, -1, MIN32, int32_t{IPC_UNKNOWN_CODE}}) {
        result_ = [result] { return result; };
        for (const Target& target : Targets()) {
            SCOPED_TRACE(target.name);
            EXPECT_EQ(Send(*target.endpoint, target.code, target.payload),
                      (Outcome{0, {target.code == GAME_EVENT ? 0 : result}}));
            EXPECT_EQ(Send(*target.endpoint, target.code, target.payload, 3), Outcome{BAD_PARCEL});  // does not fit
        }
    }
    EXPECT_EQ(calls_, 4 * 4 * 2);
    EXPECT_EQ(texts_, std::vector<std::string>{"p"});
}

// Watchers of the log search for these texts, at levels that differ on purpose.
TEST_F(Requests, LogFixedLines)
{
    const auto received = [](uint32_t code) { return "I OnRemoteRequest: OnReceived, cmd = " + std::to_string(code); };
    const struct {
        std::string begin;
        const char* notWritten;
    } handlers[] = {
        {"D OnGameCallbackEvent: OnGameCallbackEvent", "E HandleGameEvent"},
        {"I HandleGpuCounterData: GpuCounterCallBackStub::HandleGpuCounterData", "E HandleGpuCounterData"},
        {"I HandleGetAppPrioritysCallback: ResourcePreDownloadCallbackStub::HandleGetAppPrioritysCallback",
         "W HandleGetAppPrioritysCallback"},
        {"I HandleQueryAppResourceInfoCallback: ResourcePreDownloadCallbackStub::HandleQueryAppResourceInfoCallback",
         "E HandleQueryAppResourceInfoCallback"},
    };
    const std::vector<Target> targets = Targets();
    for (size_t i = 0; i < targets.size(); ++i) {
        const Target& target = targets[i];
        const std::string& begin = handlers[i].begin;
        const std::string notWritten = handlers[i].notWritten + std::string(": writing parcel failed");
        ExpectLog({"E OnRemoteRequest: descriptor checked fail !"},
                  [&] { Send(*target.endpoint, target.code, u"x", [](MessageParcel&) {}); });
        ExpectLog({received(8)}, [&] { Send(*target.endpoint, 8, target.payload); });
        ExpectLog({received(target.code), begin}, [&] { Send(*target.endpoint, target.code, target.payload); });
        ExpectLog({received(target.code), begin, notWritten},
                  [&] { Send(*target.endpoint, target.code, target.payload, 0); });
        if (target.code == GPU_DATA || target.code == RESOURCE_INFOS) {
            const std::string unread = begin.substr(0, begin.find(':')) + ": parcel read results failed.";
            ExpectLog({received(target.code), begin, unread}, [&] { Send(*target.endpoint, target.code, Items{}); });
        }
    }
    ExpectLog({received(PRIORITYS), handlers[2].begin}, [&] { Send(*resource_, PRIORITYS, {101}); });
    result_ = [] { return 7; };
    ExpectLog({received(GAME_EVENT), handlers[0].begin, "W OnGameCallbackEvent: callback failed, result code = 7"},
              [&] { Send(*events_, GAME_EVENT, Items{}); });
    result_ = []() -> int32_t { throw std::bad_alloc(); };
    ExpectLog({received(GAME_EVENT), handlers[0].begin, "W OnGameCallbackEvent: callback failed, result code = -1"},
              [&] { Send(*events_, GAME_EVENT, Items{}); });
    ExpectLog({"W AddCallback: the callback from framework is nullptr"}, [&] { events_->AddCallback(nullptr, 1); });
    ExpectLog({}, [&] {
        gpu_->SetProcessCallback(nullptr);
        resource_->SetGetAppPrioritysCallback(nullptr);
        resource_->SetQueryAppResourceInfoCallback(nullptr);
        events_->RemoveCallback(9);
    });
}

// Whatever a game throws ends in the platform, which warns, and the endpoint goes on working. An event's callback is
// one of many: it ends in the stub.
TEST_F(Requests, CallbackThatThrowsLeavesAWarningOfThePlatform)
{
    const std::function<int32_t()> throwing[] = {
        []() -> int32_t { throw std::runtime_error("the game's own fault"); },
        []() -> int32_t { throw std::bad_alloc(); },
        []() -> int32_t { throw 5; },
    };
    for (const auto& result : throwing) {
        for (const Target& target : Targets()) {
            SCOPED_TRACE(target.name);
            result_ = result;
            MessageParcel data;
            ASSERT_TRUE(data.WriteInterfaceToken(target.endpoint->Descriptor()));
            WriteItems(data, target.payload);
            MessageParcel reply;
            MessageOption option;
            const LogCapture log;
            EXPECT_EQ(target.endpoint->SendRequest(target.code, data, reply, option),
                      target.code == GAME_EVENT ? 0 : IPC_EXCEPTION);
            EXPECT_EQ(log.Count("W Tavo a request handler ended in an exception"), target.code == GAME_EVENT ? 0 : 1);
            result_ = [] { return 0; };
            EXPECT_EQ(Send(*target.endpoint, target.code, target.payload), DONE);
        }
    }
}

}  // namespace
}  // namespace TAVO::Veltra
