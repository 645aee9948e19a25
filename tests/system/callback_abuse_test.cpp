// SPDX-License-Identifier: Apache-2.0
// Requests that no good service sends, and callbacks that fail: each gets its status, and the next one works.
#include <stdexcept>

#include "system/callback_fixture.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;

constexpr char EVENTS[] = "zem.game.perf.iGpNapiEventCallback";
constexpr char GPU[] = "zem.game.perf.IGpuCounterNativeCallback";
constexpr char RESOURCES[] = "zem.game.perf.IResourcePreDownloadNativeCallback";

class CallbackAbuse : public CallbackFixture {
protected:
    // Callbacks that note what they are given, and return 4; an event's result stays in the game.
    void NoteEverything()
    {
        const auto note = [notes = notes_](const std::string& text) {
            notes->Add(text);
            return 4;
        };
        ASSERT_EQ(TakeEvents([note](const GameCallbackEventInfo& info) {
                      return note("event '" + info.eventText + "' " + std::to_string(info.tempLevel) + ' ' +
                                  std::to_string(info.thermalMargin));
                  }),
                  0);
        ASSERT_EQ(TakeGpu([note](auto& infos) { return note(std::to_string(infos.size()) + " samples"); }), 0);
        ASSERT_EQ(TakePrioritys([note](auto& list) {
                      return note(std::to_string(list.size()) + " texts, '" + (list.empty() ? "" : list[0]) + "'");
                  }),
                  0);
        ASSERT_EQ(
            TakeInfos([note](auto& infos) { return note(std::to_string(infos.resourceInfos.size()) + " resources"); }),
            0);
    }

    void ExpectTable(const std::string& name, const std::vector<std::vector<std::string>>& rows)
    {
        for (const std::vector<std::string>& row : rows) {  // request, answer, note if anybody is called
            SCOPED_TRACE(row[0]);
            const size_t before = notes_->Count();
            EXPECT_EQ(service_.Ask("push " + name + ' ' + row[0]), row[1]);
            const std::vector<std::string> notes = notes_->WaitFor(0);
            ASSERT_EQ(notes.size(), before + (row.size() > 2 ? 1 : 0));
            if (row.size() > 2) {
                EXPECT_EQ(notes.back(), row[2]);
            }
        }
    }
};

constexpr char TOKEN_REFUSED[] = "1010310010";
constexpr char BAD_PARCEL[] = "1010310012";
constexpr char TOO_MANY[] = "1010310023";
constexpr char UNKNOWN_CODE[] = "-100006";

TEST_F(CallbackAbuse, RequestsAreTakenOrRefusedByTheLetter)
{
    NoteEverything();
    const size_t peakBefore = TestSupport::PeakResidentBytes(::getpid());
    const std::string events = EVENTS;
    ExpectTable("events", {{"7 " + events + " 'text 1 2 3 4 5 6 7 8 9 10", "0 0", "event 'text' 1 8"},
                           {"7 " + events + " 'text 1 2 3", "0 0", "event 'text' 1 0"},
                           {"7 " + events, "0 0", "event '' 0 0"},
                           {"7 -", TOKEN_REFUSED},
                           {"7 - 1", TOKEN_REFUSED},
                           {"7 zem.game.perf.IGpNapiEventCallback 'text 1", TOKEN_REFUSED},
                           {"7 " + events + "s 'text 1", TOKEN_REFUSED},
                           {std::string("7 ") + GPU + " 'text 1", TOKEN_REFUSED},
                           {"8 " + events + " 'text 1", UNKNOWN_CODE},
                           {"12 " + events + " 1 1 gpu*1", UNKNOWN_CODE}});
    const std::string gpu = std::string("12 ") + GPU;
    ExpectTable("gpu", {{gpu, BAD_PARCEL},
                        {gpu + " 1", BAD_PARCEL},
                        {gpu + " 0", "0 4", "0 samples"},
                        {gpu + " 1 -1", "0 4", "0 samples"},
                        {gpu + " 1 0", "0 4", "0 samples"},
                        {gpu + " 1 100 gpu*100", "0 4", "100 samples"},
                        {gpu + " 1 101 gpu*101", "0 4", "101 samples"},
                        {gpu + " 1 100 gpu*99", BAD_PARCEL},
                        {gpu + " 1 3 gpu*2 0", BAD_PARCEL},
                        {gpu + " 1 524288 gpu*2", BAD_PARCEL},
                        {gpu + " 1 524289 gpu*2", BAD_PARCEL},
                        {gpu + " 1 2147483647 gpu*2", BAD_PARCEL},
                        {"12 zem.game.perf.iGpuCounterNativeCallback 1 0", TOKEN_REFUSED},
                        {std::string("7 ") + GPU + " 1 0", UNKNOWN_CODE}});
    const std::string prioritys = std::string("16 ") + RESOURCES;
    ExpectTable("prioritys", {{prioritys, "0 4", "0 texts, ''"},
                              {prioritys + " -1", "0 4", "0 texts, ''"},
                              {prioritys + " -2147483648 'a", "0 4", "0 texts, ''"},
                              {prioritys + " 0", "0 4", "0 texts, ''"},
                              {prioritys + " 3 'a", "0 4", "3 texts, 'a'"},
                              {prioritys + " 100", "0 4", "100 texts, ''"},
                              {prioritys + " 101 'a", TOO_MANY},
                              {prioritys + " 524288 'a", TOO_MANY},
                              {prioritys + " 2147483647", TOO_MANY},
                              {std::string("17 ") + RESOURCES + " 1 'a", UNKNOWN_CODE},
                              {std::string("18 ") + RESOURCES + " 1 1 info*1", "0 0"}});  // to an empty slot
    const std::string infos = std::string("18 ") + RESOURCES;
    ExpectTable("infos", {{infos, BAD_PARCEL},
                          {infos + " 0", "0 4", "0 resources"},
                          {infos + " 1 -1", "0 4", "0 resources"},
                          {infos + " 1 101 info*101", "0 4", "101 resources"},
                          {infos + " 1 3 info*2", BAD_PARCEL},
                          {infos + " 1 524288 info*2", BAD_PARCEL},
                          {infos + " 1 524289 info*2", BAD_PARCEL},
                          {infos + " 1 2147483647 info*2", BAD_PARCEL},
                          {"18 zem.game.perf.iResourcePreDownloadNativeCallback 1 0", TOKEN_REFUSED},
                          {std::string("18 ") + EVENTS + " 1 0", TOKEN_REFUSED}});
    // 524288 samples would be 50 MB, had room been made for what was only announced.
    EXPECT_LT(TestSupport::PeakResidentBytes(::getpid()), peakBefore + (size_t{24} << 20));
}

