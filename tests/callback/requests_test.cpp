// SPDX-License-Identifier: Apache-2.0
// What the stubs take off the wire and what they refuse, down to the last byte that is missing.
#include <limits>
#include <new>
#include <stdexcept>

#include "callback/endpoints.h"

namespace TAVO::Veltra {
namespace {

constexpr int32_t BAD_PARCEL = 1010310012;
constexpr int32_t MAX32 = std::numeric_limits<int32_t>::max();
constexpr int32_t MIN32 = std::numeric_limits<int32_t>::min();

const Items NOTHING;
const Items ZERO = {0};

class Requests : public Endpoints {};

// A request for another interface reaches nobody, however alike the names are and whatever its code is.
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
            const Outcome outcome =
                Send(*target.endpoint, code, token, [&](MessageParcel& data) { WriteItems(data, target.payload); });
            EXPECT_EQ(outcome.status, 1010310010);
            EXPECT_EQ(outcome.reply, NOTHING);
        }
    }
    EXPECT_EQ(calls_, 0);
}

TEST_F(Requests, TokenThatIsNotThereWholeIsRefused)
{
    const int32_t parcels[][2] = {{-1, 0}, {MAX32, 0}, {34, 0x0065007a}};
    for (const Target& target : Targets()) {
        SCOPED_TRACE(target.name);
        for (size_t slots = 0; slots <= 2; ++slots) {
            for (const auto& parcel : parcels) {
                MessageParcel data;
                MessageParcel reply;
                MessageOption option;
                data.SetData(parcel, slots * Parcel::SLOT);
                EXPECT_EQ(target.endpoint->OnRemoteRequest(target.code, data, reply, option), 1010310010);
                EXPECT_EQ(reply.GetDataSize(), 0u);
            }
        }
    }
    EXPECT_EQ(calls_, 0);
}

// Neighbouring codes belong to other interfaces or to nobody.
TEST_F(Requests, OnlyTheOwnCodesReachAHandler)
{
    for (const Target& target : Targets()) {
        SCOPED_TRACE(target.name);
        for (uint32_t code = 0; code < 40; ++code) {
            const bool isOwn = code == target.code || (target.endpoint == resource_.Get() && code >= PRIORITYS &&
                                                       code <= RESOURCE_INFOS && code != 17);
            if (!isOwn) {
                const Outcome outcome = Send(*target.endpoint, code, target.payload);
                EXPECT_EQ(outcome.status, IPC_UNKNOWN_CODE) << code;
                EXPECT_EQ(outcome.reply, NOTHING);
            }
        }
        EXPECT_EQ(Send(*target.endpoint, 0xffffffff, target.payload).status, IPC_UNKNOWN_CODE);
        EXPECT_EQ(Send(*target.endpoint, IPCObjectStub::CODE_PING, {}).status, 0);
    }
    EXPECT_EQ(calls_, 0);
    for (const Target& target : Targets()) {
        SCOPED_TRACE(target.name);
        EXPECT_EQ(Send(*target.endpoint, target.code, target.payload).status, 0);
    }
    EXPECT_EQ(calls_, 4);
    EXPECT_EQ(texts_, std::vector<std::string>{"p"});
    EXPECT_EQ(infos_.resourceInfos.size(), 2u);
}

void ExpectEvent(const GameCallbackEventInfo& info, const std::string& text, const std::vector<int32_t>& values)
{
    EXPECT_EQ(info.eventText, text);
    const std::vector<int32_t> found = {info.tempLevel,         info.gpuLoadLevel,     info.vertexLoadLevel,
                                        info.fragmentLoadLevel, info.textureLoadLevel, info.bandwidthLoadLevel,
                                        info.currentFrequency,  info.thermalMargin,    info.thermalTrend,
                                        info.extraValue};
    EXPECT_EQ(found, values);
    EXPECT_EQ(info.resultCode, 0);
}