TEST_F(CallbackAbuse, AListThatIsTooLongIsRefusedThoughAllOfItIsThere)
{
    NoteEverything();
    ExpectTable("gpu", {{std::string("12 ") + GPU + " 1 524289 gpu*524289", BAD_PARCEL},
                        {std::string("12 ") + GPU + " 1 524288 gpu*524288", "0 4", "524288 samples"}});
}

TEST_F(CallbackAbuse, WhatACallbackThrowsEndsThereAndTheNextDeliveryWorks)
{
    const auto throwOnce = [notes = notes_, hasThrown = std::make_shared<bool>(false)](auto&) -> int32_t {
        if (!std::exchange(*hasThrown, true)) {
            throw std::runtime_error("a fault of the game");
        }
        notes->Add("works");
        return 4;
    };
    const auto beside = [notes = notes_](auto&) {
        notes->Add("beside");
        return 0;
    };
    ASSERT_EQ(TakeEvents(throwOnce, 1), 0);
    ASSERT_EQ(TakeEvents(beside, 2), 0);
    EXPECT_EQ(service_.Ask(PUSH_EVENT), "0 0");
    EXPECT_EQ(service_.Ask(PUSH_EVENT), "0 0");
    EXPECT_EQ(notes_->WaitFor(3), (std::vector<std::string>{"beside", "works", "beside"}));

    constexpr char EXCEPTION[] = "-100007";
    const auto throwAlways = [](auto&) -> int32_t { throw 7; };
    ASSERT_EQ(TakeGpu(throwAlways), 0);
    EXPECT_EQ(service_.Ask(PUSH_GPU), EXCEPTION);
    EXPECT_EQ(service_.Ask(PUSH_GPU), EXCEPTION);
    const auto works = [](auto&) { return 5; };
    ASSERT_EQ(TakeGpu(works), 0);
    EXPECT_EQ(service_.Ask(PUSH_GPU), "0 5");
    ASSERT_EQ(TakePrioritys(throwAlways), 0);
    EXPECT_EQ(service_.Ask(PUSH_PRIORITYS), EXCEPTION);
    EXPECT_EQ(service_.Ask(PUSH_PRIORITYS), EXCEPTION);
    ASSERT_EQ(TakeInfos(throwAlways), 0);
    EXPECT_EQ(service_.Ask(PUSH_INFOS), EXCEPTION);
    EXPECT_EQ(service_.Ask(PUSH_INFOS), EXCEPTION);
    EXPECT_EQ(client_.UnRegisterGameCallback(1), 0);
    EXPECT_EQ(client_.UnRegisterGameCallback(2), 0);
    EXPECT_EQ(client_.StopGetGpuPerfInfo(), 0);
}

}  // namespace
}  // namespace SystemTest