// An event that ends early is delivered all the same; what it lacks is 0, not the record's default.
TEST_F(Requests, EventsAreDeliveredAsFarAsTheyGo)
{
    const std::string text("te\0xt", 5);
    struct Row {
        const char* name;
        Items payload;
        std::string text;
        std::vector<int32_t> values;
    };
    const Row rows[] = {
        {"whole",
         EventItems(text, {MAX32, 2, 3, 4, 5, 6, 7, MIN32, -9, 10}),
         text,
         {MAX32, 2, 3, 4, 5, 6, 7, MIN32, -9, 10}},
        {"more than whole", EventItems("", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}), "", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
        {"token only", {}, "", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {"text only", {text}, text, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {"three values", EventItems("x", {1, 2, 3}), "x", {1, 2, 3, 0, 0, 0, 0, 0, 0, 0}},
        // A text that is not there whole moves nothing: its length is read as the first value.
        {"text longer than the parcel", {MAX32, 5}, "", {MAX32, 5, 0, 0, 0, 0, 0, 0, 0, 0}},
        {"text of negative length", {-1}, "", {-1, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        calls_ = 0;
        const Outcome outcome = Send(*events_, GAME_EVENT, row.payload);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.reply, ZERO);
        EXPECT_EQ(calls_, 1);
        ExpectEvent(event_, row.text, row.values);
    }
}

Items Cut(Items items, size_t count)
{
    items.resize(items.size() - count);
    return items;
}

// Both lists follow the same rules: all of it or nothing reaches the callback.
TEST_F(Requests, ListsAreDeliveredWholeOrNotAtAll)
{
    struct Row {
        const char* name;
        Items gpu, resource;
        bool isDelivered;
        size_t size = 0;
    };
    const Row rows[] = {
        {"no marker", {}, {}, false},
        {"no count", {1}, {1}, false},
        {"marker 0: no list", {0}, {0}, true},
        {"marker 2: no list", {2, 5}, {2, 5}, true},
        {"empty", GpuItems(0, 0), ResourceItems(0, 0), true},
        {"negative count", GpuItems(-5, 1), ResourceItems(-5, 1), true},
        {"two", GpuItems(2, 2), ResourceItems(2, 2), true, 2},
        {"two and more bytes", GpuItems(2, 3), ResourceItems(2, 3), true, 2},
        {"one is missing", GpuItems(3, 2), ResourceItems(3, 2), false},
        {"third is null", GpuItems(4, 4, 2), ResourceItems(4, 4, 2), false},
        {"last item is missing", Cut(GpuItems(2, 2), 1), Cut(ResourceItems(2, 2), 1), false},
        {"524289", GpuItems(524289, 1), ResourceItems(524289, 1), false},
        {"524288 announced, one there", GpuItems(524288, 1), ResourceItems(524288, 1), false},
        {"most that fits a count", GpuItems(MAX32, 1), ResourceItems(MAX32, 1), false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        calls_ = 0;
        samples_.resize(1);
        infos_.resourceInfos.resize(1);
        for (const Outcome& outcome :
             {Send(*gpu_, GPU_DATA, row.gpu), Send(*resource_, RESOURCE_INFOS, row.resource)}) {
            EXPECT_EQ(outcome.status, row.isDelivered ? 0 : BAD_PARCEL);
            EXPECT_EQ(outcome.reply, row.isDelivered ? ZERO : NOTHING);
        }
        EXPECT_EQ(calls_, row.isDelivered ? 2 : 0);
        EXPECT_EQ(samples_.size(), row.isDelivered ? row.size : 1);
        EXPECT_EQ(infos_.resourceInfos.size(), row.isDelivered ? row.size : 1);
    }
}

TEST_F(Requests, LongestListIsDelivered)
{
    constexpr int32_t MOST = 524288;
    const Outcome outcome = Send(*gpu_, GPU_DATA, gpu_->Descriptor(), [](MessageParcel& data) {
        EXPECT_TRUE(data.WriteInt32(1) && data.WriteInt32(MOST));
        GpuPerfInfo sample;
        for (int32_t i = 0; i < MOST; ++i) {
            sample.long1 = i;
            EXPECT_TRUE(data.WriteInt32(1) && sample.Marshalling(data));
        }
    });
    EXPECT_EQ(outcome.status, 0);
    ASSERT_EQ(samples_.size(), static_cast<size_t>(MOST));
    EXPECT_EQ(samples_.front().long1, 0);
    EXPECT_EQ(samples_.back().long1, MOST - 1);
}

TEST_F(Requests, PrioritiesStopAtAHundredTexts)
{
    struct Row {
        int32_t announced, present;
        int32_t status;
    };
    for (const Row& row : {Row{100, 100, 0}, Row{100, 0, 0}, Row{3, 1, 0}, Row{1, 2, 0}, Row{0, 1, 0}, Row{-5, 1, 0},
                           Row{MIN32, 0, 0}, Row{101, 101, 1010310023}, Row{MAX32, 0, 1010310023}}) {
        SCOPED_TRACE(std::to_string(row.announced) + " announced, " + std::to_string(row.present) + " there");
        Items payload = {row.announced};
        std::vector<std::string> expected(static_cast<size_t>(row.status == 0 ? std::max(row.announced, 0) : 0));
        for (int32_t i = 0; i < row.present; ++i) {
            const std::string text = "text " + std::to_string(i);
            payload.emplace_back(text);
            if (static_cast<size_t>(i) < expected.size()) {
                expected[static_cast<size_t>(i)] = text;
            }
        }
        calls_ = 0;
        texts_.clear();
        const Outcome outcome = Send(*resource_, PRIORITYS, payload);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_EQ(outcome.reply, row.status == 0 ? ZERO : NOTHING);
        EXPECT_EQ(calls_, row.status == 0 ? 1 : 0);
        EXPECT_EQ(texts_, expected);
    }
    EXPECT_EQ(Send(*resource_, PRIORITYS, {}).status, 0);  // no count reads as none
    EXPECT_TRUE(texts_.empty());
}

// The callback's result is for the service and never the status; events go to many, so theirs is always 0.
TEST_F(Requests, ResultsTravelInTheReply)
{
    for (const int32_t result : {7, -1, MIN32, IPC_UNKNOWN_CODE + 0}) {
        result_ = [result] { return result; };
        for (const Target& target : Targets()) {
            SCOPED_TRACE(target.name);
            const Outcome outcome = Send(*target.endpoint, target.code, target.payload);
            EXPECT_EQ(outcome.status, 0);
            EXPECT_EQ(outcome.reply, target.code == GAME_EVENT ? ZERO : Items{result});
        }
    }
}

TEST_F(Requests, ReplyThatDoesNotFitIsReported)
{
    for (const Target& target : Targets()) {
        SCOPED_TRACE(target.name);
        calls_ = 0;
        const Outcome outcome = Send(*target.endpoint, target.code, target.payload, 3);
        EXPECT_EQ(outcome.status, BAD_PARCEL);
        EXPECT_EQ(outcome.reply, NOTHING);
        EXPECT_EQ(calls_, 1);
    }
}

// Whatever a game throws ends in the stub, and the endpoint goes on working.
TEST_F(Requests, CallbackThatThrowsIsContained)
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
            const Outcome outcome = Send(*target.endpoint, target.code, target.payload);
            if (target.code == GAME_EVENT) {
                EXPECT_EQ(outcome.status, 0);
                EXPECT_EQ(outcome.reply, ZERO);
            } else {
                EXPECT_EQ(outcome.status, IPC_EXCEPTION);
                EXPECT_EQ(outcome.reply, NOTHING);
            }
            result_ = [] { return 0; };
            EXPECT_EQ(Send(*target.endpoint, target.code, target.payload).reply, ZERO);
        }
    }
}

}  // namespace
}  // namespace TAVO::Veltra
